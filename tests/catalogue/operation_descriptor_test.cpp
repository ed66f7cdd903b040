// SPDX-License-Identifier: Apache-2.0
#include "support/expect_error.h"
#include "support/operands.h"
#include "tessaline/catalogue/operation_descriptor.h"

namespace Tessaline {
namespace {

using Testing::expect_error;
using Testing::vector_operand;

const GpuSchedulingOptions automatic{};
const GpuSchedulingOptions first_input{GpuSchedulingPolicy::FirstInput, std::nullopt};

OperationSpec sealed_spec() {
    OperationSpec spec(OperationId("a.b", 1),
                       {{input_role(0), OperandAccess::read, OperandKind::Vector},
                        {output_role(0), OperandAccess::write, OperandKind::Vector},
                        {output_role(1), OperandAccess::read_write, OperandKind::Vector}},
                       {}, std::nullopt);
    spec.assign_handle(OperationHandle{5});
    return spec;
}

std::vector<OperandDescriptor> inputs_on(const DataTopologyDescriptor& topology) {
    return {vector_operand(input_role(0), 2, topology)};
}

std::vector<OperandDescriptor> outputs_on(const DataTopologyDescriptor& topology) {
    return {vector_operand(output_role(0), 2, topology),
            vector_operand(output_role(1), 2, topology)};
}

const auto host = DataTopologyDescriptor::pageable_host(-1);

TEST(OperationDescriptor, CarriesTheRequest) {
    const auto spec = sealed_spec();
    const OperationDescriptor request(spec, inputs_on(host), outputs_on(host),
                                      CrossDevicePolicy::Reject, automatic);
    EXPECT_EQ(request.handle(), OperationHandle{5});
    EXPECT_EQ(request.inputs().size(), 1U);
    EXPECT_EQ(request.outputs().size(), 2U);
    EXPECT_EQ(request.output().role(), output_role(0));
    EXPECT_EQ(request.output_roles(), (std::vector{output_role(0), output_role(1)}));
    EXPECT_FALSE(request.gpu_device_id());
    EXPECT_FALSE(request.preserves_output());
    EXPECT_TRUE(request.preserves_output(output_role(1)));
    expect_error<std::invalid_argument>(
        [&] { static_cast<void>(request.preserves_output(input_role(0))); },
        "OperationDescriptor::preserves_output - role is not an output");
    expect_error<std::out_of_range>(
        [&] { static_cast<void>(request.preserves_output(output_role(2))); },
        "OperationDescriptor::preserves_output - output is not registered");
}

TEST(OperationDescriptor, ChecksHandleThenCountsThenTheContract) {
    const auto build = [](const OperationSpec& spec, std::vector<OperandDescriptor> inputs,
                          std::vector<OperandDescriptor> outputs) {
        OperationDescriptor(spec, std::move(inputs), std::move(outputs), CrossDevicePolicy::Reject,
                            automatic);
    };
    const OperationSpec unsealed(OperationId("a.b", 1),
                                 {{output_role(0), OperandAccess::write, std::nullopt}}, {},
                                 std::nullopt);
    const auto spec = sealed_spec();
    expect_error<std::logic_error>(
        [&] { build(unsealed, {}, {}); },
        "OperationSpec::handle - operation catalogue has not been sealed");
    expect_error<std::invalid_argument>([&] { build(spec, {}, {}); },
                                        "OperationDescriptor - input arity mismatch");
    expect_error<std::invalid_argument>([&] { build(spec, inputs_on(host), {}); },
                                        "OperationDescriptor - output arity mismatch");
    auto swapped = outputs_on(host);
    std::swap(swapped[0], swapped[1]);
    expect_error<std::invalid_argument>(
        [&] { build(spec, inputs_on(host), swapped); },
        "OperationSpec - operands do not match the registered role order");
}

TEST(GpuScheduling, FirstOfTheFavouredSideDecides) {
    const auto spec = sealed_spec();
    const auto device = [&](const DataTopologyDescriptor& in, const DataTopologyDescriptor& out,
                            const GpuSchedulingOptions& scheduling) {
        return OperationDescriptor(spec, inputs_on(in), outputs_on(out),
                                   CrossDevicePolicy::StagedHostCopy, scheduling)
            .gpu_device_id();
    };
    const auto gpu0 = DataTopologyDescriptor::gpu(0);
    const auto gpu1 = DataTopologyDescriptor::gpu(1);
    EXPECT_EQ(device(gpu1, gpu0, automatic), 0);
    EXPECT_EQ(device(gpu1, gpu0, first_input), 1);
    EXPECT_EQ(device(gpu1, host, automatic), 1);
    EXPECT_EQ(device(host, gpu0, first_input), 0);
    EXPECT_EQ(device(host, host, first_input), std::nullopt);
    EXPECT_EQ(device(host, host, {GpuSchedulingPolicy::PreferredDevice, 3}), 3);
    EXPECT_EQ(device(gpu1, gpu1, {GpuSchedulingPolicy{7}, 3}), std::nullopt);
}

TEST(GpuScheduling, RefusesWhatItCannotPlace) {
    const auto spec = sealed_spec();
    const auto refuse = [&](const DataTopologyDescriptor& in, const DataTopologyDescriptor& out,
                            const GpuSchedulingOptions& scheduling, const std::string& message) {
        expect_error<std::invalid_argument>(
            [&] {
                OperationDescriptor(spec, inputs_on(in), outputs_on(out), CrossDevicePolicy::Reject,
                                    scheduling);
            },
            "OperationDescriptor - " + message);
    };
    const auto gpu0 = DataTopologyDescriptor::gpu(0);
    const auto gpu1 = DataTopologyDescriptor::gpu(1);
    refuse(gpu1, gpu0, automatic,
           "GPU operand Input0 is on device 1 but selected execution device is 0");
    refuse(gpu1, gpu0, first_input,
           "GPU operand Output0 is on device 0 but selected execution device is 1");
    refuse(gpu0, DataTopologyDescriptor::gpu(-1), automatic,
           "GPU operand Output0 has invalid CUDA device placement -1");
    refuse(host, host, {GpuSchedulingPolicy::PreferredDevice, std::nullopt},
           "PreferredDevice GPU scheduling requires a preferred CUDA device");
    refuse(host, host, {GpuSchedulingPolicy::PreferredDevice, -2},
           "preferred CUDA device must be non-negative");
    refuse(gpu1, host, {GpuSchedulingPolicy::PreferredDevice, 0},
           "GPU operand Input0 is on device 1 but selected execution device is 0");
}

} // namespace
} // namespace Tessaline

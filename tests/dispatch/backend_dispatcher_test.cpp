// SPDX-License-Identifier: Apache-2.0
#include "dispatch/best_candidate.h"
#include "support/expect_error.h"
#include "support/registry_rows.h"
#include "tessaline/catalogue/errors.h"

namespace Tessaline {
namespace {

using namespace Testing;

const auto provenance = RegistrationProvenance::builtin("0.1.1");
const auto host = DataTopologyDescriptor::pageable_host(-1);
const auto on_pinned = DataTopologyDescriptor::pinned_host(-1);
const auto on_device = DataTopologyDescriptor::gpu(0);
const BackendOperandKey pageable = vector_key();
const BackendOperandKey device = vector_key(ScalarType::Float32, DataLocation::cuda_device);

TEST(BestCandidate, FamilyWinsByAStrictlyLowerCostOnly) {
    StepLog log;
    const BackendEntry entry = named_entry(log, "row");
    const auto key = [](BackendKind backend) {
        return BackendRegistryKey(backend, OperationId("test.op", 1), {}, pageable);
    };
    const auto scalar_key = key(BackendKind::cpu_scalar);
    const auto simd_key = key(BackendKind::cpu_simd);
    const auto cuda_key = key(BackendKind::cuda);
    constexpr int absent = -1;
    const auto winner = [&](int scalar, int simd, int cuda, bool is_pinned) {
        const auto candidate = [&](const BackendRegistryKey& row, int cost) {
            return cost == absent
                       ? BackendCandidate()
                       : BackendCandidate(BackendMatch(row, entry, static_cast<unsigned>(cost)));
        };
        return best_candidate(candidate(scalar_key, scalar), candidate(simd_key, simd),
                              candidate(cuda_key, cuda), is_pinned)
            .key()
            .backend();
    };
    EXPECT_EQ(winner(1, 1, 1, false), BackendKind::cpu_scalar);
    EXPECT_EQ(winner(1, 0, 0, false), BackendKind::cpu_simd);
    EXPECT_EQ(winner(1, 2, 2, false), BackendKind::cpu_scalar);
    EXPECT_EQ(winner(2, 2, 1, false), BackendKind::cuda);
    EXPECT_EQ(winner(2, 1, 0, false), BackendKind::cuda);
    EXPECT_EQ(winner(1, absent, 2, false), BackendKind::cpu_scalar);
    EXPECT_EQ(winner(1, absent, 2, true), BackendKind::cuda);
    EXPECT_EQ(winner(absent, 5, absent, true), BackendKind::cpu_simd);
    EXPECT_EQ(winner(absent, absent, 9, false), BackendKind::cuda);
    expect_error<DispatchError>([&] { winner(absent, absent, absent, true); },
                                "BackendDispatcher::dispatch - no backend entry available");
}

/// Rules that support every difference and log their steps as "I0", "D1", "B0", "A0", "DB0", ...
BackendAdaptationRegistry logging_rules(StepLog& log) {
    BackendAdaptationRegistry rules;
    const auto any = [](const auto&...) { return true; };
    const auto pair = [&log](OperandRole role, const char* before, const char* after,
                             bool preserve) {
        const std::string suffix =
            std::to_string(output_index(role)) + (preserve ? " preserving" : "");
        return BackendAdaptationRegistry::StepPair{named_step(log, before + suffix),
                                                   named_step(log, after + suffix)};
    };
    const auto two_steps = [&log](OperandRole role, const char* letter) {
        BackendAdaptationRegistry::StepSequence steps;
        const std::string name = letter + std::to_string(input_index(role));
        steps.push_back(named_step(log, name + "a"));
        steps.push_back(named_step(log, name + "b"));
        return steps;
    };
    rules.inputs.push_back(
        {any, [=](OperandRole role, const auto&, const auto&) { return two_steps(role, "I"); }});
    rules.outputs.push_back({any, [=](OperandRole role, const auto&, const auto&, bool preserve) {
                                 return pair(role, "B", "A", preserve);
                             }});
    rules.descriptor_inputs.push_back(
        {any, [=](OperandRole role, const auto&...) { return two_steps(role, "D"); }});
    rules.descriptor_outputs.push_back(
        {any, [=](OperandRole role, const auto&, const auto&, const auto&, const auto&,
                  bool preserve) { return pair(role, "DB", "DA", preserve); }});
    return rules;
}

class BackendDispatcherTest : public ::testing::Test {
  protected:
    void operation(std::size_t inputs, std::size_t outputs) {
        operations_.register_operation(test_operation(inputs, outputs), provenance);
    }
    void row(BackendKind backend, std::vector<BackendOperandKey> inputs,
             std::vector<BackendOperandKey> outputs) {
        registry_.register_backend(BackendRegistryKey(backend, OperationId("test.op", 1),
                                                      std::move(inputs), std::move(outputs)),
                                   named_entry(log_, backend_kind_name(backend)), provenance,
                                   std::nullopt);
    }
    BackendProcess dispatch(const BackendAdaptationRegistry& rules,
                            const DataTopologyDescriptor& inputs,
                            const DataTopologyDescriptor& outputs) {
        operations_.seal();
        registry_.seal(operations_);
        const OperationSpec& spec = operations_.operation(OperationId("test.op", 1));
        std::vector<OperandDescriptor> in;
        for (const OperandRole role : spec.input_roles()) {
            in.push_back(vector_operand(role, 2, inputs));
        }
        std::vector<OperandDescriptor> out;
        for (const OperandRole role : spec.output_roles()) {
            out.push_back(vector_operand(role, 2, outputs));
        }
        return BackendDispatcher(registry_, rules)
            .dispatch({spec, in, out, CrossDevicePolicy::StagedHostCopy, {}});
    }

    StepLog log_;
    OperationRegistry operations_;
    BackendRegistry registry_;
};

TEST_F(BackendDispatcherTest, WrapsTheKernelInTheFixedOrder) {
    operation(2, 3);
    row(BackendKind::cuda, {device, device}, {device, device, device});
    const auto process = dispatch(logging_rules(log_), host, host);
    std::string steps;
    for (const std::string& step : run(process, log_)) {
        steps += step + ", ";
    }
    EXPECT_EQ(steps, "DB0, B0, DB1, B1, DB2 preserving, B2 preserving, D1a, D1b, D0a, D0b, "
                     "I1a, I1b, I0a, I0b, CUDA, A2 preserving, DA2 preserving, A1, DA1, A0, DA0, ");
    const auto& plan = process.execution_plan();
    ASSERT_TRUE(plan);
    EXPECT_EQ(plan->backend, BackendKind::cuda);
    EXPECT_EQ(plan->cross_device_policy, CrossDevicePolicy::StagedHostCopy);
    EXPECT_EQ(plan->outputs.size(), 3U);
    EXPECT_TRUE(plan->outputs[2].preserves_output);
}

TEST_F(BackendDispatcherTest, EqualKeysOnTheCpuLeaveTheKernelAlone) {
    operation(1, 1);
    row(BackendKind::cpu_simd, {pageable}, {pageable});
    const auto process = dispatch(logging_rules(log_), host, host);
    EXPECT_EQ(run(process, log_), StepLog{"CPU SIMD"});
    EXPECT_EQ(process.execution_plan()->backend, BackendKind::cpu_simd);
    EXPECT_EQ(process.execution_plan()->cross_device_policy, CrossDevicePolicy::Reject);
    EXPECT_FALSE(process.execution_plan()->cuda_device);
}

TEST_F(BackendDispatcherTest, EqualKeysOnADeviceStillMeetTheDescriptorRules) {
    operation(1, 1);
    row(BackendKind::cuda, {device}, {device});
    const auto process = dispatch(logging_rules(log_), on_device, on_device);
    EXPECT_EQ(run(process, log_), (StepLog{"DB0", "D0a", "D0b", "CUDA", "DA0"}));
    EXPECT_EQ(process.execution_plan()->cuda_device, 0);
}

TEST_F(BackendDispatcherTest, PinnedOperandsPreferTheDevice) {
    operation(1, 1);
    row(BackendKind::cpu_simd, {pageable}, {pageable});
    row(BackendKind::cuda, {device}, {device});
    const auto rules = logging_rules(log_);
    EXPECT_EQ(dispatch(rules, host, host).execution_plan()->backend, BackendKind::cpu_simd);
    EXPECT_EQ(dispatch(rules, host, on_pinned).execution_plan()->backend, BackendKind::cuda);
}

TEST_F(BackendDispatcherTest, OutputsWithoutInputsAreAdaptedAlone) {
    operation(0, 1);
    row(BackendKind::cpu_simd, {}, {device});
    EXPECT_EQ(run(dispatch(logging_rules(log_), host, host), log_),
              (StepLog{"B0", "CPU SIMD", "A0"}));
}

TEST_F(BackendDispatcherTest, ATieInALosingFamilyFailsTheCall) {
    operation(1, 1);
    row(BackendKind::cpu_simd, {pageable}, {pageable});
    BackendOperandKey other = device;
    other.storage = ScalarType::Float64;
    row(BackendKind::cuda, {device}, {device});
    row(BackendKind::cuda, {other}, {device});
    EXPECT_THROW(dispatch(logging_rules(log_), host, host), DispatchError);
}

TEST_F(BackendDispatcherTest, ReportsMissingImplementationsAndFickleRules) {
    operation(1, 1);
    row(BackendKind::cpu_simd, {device}, {device});
    const auto expect_refusal = [&](const BackendAdaptationRegistry& rules,
                                    const std::string& stage, ErrorReason reason,
                                    const std::string& what) {
        const std::string operation = "BackendDispatcher::" + stage;
        expect_dispatch_error([&] { dispatch(rules, host, host); }, operation, reason,
                              operation + " - " + what);
    };
    expect_refusal({}, "dispatch", ErrorReason::no_backend_available, "no backend entry available");
    // Rules that say yes while prices are asked and no afterwards.
    for (const bool inputs_fickle : {true, false}) {
        auto rules = logging_rules(log_);
        const auto asked = std::make_shared<int>(0);
        const auto once = [asked](const auto&, const auto&) { return ++*asked == 1; };
        if (inputs_fickle) {
            rules.inputs.front().supports = once;
        } else {
            rules.outputs.front().supports = once;
        }
        expect_refusal(rules, inputs_fickle ? "adapt_input" : "adapt_output",
                       ErrorReason::unsupported_adaptation, "unsupported operand adaptation");
    }
}

} // namespace
} // namespace Tessaline

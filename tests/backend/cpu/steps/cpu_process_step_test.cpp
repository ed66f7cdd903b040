// SPDX-License-Identifier: Apache-2.0
#include "support/expect_error.h"
#include "support/plain_entities.h"
#include "tessaline/backend/cpu/launch_cpu_kernel_step.h"
#include "tessaline/storage/host_entities.h"
#include "tessaline/storage/operand_views.h"
#include "tessaline/storage/storage_factory.h"

#include <deque>

namespace Tessaline {
namespace {

using namespace CpuProcessStepDetail;
using Testing::DescribedVector;
using Testing::expect_error;

const OperandRole in0 = input_role(0);
const OperandRole in1 = input_role(1);
const OperandRole out0 = output_role(0);

CpuTopology two_nodes() {
    return CpuTopology({{0, {0, 1, 2}}, {3, {3, 4}}});
}

std::shared_ptr<CpuRuntimeContext> runtime_with(CpuNumaPolicy policy, std::vector<int> nodes = {},
                                                std::vector<std::size_t> cpus = {}) {
    CpuRuntimeOptions options;
    options.numa_policy = policy;
    options.pinning_policy = CpuPinningPolicy::disabled;
    options.numa_nodes = std::move(nodes);
    options.logical_cpus = std::move(cpus);
    return std::make_shared<CpuRuntimeContext>(options, two_nodes(), BackendKind::cpu_simd);
}

void bind(BackendExecutionBindings& bindings, OperandRole role, VectorEntity& entity) {
    bindings.operands.insert(role, std::ref(entity));
    bindings.roles.push_back(role);
}

TEST(PreferredNumaNode, TheGreatestWeightOfElementsWinsThenTheOutputThenTheLowestOperand) {
    constexpr auto half = std::uint64_t{1} << 63U; // twice of it is out of range
    struct Placed {
        OperandRole role;
        int node; ///< -1 for none known
        std::uint64_t size;
        bool is_read = false; ///< an output whose content is read counts twice
    };
    struct Case {
        const char* name;
        std::vector<Placed> operands;
        std::optional<int> preferred;
    };
    const Case cases[] = {
        {"no operand", {}, std::nullopt},
        {"no known node", {{in0, -1, 9}}, std::nullopt},
        {"one known node", {{in0, -1, 9}, {out0, 3, 1}}, 3},
        {"greatest operand", {{in0, 0, 5}, {in1, 1, 4}}, 0},
        {"greatest sum", {{in0, 0, 5}, {in1, 1, 4}, {out0, 1, 2}}, 1},
        {"output that is not read", {{in0, 0, 5}, {out0, 1, 3}}, 0},
        {"output that is read", {{in0, 0, 5}, {out0, 1, 3, true}}, 1},
        {"tie of inputs", {{in0, 7, 4}, {in1, 0, 4}}, 7},
        {"tie with the output", {{in0, 7, 4}, {in1, 0, 4}, {out0, 2, 4}}, 2},
        {"saturated sum", {{in0, 0, half}, {in1, 0, half}, {out0, 1, 5}}, 0},
    };
    for (const Case& each : cases) {
        BackendExecutionBindings bindings;
        std::deque<DescribedVector> vectors;
        for (const Placed& operand : each.operands) {
            bind(bindings, operand.role,
                 vectors.emplace_back(DataTopologyDescriptor::pageable_host(operand.node),
                                      operand.size));
            if (operand.is_read) {
                bindings.outputs.insert(operand.role, true);
            }
        }
        EXPECT_EQ(preferred_numa_node_for_operation(bindings), each.preferred) << each.name;
    }
}

TEST(PreferredNumaNode, OperandsOnADeviceOrUnboundHaveNone) {
    BackendExecutionBindings bindings;
    DescribedVector device(DataTopologyDescriptor::gpu(0, 3), 9);
    bind(bindings, in1, device);
    EXPECT_EQ(preferred_numa_node_for_operation(bindings), std::nullopt);
    EXPECT_EQ(preferred_numa_node_for_role(bindings, in1), std::nullopt);
    EXPECT_EQ(preferred_numa_node_for_role(bindings, out0), std::nullopt);
}

TEST(RuntimeForNumaNode, PicksALocalRuntimeOfTheSameBudget) {
    const CpuExecutionContext context(BackendKind::cpu_simd,
                                      runtime_with(CpuNumaPolicy::automatic));
    const auto local = runtime_for_numa_node(context, 3);
    ASSERT_NE(local, context.runtime());
    EXPECT_EQ(local->selected_logical_cpus(), (std::vector<std::size_t>{3, 4}));
    EXPECT_EQ(local->thread_count(), 1U);
    EXPECT_EQ(local->budget(), context.runtime()->budget());
    EXPECT_EQ(runtime_for_numa_node(context, 3), local);
    EXPECT_EQ(runtime_for_numa_node(context, 0)->thread_count(), 2U);
    EXPECT_EQ(runtime_for_numa_node(context, -1), context.runtime());
    EXPECT_EQ(runtime_for_numa_node(CpuExecutionContext(BackendKind::cpu_simd, nullptr), 3),
              nullptr);
}

TEST(RuntimeForNumaNode, OnlyAStrictRuntimeRefusesANode) {
    struct Case {
        std::vector<int> nodes;
        std::vector<std::size_t> cpus;
        int node;
        const char* message;
    };
    const Case cases[] = {
        {{}, {}, 9, "CpuProcessStep - requested operand NUMA node is unavailable: 9"},
        {{3},
         {},
         0,
         "CpuProcessStep - operand NUMA node is outside the strict runtime node set: 0"},
        {{}, {0, 1}, 3, "CpuProcessStep - operand NUMA node has no selected logical CPUs: 3"},
    };
    for (const Case& each : cases) {
        const CpuExecutionContext strict(
            BackendKind::cpu_simd, runtime_with(CpuNumaPolicy::strict, each.nodes, each.cpus));
        expect_error<std::invalid_argument>([&] { runtime_for_numa_node(strict, each.node); },
                                            each.message);
        for (const auto policy : {CpuNumaPolicy::automatic, CpuNumaPolicy::disabled}) {
            const CpuExecutionContext lenient(BackendKind::cpu_simd,
                                              runtime_with(policy, each.nodes, each.cpus));
            EXPECT_EQ(runtime_for_numa_node(lenient, each.node), lenient.runtime());
        }
    }
    const CpuExecutionContext one_node(BackendKind::cpu_simd,
                                       runtime_with(CpuNumaPolicy::strict, {3}));
    EXPECT_EQ(runtime_for_numa_node(one_node, 3), one_node.runtime());
}

/// What the kernel below saw.
CpuExecutionContext* seen_context = nullptr;

void negate(DenseRealVectorView<const float> in, DenseRealVectorView<float> out) {
    seen_context = CpuExecutionContextDetail::current;
    for (std::uint64_t index = 0; index < in.size; ++index) {
        out.data[index] = -in.data[index];
    }
    if (in.size == 0) {
        throw std::domain_error("nothing to negate");
    }
}

using RealVector = DenseHostRealVector<float, float>;

std::unique_ptr<BackendProcessStep> negate_step() {
    return launch_cpu_kernel<BoundDenseRealVectorView<RealVector, input_role(0), true>,
                             BoundDenseRealVectorView<RealVector, output_role(0), false>>(&negate);
}

BackendExecutionBindings unary_bindings(OperandBinding in, OperandBinding out) {
    BackendExecutionBindings bindings;
    bindings.operands.insert(in0, in);
    bindings.operands.insert(out0, out);
    bindings.roles = {in0, out0};
    return bindings;
}

RealVector float_vector(std::uint64_t size) {
    return {VectorDescriptor(size, DataTopologyDescriptor::pageable_host(-1),
                             DataTypeDescriptor::real_float(), DataVectorFormat::dense,
                             DataComplexLayout::none),
            HostBuffer<float>(size)};
}

TEST(LaunchCpuKernelStep, RunsItsKernelInTheSessionsContext) {
    auto in = float_vector(2);
    auto out = float_vector(2);
    in.data()[1] = 4;
    BackendExecutionSession session(runtime_with(CpuNumaPolicy::automatic));
    auto bindings =
        unary_bindings(ConstOperandEntityRef<VectorEntity>(in), std::ref<VectorEntity>(out));
    negate_step()->execute(session, bindings);
    EXPECT_EQ(out.data()[1], -4);
    EXPECT_EQ(seen_context, &session.cpu(BackendKind::cpu_simd));
    EXPECT_EQ(CpuExecutionContextDetail::current, nullptr);

    auto none = float_vector(0);
    auto empty = unary_bindings(std::ref<VectorEntity>(none), std::ref<VectorEntity>(none));
    expect_error<std::domain_error>([&] { negate_step()->execute(session, empty); },
                                    "nothing to negate");
    EXPECT_EQ(CpuExecutionContextDetail::current, nullptr);
}

/// Storage of a user, who need not tell which access it offers.
class UntoldVector final : public VectorEntity, public DenseRealVectorAccess<float> {
  public:
    const VectorDescriptor& descriptor() const override { return described_.descriptor(); }
    float* data() override { return &element_; }
    const float* data() const override { return &element_; }
    std::uint64_t element_count() const override { return 1; }
    std::uint64_t size() const override { return 1; }

  private:
    DescribedVector described_{DataTopologyDescriptor::pageable_host(-1)};
    float element_ = 3;
};

TEST(LaunchCpuKernelStep, TakesStorageThatDoesNotTellItsAccess) {
    UntoldVector vector;
    BackendExecutionSession session;
    auto bindings =
        unary_bindings(ConstOperandEntityRef<VectorEntity>(vector), std::ref<VectorEntity>(vector));
    negate_step()->execute(session, bindings);
    EXPECT_EQ(*vector.data(), -3);
}

TEST(LaunchCpuKernelStep, RefusesOperandsThatItsKernelWasNotMadeFor) {
    auto vector = float_vector(1);
    const auto wide =
        StorageFactory::host_vector(DataTypeDescriptor::real_double(), 1, DataComplexLayout::none);
    const auto scalar = StorageFactory::host_scalar(DataTypeDescriptor::real_float());
    DescribedVector without_memory(DataTopologyDescriptor::pageable_host(-1));
    BackendExecutionSession session;
    const OperandBinding good = std::ref<VectorEntity>(vector);
    const auto run = [&](OperandBinding in, OperandBinding out) {
        auto bindings = unary_bindings(in, out);
        negate_step()->execute(session, bindings);
    };
    EXPECT_THROW(run(std::ref(*scalar), good), std::bad_variant_access);
    EXPECT_THROW(run(good, ConstOperandEntityRef<VectorEntity>(vector)), std::bad_variant_access);
    EXPECT_THROW(run(std::ref(*wide), good), std::bad_cast);
    EXPECT_THROW(run(std::ref<VectorEntity>(without_memory), good), std::bad_cast);
    BackendExecutionBindings unbound;
    expect_error<std::out_of_range>([&] { negate_step()->execute(session, unbound); },
                                    "unordered_map::at");
    auto bindings = unary_bindings(good, good);
    expect_error<std::invalid_argument>(
        [&] { with_cpu_context(session, bindings, BackendKind::cuda, [] {}); },
        "CpuProcessStepDetail::with_cpu_context - CPU backend required");
}

} // namespace
} // namespace Tessaline

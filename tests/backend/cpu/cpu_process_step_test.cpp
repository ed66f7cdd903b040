// SPDX-License-Identifier: Apache-2.0
#include "support/expect_error.h"
#include "support/plain_entities.h"
#include "tessaline/backend/cpu/cpu_operand_views.h"
#include "tessaline/backend/cpu/launch_cpu_kernel_step.h"
#include "tessaline/frontend/elements.h"
#include "tessaline/storage/host_entities.h"

#include <limits>

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

/// A vector of `size` elements on a node, or on none.
DescribedVector vector_on(int node, std::uint64_t size) {
    return DescribedVector(DataTopologyDescriptor::pageable_host(node), size);
}

class PlacementTest : public ::testing::Test {
  protected:
    void bind(OperandRole role, VectorEntity& entity) {
        bindings_.operands.insert(role, std::ref(entity));
        bindings_.roles.push_back(role);
    }
    std::optional<int> preferred() const { return preferred_numa_node_for_operation(bindings_); }

    BackendExecutionBindings bindings_;
};

TEST_F(PlacementTest, OperandsWithoutAKnownNodeDecideNothing) {
    auto nowhere = vector_on(-1, 9);
    DescribedVector device(DataTopologyDescriptor::gpu(0, 3), 9);
    EXPECT_EQ(preferred(), std::nullopt);
    bind(in0, nowhere);
    bind(in1, device);
    EXPECT_EQ(preferred(), std::nullopt);
    EXPECT_EQ(preferred_numa_node_for_role(bindings_, in1), std::nullopt);
    EXPECT_EQ(preferred_numa_node_for_role(bindings_, out0), std::nullopt);
    auto here = vector_on(3, 1);
    bind(out0, here);
    EXPECT_EQ(preferred(), 3);
}

TEST_F(PlacementTest, TheGreatestWeightOfElementsWins) {
    auto a = vector_on(0, 5);
    auto b = vector_on(1, 4);
    auto c = vector_on(1, 2);
    bind(in0, a);
    bind(in1, b);
    EXPECT_EQ(preferred(), 0);
    bind(out0, c);
    EXPECT_EQ(preferred(), 1);
}

TEST_F(PlacementTest, AnOutputThatIsReadCountsTwice) {
    auto a = vector_on(0, 5);
    auto b = vector_on(1, 3);
    bind(in0, a);
    bind(out0, b);
    EXPECT_EQ(preferred(), 0);
    bindings_.outputs.insert(out0, true);
    EXPECT_EQ(preferred(), 1);
}

TEST_F(PlacementTest, TiesGoToTheOutputThenToTheLowestOperand) {
    auto a = vector_on(0, 4);
    auto b = vector_on(7, 4);
    auto c = vector_on(2, 4);
    bind(in0, b);
    bind(in1, a);
    EXPECT_EQ(preferred(), 7);
    bind(out0, c);
    EXPECT_EQ(preferred(), 2);
}

TEST_F(PlacementTest, WeightsSaturate) {
    constexpr auto most = std::numeric_limits<std::uint64_t>::max();
    auto huge = vector_on(0, most);
    auto more = vector_on(0, most);
    auto other = vector_on(1, 5);
    bind(in0, huge);
    bind(in1, more);
    bind(out0, other);
    EXPECT_EQ(preferred(), 0);
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
    return launch_cpu_kernel<
        BoundDenseRealVectorView<RealVector, OperandRole{0}, true>,
        BoundDenseRealVectorView<RealVector, OperandRole{operand_role_limit}, false>>(&negate);
}

BackendExecutionBindings unary_bindings(OperandBinding in, OperandBinding out) {
    BackendExecutionBindings bindings;
    bindings.operands.insert(in0, in);
    bindings.operands.insert(out0, out);
    bindings.roles = {in0, out0};
    return bindings;
}

Vector float_vector(std::uint64_t size) {
    return Vector::host_impl(DataTypeDescriptor::real_float(), size, DataComplexLayout::none);
}

TEST(LaunchCpuKernelStep, RunsItsKernelInTheSessionsContext) {
    auto in = float_vector(2);
    auto out = float_vector(2);
    elements<float>(in)[1] = 4;
    BackendExecutionSession session(runtime_with(CpuNumaPolicy::automatic));
    auto bindings =
        unary_bindings(ConstOperandEntityRef(std::as_const(in).entity()), std::ref(out.entity()));
    negate_step()->execute(session, bindings);
    EXPECT_EQ(elements<float>(out)[1], -4);
    EXPECT_EQ(seen_context, &session.cpu(BackendKind::cpu_simd));
    EXPECT_EQ(CpuExecutionContextDetail::current, nullptr);

    auto none = float_vector(0);
    auto empty = unary_bindings(std::ref(none.entity()), std::ref(none.entity()));
    expect_error<std::domain_error>([&] { negate_step()->execute(session, empty); },
                                    "nothing to negate");
    EXPECT_EQ(CpuExecutionContextDetail::current, nullptr);
}

TEST(LaunchCpuKernelStep, RefusesOperandsThatItsKernelWasNotMadeFor) {
    auto vector = float_vector(1);
    auto wide = Vector::host_impl(DataTypeDescriptor::real_double(), 1, DataComplexLayout::none);
    auto scalar = Scalar::host_impl(DataTypeDescriptor::real_float());
    BackendExecutionSession session;
    const OperandBinding good = std::ref(vector.entity());
    const auto run = [&](OperandBinding in, OperandBinding out) {
        auto bindings = unary_bindings(in, out);
        negate_step()->execute(session, bindings);
    };
    EXPECT_THROW(run(std::ref(scalar.entity()), good), std::bad_variant_access);
    EXPECT_THROW(run(good, ConstOperandEntityRef(std::as_const(vector).entity())),
                 std::bad_variant_access);
    EXPECT_THROW(run(std::ref(wide.entity()), good), std::bad_cast);
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

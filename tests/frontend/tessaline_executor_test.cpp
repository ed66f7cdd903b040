// SPDX-License-Identifier: Apache-2.0
#include "support/expect_error.h"
#include "tessaline/catalogue/builtin_operation_ids.h"
#include "tessaline/catalogue/errors.h"
#include "tessaline/frontend/elements.h"
#include "tessaline/frontend/tessaline_executor.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <thread>

namespace Tessaline {
namespace {

using ::testing::ElementsAre;
using Testing::expect_error;

// What a run refers to has to outlive the statement that names it.
template <typename... Handle>
constexpr bool are_bindable = (requires(OperationBindings bindings, Handle&& handle) {
    bindings.bind(OperandRole{}, std::forward<Handle>(handle));
} && ...);
template <typename... Handle>
constexpr bool are_bindable_while_they_live =
    are_bindable<Handle&...>&& are_bindable<const Handle&...> && !(are_bindable<Handle> || ...) &&
    !(are_bindable<const Handle> || ...);
static_assert(are_bindable_while_they_live<Scalar, Vector, Matrix, LuFactorisation, EigenValues>);
static_assert(std::is_constructible_v<TessalineExecutor, TessalineContext&, BackendExecutor>);
static_assert(!std::is_constructible_v<TessalineExecutor, TessalineContext, BackendExecutor>);

CpuRuntimeOptions unpinned() {
    CpuRuntimeOptions options;
    options.pinning_policy = CpuPinningPolicy::disabled;
    return options;
}

Vector float_vector(std::vector<float> contents) {
    auto vector = Vector::host_impl(DataTypeDescriptor::real_float(), contents.size(),
                                    DataComplexLayout::none);
    std::ranges::copy(contents, elements<float>(vector).begin());
    return vector;
}

class TessalineExecutorTest : public ::testing::Test {
  protected:
    void add(const Vector& a, const Vector& b, Vector& out) const {
        OperationBindings bindings;
        bindings.bind(input_role(0), a).bind(input_role(1), b).bind(output_role(0), out);
        executor_.execute(BuiltinOperations::add, bindings);
    }

    const TessalineContext context_;
    const TessalineExecutor executor_{context_, BackendExecutor::cpu_only(unpinned())};
};

TEST_F(TessalineExecutorTest, AddsVectorsElementByElement) {
    constexpr float infinity = std::numeric_limits<float>::infinity();
    const auto a = float_vector({1.5F, -0.0F, 3e38F, infinity});
    const auto b = float_vector({2.25F, -0.0F, 3e38F, -infinity});
    auto out = float_vector({9, 9, 9, 9});
    add(a, b, out);
    const auto sums = elements<float>(out);
    EXPECT_EQ(sums[0], 3.75F);
    EXPECT_TRUE(sums[1] == 0.0F && std::signbit(sums[1]));
    EXPECT_EQ(sums[2], infinity);
    EXPECT_TRUE(std::isnan(sums[3]));
}

TEST_F(TessalineExecutorTest, AnOperationThatWasLookedUpIsTakenFromItsOwnCatalogueAlone) {
    const auto a = float_vector({1, 2});
    auto out = float_vector({0, 0});
    OperationBindings bindings;
    bindings.bind(input_role(0), a).bind(input_role(1), a).bind(output_role(0), out);
    auto run_bindings = bindings.make_backend_bindings();
    const TessalineContext other;
    expect_error<std::invalid_argument>(
        [&] { executor_.execute(run_bindings, other.operation(BuiltinOperations::add), {}); },
        "TessalineExecutor::execute - operation 'tessaline.add@1' belongs to another catalogue");
    executor_.execute(run_bindings, context_.operation(BuiltinOperations::add), {});
    EXPECT_THAT(elements<float>(out), ElementsAre(2, 4));
}

TEST_F(TessalineExecutorTest, AcceptsNoElementsAndAnOutputThatIsAnInput) {
    const auto none = float_vector({});
    auto empty = float_vector({});
    add(none, none, empty);
    auto total = float_vector({1, 2});
    const auto step = float_vector({10, 20});
    add(total, step, total);
    EXPECT_THAT(elements<float>(total), ElementsAre(11, 22));
}

TEST_F(TessalineExecutorTest, RefusalsLeaveTheOutputAsItWas) {
    const auto three = float_vector({1, 2, 3});
    const auto two = float_vector({1, 2});
    auto out = float_vector({7, 8});
    auto longer = float_vector({7, 8, 9});
    expect_error<std::invalid_argument>([&] { add(three, two, longer); },
                                        "OperationSpec - vector input size mismatch");
    expect_error<std::invalid_argument>([&] { add(three, three, out); },
                                        "OperationSpec - vector output size mismatch");

    const auto execute = [this](const OperationBindings& bindings, const char* id) {
        executor_.execute(OperationId::parse(id), bindings);
    };
    OperationBindings bindings;
    bindings.bind(input_role(0), two).bind(input_role(1), two);
    expect_error<std::out_of_range>([&] { execute(bindings, "tessaline.nothing@1"); },
                                    "OperationRegistry - operation 'tessaline.nothing' is not "
                                    "registered");
    expect_error<std::invalid_argument>(
        [&] { execute(bindings, "tessaline.add@1"); },
        "TessalineExecutor::execute - binding arity does not match operation 'tessaline.add'");
    expect_error<std::invalid_argument>([&] { bindings.bind(input_role(1), three); },
                                        "OperationBindings::bind - operand role is already bound");
    EXPECT_EQ(bindings.size(), 2U);

    auto superfluous = bindings;
    superfluous.bind(output_role(3), out);
    expect_error<std::invalid_argument>([&] { execute(superfluous, "tessaline.add@1"); },
                                        "TessalineExecutor::execute - missing binding Output0 for "
                                        "operation 'tessaline.add'");
    bindings.bind(output_role(0), std::as_const(out));
    expect_error<std::invalid_argument>(
        [&] { execute(bindings, "tessaline.add@1"); },
        "TessalineExecutor::execute - writable binding Output0 is const for operation "
        "'tessaline.add@1'");
    EXPECT_THAT(elements<float>(out), ElementsAre(7, 8));
    EXPECT_THAT(elements<float>(longer), ElementsAre(7, 8, 9));
}

TEST_F(TessalineExecutorTest, OperandsOfOtherFamiliesAndMixedTypesAreRefused) {
    auto scalar = Scalar::host_impl(DataTypeDescriptor::real_float());
    const auto vector = float_vector({1});
    const auto wide =
        Vector::host_impl(DataTypeDescriptor::real_double(), 1, DataComplexLayout::none);
    auto out = float_vector({5});
    const auto with = [&](const auto& a, const auto& b, auto& result) {
        OperationBindings bindings;
        bindings.bind(input_role(0), a).bind(input_role(1), b).bind(output_role(0), result);
        executor_.execute(BuiltinOperations::add, bindings);
    };
    expect_error<std::invalid_argument>([&] { with(scalar, vector, out); },
                                        "OperationSpec - first operand must be a vector");
    expect_error<std::invalid_argument>([&] { with(vector, scalar, out); },
                                        "OperationSpec - second operand must be a vector");
    expect_error<std::invalid_argument>([&] { with(vector, vector, scalar); },
                                        "OperationSpec - output must be a vector");
    expect_error<DispatchError>([&] { with(vector, wide, out); },
                                "BackendDispatcher::dispatch - no backend entry available");
    EXPECT_EQ(elements<float>(out)[0], 5);
}

TEST_F(TessalineExecutorTest, BackendBindingsAreSortedAndStayWithTheCaller) {
    const auto a = float_vector({1});
    const auto b = float_vector({2});
    auto out = float_vector({0});
    OperationBindings bindings;
    bindings.bind(output_role(0), out).bind(input_role(1), b).bind(input_role(0), a);
    auto table = bindings.make_backend_bindings();
    EXPECT_THAT(table.roles, ElementsAre(input_role(0), input_role(1), output_role(0)));
    executor_.execute(table, BuiltinOperations::add);
    EXPECT_EQ(elements<float>(out)[0], 3);
    EXPECT_TRUE(table.adapted.empty());
    ASSERT_TRUE(table.outputs.contains(output_role(0)));
    EXPECT_FALSE(table.outputs.at(output_role(0)));
}

TEST_F(TessalineExecutorTest, ThreadsShareOneExecutor) {
    const auto run = [this](float seed) {
        const auto a = float_vector({seed});
        auto total = float_vector({0});
        for (int step = 0; step < 500; ++step) {
            add(total, a, total);
        }
        EXPECT_EQ(elements<float>(total)[0], 500 * seed);
    };
    std::vector<std::thread> threads;
    for (const float seed : {1.0F, 2.0F, 3.0F}) {
        threads.emplace_back(run, seed);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

} // namespace
} // namespace Tessaline

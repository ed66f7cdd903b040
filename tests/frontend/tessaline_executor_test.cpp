// SPDX-License-Identifier: Apache-2.0
#include "support/expect_error.h"
#include "tessaline/catalogue/builtin_operation_ids.h"
#include "tessaline/catalogue/errors.h"
#include "tessaline/frontend/elements.h"
#include "tessaline/frontend/tessaline_executor.h"

#include <gmock/gmock.h>

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

Vector float_vector(const std::vector<float>& contents) {
    return Vector::host(contents);
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
    const auto wide = Vector::host({1.0, 2.0});
    expect_error<DispatchError>([&] { add(two, wide, out); },
                                "BackendDispatcher::dispatch - no backend entry available");

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

} // namespace
} // namespace Tessaline

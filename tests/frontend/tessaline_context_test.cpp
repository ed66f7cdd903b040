// SPDX-License-Identifier: Apache-2.0
#include "support/expect_error.h"
#include "support/registry_rows.h"
#include "tessaline/catalogue/builtin_operation_ids.h"
#include "tessaline/frontend/tessaline_context_builder.h"

#include <algorithm>

namespace Tessaline {
namespace {

using namespace Testing;

const OperationId op("acme.f", 1);

OperationSpec acme_spec(std::vector<std::uint64_t> ranks = {}) {
    std::optional<OperationNumerics> numerics;
    std::vector<OperationOperandSpec> operands{
        {input_role(0), OperandAccess::read, std::nullopt},
        {output_role(0), OperandAccess::write, std::nullopt}};
    if (!ranks.empty()) {
        numerics.emplace();
        numerics->shapes = {{input_role(0), ranks[0]}, {output_role(0), ranks[1]}};
    }
    return {op, operands, {}, numerics};
}

class ContextBuilderTest : public ::testing::Test {
  protected:
    BackendEntry entry() { return named_entry(log_, "acme"); }
    BackendRegistryKey key(std::vector<BackendOperandKey> inputs = {vector_key()}) {
        return {BackendKind::cpu_simd, op, std::move(inputs), vector_key()};
    }
    void expect_build_failure(const std::string& message) {
        expect_error<std::invalid_argument>([this] { std::move(builder_).build(); },
                                            "TessalineContextBuilder::build - " + message);
    }

    StepLog log_;
    TessalineContextBuilder builder_ = TessalineContextBuilder::custom_only();
};

TEST_F(ContextBuilderTest, EmptyCatalogueIsACatalogue) {
    const TessalineContext context = std::move(builder_).build();
    EXPECT_TRUE(context.operations().empty());
    expect_error<std::out_of_range>([&] { static_cast<void>(context.describe(op)); },
                                    "TessalineContext - operation 'acme.f@1' is not registered");
    expect_error<std::logic_error>(
        [this] { std::move(builder_).build(); },
        "TessalineContextBuilder::build - builder has already been sealed");
    expect_error<std::logic_error>(
        [this] { builder_.register_operation("acme", acme_spec()); },
        "TessalineContextBuilder::register_operation - builder has already been sealed");
    expect_error<std::logic_error>(
        [this] { builder_.extension("acme"); },
        "TessalineContextBuilder::extension - builder has already been sealed");
    expect_error<std::logic_error>(
        [this] { builder_.register_backend("acme", key(), entry(), std::nullopt); },
        "TessalineContextBuilder::register_backend - builder has already been sealed");
}

TEST_F(ContextBuilderTest, FailedValidationCanBeMended) {
    builder_.register_operation("acme", acme_spec());
    expect_build_failure("operation has no implementation: 'acme.f@1'");
    builder_.register_backend("acme", key(), entry(), std::nullopt);
    const TessalineContext context = std::move(builder_).build();
    EXPECT_EQ(context.operation(op).handle(), OperationHandle{1});
    EXPECT_EQ(context.describe(op).implementations.size(), 1U);
    EXPECT_EQ(context.describe(op).implementations[0].provenance.id(), "acme");
}

TEST_F(ContextBuilderTest, ImplementationsMustFitTheirOperation) {
    builder_.register_backend("acme", key(), entry(), std::nullopt);
    expect_build_failure("backend refers to unregistered operation 'acme.f@1'");
    builder_.register_operation("acme", acme_spec({1, 0}));
    expect_build_failure(
        "backend family rank does not match the numerical shape for operation 'acme.f@1'");

    builder_ = TessalineContextBuilder::custom_only();
    builder_.register_operation("acme", acme_spec());
    builder_.register_backend("acme", key({}), entry(), std::nullopt);
    expect_build_failure("backend arity does not match operation 'acme.f@1'");

    builder_ = TessalineContextBuilder::custom_only();
    builder_.register_operation("acme", acme_spec({1, 1}));
    builder_.register_backend("acme", key(), BackendEntry([] { return BackendProcess(); }),
                              std::nullopt);
    expect_build_failure("backend materialised an empty process for 'acme.f@1'");
}

TEST_F(ContextBuilderTest, SourceContractsMustAgreeWithTheOperation) {
    const OperationOperandSpec input{input_role(0), OperandAccess::read, OperandKind::Vector};
    const OperationOperandSpec output{output_role(0), OperandAccess::write, std::nullopt};
    const OperationOperandSpec update{output_role(0), OperandAccess::read_write, std::nullopt};
    const std::pair<std::vector<OperationOperandSpec>, std::string> refused[] = {
        {{input}, "source kernel arity does not match operation 'acme.f@1'"},
        {{input, update}, "source kernel role/access/family does not match operation 'acme.f@1'"},
        {{output, input}, "source kernel role/access/family does not match operation 'acme.f@1'"},
    };
    for (const auto& [contract, message] : refused) {
        builder_ = TessalineContextBuilder::custom_only();
        builder_.register_source_backend("acme", key(), entry(), contract, std::nullopt);
        expect_build_failure("source kernel refers to unregistered operation 'acme.f@1'");
        builder_.register_operation("acme", acme_spec());
        expect_build_failure(message);
    }
    builder_ = TessalineContextBuilder::custom_only();
    builder_.register_operation("acme", acme_spec());
    builder_.register_source_backend("acme", key(), entry(), {input, output}, std::nullopt);
    EXPECT_EQ(std::move(builder_).build().operations().size(), 1U);
}

TEST_F(ContextBuilderTest, ExtensionsKeepToTheirNamespace) {
    for (const char* reserved : {"tessaline", "tessaline.linalg"}) {
        expect_error<std::invalid_argument>(
            [&] { builder_.extension(reserved); },
            "TessalineContextBuilder::extension - the 'tessaline' namespace is reserved");
    }
    expect_error<std::invalid_argument>(
        [&] { builder_.extension("Acme"); },
        "OperationId - names must use lower-case ASCII identifier segments");
    builder_.extension("tessalinex");
    auto acme = builder_.extension("acme");
    acme.register_operation(acme_spec());
    const OperationSpec outside(OperationId("acme2.f", 1),
                                {{output_role(0), OperandAccess::write, std::nullopt}}, {},
                                std::nullopt);
    expect_error<std::invalid_argument>(
        [&] { acme.register_operation(outside); },
        "TessalineContextExtension - operation 'acme2.f@1' is outside extension namespace 'acme'");
}

TEST(TessalineContext, DescriptionsDoNotDependOnTheOrderOfRegistration) {
    StepLog log;
    std::vector<BackendRegistryKey> keys;
    for (const ScalarType storage : {ScalarType::Float64, ScalarType::Float32, ScalarType::Int32}) {
        for (const BackendKind backend : {BackendKind::cuda, BackendKind::cpu_simd}) {
            keys.push_back({backend, op, {vector_key(storage)}, vector_key(storage)});
        }
    }
    const auto describe = [&] {
        auto builder = TessalineContextBuilder::custom_only();
        builder.register_operation("acme", acme_spec({1, 1}));
        for (const BackendRegistryKey& key : keys) {
            builder.register_backend("acme", key, named_entry(log, "row"), std::nullopt);
        }
        return std::move(builder).build().describe(op);
    };
    const OperationDescription description = describe();
    std::ranges::reverse(keys);
    EXPECT_EQ(describe(), description);
    ASSERT_EQ(description.implementations.size(), 6U);
    EXPECT_EQ(description.implementations[0].backend, BackendKind::cpu_simd);
    EXPECT_EQ(description.implementations[0].operands[0].key.storage, ScalarType::Float32);
    EXPECT_EQ(description.implementations[5].operands[1].key.storage, ScalarType::Int32);
}

TEST(TessalineContext, TakesNoRowsThatWereSealedAgainstOtherHandles) {
    StepLog log;
    const auto make = [&](std::vector<const char*> names) {
        OperationRegistry operations;
        BackendRegistry backends;
        for (const char* name : names) {
            operations.register_operation(test_operation(1, 1, name),
                                          RegistrationProvenance::extension("test"));
            backends.register_backend(
                {BackendKind::cpu_simd, OperationId(name, 1), {vector_key()}, vector_key()},
                named_entry(log, name), RegistrationProvenance::extension("test"), std::nullopt);
        }
        operations.seal();
        backends.seal(operations);
        return std::pair(std::move(operations), std::move(backends));
    };
    for (const auto& [names, is_accepted] : std::vector<std::pair<std::vector<const char*>, bool>>{
             {{"test.f", "test.g"}, true},
             {{"test.f", "test.g", "test.h"}, true},
             {{"test.g", "test.f"}, false},
             {{"test.f"}, false}}) {
        OperationRegistry operations = make(names).first;
        BackendRegistry backends = make({"test.f", "test.g"}).second;
        const auto construct = [&] {
            TessalineContext(std::move(operations), std::move(backends));
        };
        if (is_accepted) {
            EXPECT_NO_THROW(construct());
        } else {
            expect_error<std::invalid_argument>(
                construct, "TessalineContext - backend catalogue was sealed against another "
                           "operation catalogue");
        }
    }
}

TEST(TessalineContext, MovesWithItsDispatcher) {
    TessalineContext context;
    const TessalineContext moved = std::move(context);
    const OperationSpec& spec = moved.operation(BuiltinOperations::add);
    std::vector<OperandDescriptor> inputs{vector_operand(input_role(0), 2),
                                          vector_operand(input_role(1), 2)};
    const OperationDescriptor request(spec, inputs, vector_operand(output_role(0), 2),
                                      CrossDevicePolicy::Reject, {});
    EXPECT_EQ(moved.dispatcher().dispatch(request).size(), 1U);
    EXPECT_TRUE(std::ranges::is_sorted(moved.operations(), {}, &OperationId::canonical));
}

} // namespace
} // namespace Tessaline

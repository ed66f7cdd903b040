// SPDX-License-Identifier: Apache-2.0
#include "support/expect_error.h"
#include "support/operands.h"
#include "tessaline/catalogue/operation_registry.h"

namespace Tessaline {
namespace {

using Testing::expect_error;
using Testing::scalar_operand;
using Testing::vector_operand;

constexpr OperandRole in0{0};
constexpr OperandRole in1{1};
constexpr OperandRole out0{operand_role_limit};
constexpr OperandRole out1{operand_role_limit + 1};

OperationSpec binary_spec(const char* name, OperationValidator validator = {}) {
    return {OperationId(name, 1),
            {{in0, OperandAccess::read, OperandKind::Vector},
             {in1, OperandAccess::read, std::nullopt},
             {out0, OperandAccess::write, OperandKind::Vector},
             {out1, OperandAccess::read_write, OperandKind::Vector}},
            std::move(validator),
            std::nullopt};
}

TEST(OperationId, AcceptsDottedLowerCaseNames) {
    for (const char* name : {"tessaline.matmul", "a.b_1", "a.b.c", "a1_.z9"}) {
        EXPECT_EQ(OperationId(name, 7).canonical(), std::string(name) + "@7");
    }
}

TEST(OperationId, RefusesOtherNamesInItsOwnWords) {
    const std::string empty = "OperationId - name must not be empty";
    const std::string undotted = "OperationId - name must be namespaced with at least one '.'";
    const std::string segment = "OperationId - namespace segments must not be empty";
    const std::string identifier =
        "OperationId - names must use lower-case ASCII identifier segments";
    const std::pair<std::string, std::string> refused[] = {
        {"", empty},          {"matmul", undotted},
        {"Matmul", undotted}, {"tessaline.", segment},
        {".matmul", segment}, {"a..b", segment},
        {".", segment},       {"Tessaline.matmul", identifier},
        {"a.1b", identifier}, {"a._b", identifier},
        {"A.b.", identifier}, {"a.b\xc3\xa9", identifier},
        {"a. b", identifier},
    };
    for (const auto& [name, message] : refused) {
        // The name is judged before the version.
        expect_error<std::invalid_argument>([&] { OperationId(name, 0); }, message);
    }
    expect_error<std::invalid_argument>([] { OperationId("a.b", 0); },
                                        "OperationId - major version must be non-zero");
    expect_error<std::invalid_argument>([] { OperationId(static_cast<const char*>(nullptr), 1); },
                                        empty);
}

TEST(OperationId, ParsesItsCanonicalForm) {
    EXPECT_EQ(OperationId::parse("a.b@4294967295"), OperationId("a.b", 4294967295U));
    const std::string form = "OperationId::parse - expected canonical identifier 'name@major'";
    const std::string version = "OperationId::parse - major version must be a non-zero integer";
    const std::pair<const char*, std::string> refused[] = {
        {"a.b", form},
        {"@1", form},
        {"a.b@", form},
        {"", form},
        {"a.b@0", version},
        {"a.b@x", version},
        {"a.b@1x", version},
        {"a.b@-1", version},
        {"a.b@+1", version},
        {"a.b@ 1", version},
        {"a.b@4294967296", version},
        {"a.b@@1", "OperationId - names must use lower-case ASCII identifier segments"},
        {"ab@1", "OperationId - name must be namespaced with at least one '.'"},
    };
    for (const auto& [text, message] : refused) {
        expect_error<std::invalid_argument>([&] { OperationId::parse(text); }, message);
    }
}

TEST(OperationSpec, ChecksItsOperandsInOrder) {
    const OperationOperandSpec read0{in0, OperandAccess::read, std::nullopt};
    const OperationOperandSpec read1{in1, OperandAccess::read, std::nullopt};
    const OperationOperandSpec write_input{in0, OperandAccess::write, std::nullopt};
    const OperationOperandSpec write0{out0, OperandAccess::write, std::nullopt};
    const OperationOperandSpec update1{out1, OperandAccess::read_write, std::nullopt};
    const OperationOperandSpec read_output{out0, OperandAccess::read, std::nullopt};
    const std::string no_output = "OperationSpec - operation must declare at least one output";
    const std::string inputs = "OperationSpec - input roles must be contiguous and ordered";
    const std::string outputs = "OperationSpec - output roles must be contiguous and ordered";
    const std::pair<std::vector<OperationOperandSpec>, std::string> refused[] = {
        {{}, no_output},
        {{read0, read1}, no_output},
        {{read1, write0}, inputs},
        {{read0, read0, write0}, inputs},
        {{write_input, write0}, "OperationSpec - input roles must use read access"},
        {{read0, update1}, outputs},
        {{write0, read0}, outputs},
        {{read0, read_output}, "OperationSpec - output roles must use write or read-write access"},
    };
    for (const auto& [operands, message] : refused) {
        expect_error<std::invalid_argument>(
            [&] { OperationSpec(OperationId("a.b", 1), operands, {}, std::nullopt); }, message);
    }
    const OperationSpec spec(OperationId("a.b", 1), {read0, write0, update1}, {}, std::nullopt);
    EXPECT_EQ(spec.input_count(), 1U);
    EXPECT_EQ(spec.output_count(), 2U);
    EXPECT_EQ(spec.output_roles(), (std::vector{out0, out1}));
    EXPECT_FALSE(spec.preserves_output());
    EXPECT_TRUE(spec.preserves_output(out1));
    expect_error<std::invalid_argument>([&] { static_cast<void>(spec.preserves_output(in0)); },
                                        "OperationSpec::preserves_output - role is not an output");
    expect_error<std::out_of_range>([&] { static_cast<void>(spec.operand(in1)); },
                                    "OperationSpec - operand role is not registered");
}

TEST(OperationSpec, ValidatesArityThenRolesAndFamiliesThenShapes) {
    int calls = 0;
    const auto spec = binary_spec("a.b", [&calls](std::span<const OperandDescriptor> operands) {
        EXPECT_EQ(operands.size(), 4U);
        ++calls;
    });
    const auto validate = [&spec](std::vector<OperandDescriptor> operands) {
        spec.validate(operands);
    };
    validate({vector_operand(in0, 1), scalar_operand(in1), vector_operand(out0, 1),
              vector_operand(out1, 1)});
    EXPECT_EQ(calls, 1);
    expect_error<std::invalid_argument>([&] { validate({vector_operand(in0, 1)}); },
                                        "OperationSpec - operand arity mismatch");
    expect_error<std::invalid_argument>(
        [&] {
            validate({vector_operand(in1, 1), vector_operand(in0, 1), scalar_operand(out0),
                      vector_operand(out1, 1)});
        },
        "OperationSpec - operands do not match the registered role order");
    expect_error<std::invalid_argument>(
        [&] {
            validate({scalar_operand(in0), vector_operand(in0, 1), vector_operand(out0, 1),
                      vector_operand(out1, 1)});
        },
        "OperationSpec - operand family does not match the registered contract");
    EXPECT_EQ(calls, 1);
}

TEST(OperationRegistry, AssignsDenseHandlesInOrderOfRegistration) {
    OperationRegistry registry;
    const auto provenance = RegistrationProvenance::builtin("0.1.1");
    const char* names[] = {"z.last", "a.first", "m.middle"};
    for (const char* name : names) {
        registry.register_operation(binary_spec(name), provenance);
    }
    const OperationId first("z.last", 1);
    expect_error<std::logic_error>(
        [&] { static_cast<void>(registry.operation(first).handle()); },
        "OperationSpec::handle - operation catalogue has not been sealed");
    registry.seal();
    registry.seal();
    for (std::uint32_t index = 0; index < 3; ++index) {
        EXPECT_EQ(registry.operation(OperationId(names[index], 1)).handle(),
                  OperationHandle{index + 1});
    }
    expect_error<std::logic_error>(
        [&] { registry.register_operation(binary_spec("b.new"), provenance); },
        "OperationRegistry::register_operation - catalogue is sealed");
    auto spec = registry.operation(first);
    for (const auto handle : {OperationHandle{9}, OperationHandle::unassigned}) {
        expect_error<std::logic_error>([&] { spec.assign_handle(handle); },
                                       "OperationSpec::assign_handle - invalid handle assignment");
    }
    OperationRegistry open;
    expect_error<std::invalid_argument>(
        [&] { open.register_operation(spec, provenance); },
        "OperationRegistry - operation 'z.last@1' belongs to a sealed catalogue");
    EXPECT_EQ(open.size(), 0U);
}

TEST(OperationRegistry, FailedRegistrationsLeaveNoTrace) {
    OperationRegistry registry;
    registry.register_operation(binary_spec("a.b"), RegistrationProvenance::extension("me"));
    expect_error<std::invalid_argument>(
        [&] {
            registry.register_operation(binary_spec("a.b"),
                                        RegistrationProvenance::extension("you"));
        },
        "OperationRegistry - operation 'a.b@1' is already registered");
    expect_error<std::out_of_range>(
        [&] { static_cast<void>(registry.operation(OperationId("a.c", 1))); },
        "OperationRegistry - operation 'a.c' is not registered");
    EXPECT_EQ(registry.size(), 1U);
    EXPECT_EQ(registry.registration(OperationId("a.b", 1)).provenance().id(), "me");
    registry.seal();
    OperationRegistry empty;
    empty.seal();
    EXPECT_TRUE(empty.sealed());
}

TEST(RegistrationProvenance, NamesItsOwner) {
    EXPECT_EQ(RegistrationProvenance::builtin(std::nullopt).id(), "tessaline");
    EXPECT_EQ(RegistrationProvenance::plugin("p", "2").version(), "2");
    const std::tuple<RegistrationOrigin, const char*, std::optional<std::string>, const char*>
        refused[] = {
            {RegistrationOrigin{3}, "", "", "RegistrationProvenance - origin is not recognised"},
            {RegistrationOrigin::plugin, "", "",
             "RegistrationProvenance - owner ID must not be empty"},
            {RegistrationOrigin::plugin, "p", "",
             "RegistrationProvenance - version must not be empty"},
        };
    for (const auto& [origin, id, version, message] : refused) {
        expect_error<std::invalid_argument>(
            [&, origin = origin, id = id, version = version] {
                RegistrationProvenance(origin, id, version);
            },
            message);
    }
}

} // namespace
} // namespace Tessaline

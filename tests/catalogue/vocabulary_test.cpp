// SPDX-License-Identifier: Apache-2.0
#include "support/expect_error.h"
#include "support/operands.h"
#include "tessaline/catalogue/data_type_descriptor.h"
#include "tessaline/catalogue/errors.h"
#include "tessaline/catalogue/execution_policy.h"

#include <limits>
#include <set>

namespace Tessaline {
namespace {

using Testing::expect_error;

TEST(ScalarTypes, TableIsConsistentInItself) {
    std::set<ScalarType> types;
    std::set<std::string> names;
    for (const ScalarMetadata& row : scalar_types) {
        EXPECT_EQ(&scalar_metadata(row.type), &row);
        EXPECT_TRUE(types.insert(row.type).second);
        EXPECT_TRUE(names.insert(row.name).second);
        const bool complex = row.category == ScalarCategory::complex_floating ||
                             row.category == ScalarCategory::complex_integer;
        EXPECT_EQ(row.size, scalar_metadata(row.component).size * (complex ? 2 : 1)) << row.name;
    }
    EXPECT_EQ(static_cast<int>(ScalarType::Complex32), 12);
    expect_error<std::invalid_argument>([] { scalar_metadata(ScalarType{13}); },
                                        "scalar_metadata - unknown scalar type");
}

TEST(DataTypeDescriptor, PairsTypesWithinOneCategory) {
    EXPECT_EQ(DataTypeDescriptor::from_scalar_types(ScalarType::Float16, ScalarType::Float32),
              DataTypeDescriptor::real_float16());
    EXPECT_EQ(DataTypeDescriptor::from_scalar_types(ScalarType::Int64, ScalarType::Int64),
              DataTypeDescriptor::real_long());
    EXPECT_TRUE(DataTypeDescriptor::from_scalar_types(ScalarType::Complex32, ScalarType::Complex64)
                    .is_complex());
    EXPECT_TRUE(
        DataTypeDescriptor::from_scalar_types(ScalarType::ComplexInt32, ScalarType::ComplexInt64)
            .is_complex());
    const std::pair<ScalarType, ScalarType> refused[] = {
        {ScalarType::Int32, ScalarType::Float32},
        {ScalarType::Complex64, ScalarType::Float32},
        {ScalarType::ComplexInt32, ScalarType::Complex64},
    };
    for (const auto& [storage, compute] : refused) {
        expect_error<std::invalid_argument>(
            [&] { DataTypeDescriptor::from_scalar_types(storage, compute); },
            "DataTypeDescriptor - storage and compute categories differ");
    }
    expect_error<std::invalid_argument>(
        [] { DataTypeDescriptor::from_scalar_types(ScalarType::Float32, ScalarType{99}); },
        "scalar_metadata - unknown scalar type");
}

TEST(DataTopologyDescriptor, FactoriesFillOnePlacementAndLeaveTheOtherEmpty) {
    const auto nowhere = DataTopologyDescriptor::pageable_host(-1);
    EXPECT_EQ(nowhere.host_placement(), HostPlacement{});
    EXPECT_FALSE(nowhere.has_effective_numa_id());
    const auto pinned = DataTopologyDescriptor::pinned_host(0);
    EXPECT_EQ(pinned.host_placement(), (HostPlacement{0, 0, true, 0}));
    EXPECT_TRUE(pinned.is_pinned_host());
    EXPECT_EQ(pinned.gpu_placement(), GpuPlacement{});
    const auto wished = DataTopologyDescriptor::pageable_host(2, 1, false);
    EXPECT_EQ(wished.requested_numa_id(), 2);
    EXPECT_EQ(wished.numa_id(), 1);
    EXPECT_FALSE(wished.placement_guaranteed());
    const auto device = DataTopologyDescriptor::gpu(3);
    EXPECT_EQ(device.gpu_placement(), (GpuPlacement{3, -1, ""}));
    EXPECT_FALSE(device.has_gpu_local_numa_id());
    EXPECT_FALSE(device.has_effective_numa_id());
    EXPECT_TRUE(DataTopologyDescriptor::gpu(3, 0).has_gpu_local_numa_id());
}

TEST(OperandRole, EncodesSideAndIndex) {
    EXPECT_EQ(static_cast<std::uint32_t>(output_role(0)), 2147483648U);
    EXPECT_EQ(operand_role_name(OperandRole{2147483649U}), "Output1");
    EXPECT_EQ(operand_role_name(OperandRole{0}), "Input0");
    EXPECT_EQ(output_index(output_role(2147483647)), 2147483647U);
    EXPECT_EQ(input_index(input_role(2147483647)), 2147483647U);
    constexpr auto huge = std::numeric_limits<std::uint64_t>::max();
    for (const std::uint64_t index : {std::uint64_t{2147483648U}, huge}) {
        expect_error<std::out_of_range>([&] { input_role(index); },
                                        "input_role - input index is out of range");
        expect_error<std::out_of_range>([&] { output_role(index); },
                                        "output_role - output index is out of range");
    }
    expect_error<std::invalid_argument>([] { input_index(output_role(0)); },
                                        "input_index - output is not an input role");
    expect_error<std::invalid_argument>([] { output_index(input_role(0)); },
                                        "output_index - input is not an output role");
}

TEST(OperandDescriptor, AnswersByItsKind) {
    const auto topology = DataTopologyDescriptor::gpu(1);
    const auto type = DataTypeDescriptor::complex_float();
    const OperandDescriptor operands[] = {
        {input_role(0), ScalarDescriptor(topology, type)},
        {input_role(0),
         VectorDescriptor(3, topology, type, DataVectorFormat::sparse, DataComplexLayout::split)},
        {input_role(0), MatrixDescriptor(3, 4, topology, type, DataMatrixFormat::coo,
                                         DataMatrixLayout::row_major, DataComplexLayout::split)},
        {input_role(0), LuDecompDescriptor(3, topology, DataTypeDescriptor::real_long(), type,
                                           DataMatrixFormat::dense, DataMatrixLayout::column_major,
                                           DataComplexLayout::interleaved)},
        {input_role(0),
         EigenValsDescriptor(3, topology, type, DataVectorFormat::sparse,
                             DataMatrixLayout::column_major, DataComplexLayout::interleaved)},
    };
    const OperandFormat formats[] = {{OperandFormat::Tag::none, 0},
                                     {OperandFormat::Tag::vector, 1},
                                     {OperandFormat::Tag::matrix, 4},
                                     {OperandFormat::Tag::matrix, 0},
                                     {OperandFormat::Tag::matrix, 1}};
    for (std::size_t index = 0; index < std::size(operands); ++index) {
        const OperandDescriptor& operand = operands[index];
        EXPECT_EQ(static_cast<std::size_t>(operand.kind()), index);
        EXPECT_EQ(operand.topology(), topology);
        EXPECT_EQ(operand.type(), type);
        EXPECT_EQ(operand.format(), formats[index]);
        EXPECT_EQ(operand.scalar() != nullptr, index == 0);
        EXPECT_EQ(operand.vector() != nullptr, index == 1);
        EXPECT_EQ(operand.matrix() != nullptr, index == 2);
        EXPECT_EQ(operand.lu_decomp() != nullptr, index == 3);
        EXPECT_EQ(operand.eigen_vals() != nullptr, index == 4);
    }
}

TEST(PrintedNames, FallBackOutsideTheirEnumeration) {
    EXPECT_STREQ(error_reason_name(ErrorReason::null_storage), "null_storage");
    EXPECT_STREQ(error_reason_name(ErrorReason::solver_failure), "solver_failure");
    EXPECT_STREQ(error_reason_name(ErrorReason{8}), "backend_failure");
    EXPECT_STREQ(error_reason_name(ErrorReason{-1}), "backend_failure");
    EXPECT_STREQ(cross_device_policy_name(CrossDevicePolicy::StagedHostCopy), "StagedHostCopy");
    EXPECT_STREQ(cross_device_policy_name(CrossDevicePolicy{3}), "unknown");
    EXPECT_STREQ(data_location_name(DataLocation::cuda_device), "cuda_device");
    EXPECT_STREQ(data_matrix_format_name(DataMatrixFormat::coo), "coo");
    EXPECT_STREQ(data_complex_layout_name(DataComplexLayout::interleaved), "interleaved");
    EXPECT_STREQ(operand_kind_name(OperandKind::EigenVals), "eigen");
    EXPECT_STREQ(backend_kind_name(BackendKind::cuda), "CUDA");
}

TEST(Errors, CarryTheirReasonThroughBothBases) {
    try {
        throw BackendLibraryError("cublas", 13, "EXECUTION_FAILED", "matmul", "it failed");
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "it failed");
        const auto& context = dynamic_cast<const ErrorContext&>(error);
        EXPECT_EQ(context.reason(), ErrorReason::library_failure);
        EXPECT_EQ(context.operation(), "matmul");
        EXPECT_EQ(context.location().line(), static_cast<unsigned>(__LINE__ - 6));
        EXPECT_EQ(dynamic_cast<const BackendLibraryError&>(error).status_name(),
                  "EXECUTION_FAILED");
    }
    const SolverError solver("lapack", 2, "pivot 2 is zero", "lu", "no", ErrorReason::singular);
    EXPECT_EQ(solver.detail(), "pivot 2 is zero");
    EXPECT_EQ(solver.reason(), ErrorReason::singular);
    EXPECT_EQ(solver.status(), 2);
}

} // namespace
} // namespace Tessaline

// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/rows/cpu_capabilities.h"

#include "backend/common/floating_operation.h"
#include "support/expect_error.h"
#include "support/key_storage.h"

#include <gtest/gtest.h>

namespace Tessaline {
namespace {

using Testing::expect_error;
using Testing::run_on_ones;

// What the rows accept and say of themselves is in the golden catalogue.

TEST(CpuFloatingCapabilities, RefuseAPolicyWithoutKernels) {
    expect_error<std::invalid_argument>(
        [] { cpu_floating_capabilities(DataTypeDescriptor::real_int()); },
        "numeric policy is not compiled: int32 / int32");
    expect_error<std::invalid_argument>(
        [] {
            cpu_floating_capabilities(
                DataTypeDescriptor::from_scalar_types(ScalarType::Float32, ScalarType::Float64));
        },
        "numeric policy is not compiled: float32 / float64");
}

TEST(CpuFloatingCapabilities, FactorsMustUseTheirComputeType) {
    for_each_numeric_policy([]<typename Policy>(Policy) {
        if constexpr (!Policy::is_integer && Policy::storage_type != Policy::compute_type) {
            for (const FloatingOperation operation :
                 {FloatingOperation::lu_factor, FloatingOperation::solve,
                  FloatingOperation::logdet}) {
                const auto rows = cpu_floating_capabilities(Policy::type());
                const auto& row = rows.at(static_cast<std::size_t>(operation));
                EXPECT_EQ(row.key.op(), operation_id(operation));
                expect_error<std::invalid_argument>(
                    [&] { run_on_ones(row.key, row.entry); },
                    "CPU LU - factors must use their compute dtype");
            }
        }
    });
}

} // namespace
} // namespace Tessaline

// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/rows/cpu_capabilities.h"

#include "backend/common/floating_operation.h"
#include "support/expect_error.h"
#include "support/key_storage.h"

#include <gtest/gtest.h>

namespace Tessaline {
namespace {

using BackendRegistration::BuiltinCapability;
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

TEST(CpuFloatingCapabilities, KernelsTakeStorageOfTheirKeys) {
    for_each_numeric_policy([]<typename Policy>(Policy) {
        if constexpr (!Policy::is_integer) {
            const auto rows = cpu_floating_capabilities(Policy::type());
            ASSERT_EQ(rows.size(), floating_operation_count);
            for (std::size_t index = 0; index < rows.size(); ++index) {
                const BuiltinCapability& row = rows[index];
                SCOPED_TRACE(describe_operand_key(row.key.output()) + " of " + row.key.op().name());
                EXPECT_EQ(row.key.op(), operation_id(static_cast<FloatingOperation>(index)));
                const auto& key =
                    row.key.inputs().empty() ? row.key.output() : row.key.get_input(0);
                if (key.kind == OperandKind::LuDecomp && key.storage != key.compute) {
                    expect_error<std::invalid_argument>(
                        [&] { run_on_ones(row.key, row.entry); },
                        "CPU LU - factors must use their compute dtype");
                } else {
                    EXPECT_NO_THROW(run_on_ones(row.key, row.entry));
                }
            }
        }
    });
}

} // namespace
} // namespace Tessaline

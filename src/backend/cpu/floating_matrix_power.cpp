// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/floating_matrix_power.h"

#include "backend/cpu/floating_loops.h"
#include "backend/cpu/floating_products.h"
#include "backend/cpu/floating_structure.h"
#include "backend/cpu/floating_widened.h"
#include "backend/cpu/power_by_squaring.h"

#include <stdexcept>
#include <vector>

namespace Tessaline {

namespace {

int exponent_of(BackendExecutionBindings& bindings) {
    const auto& scalar = bound_entity<ScalarEntity>(bindings.operands.at(input_role(1)));
    constexpr std::string_view name = "matrix power exponent";
    const int exponent =
        *require_buffer_data<int>(erased_buffers(scalar, name), BufferRole::data, 1, name);
    if (exponent < 0) {
        throw std::invalid_argument("matrix_power - negative exponent");
    }
    return exponent;
}

/// The elements of `from` in the order of `to`, each mapped.
template <typename From, typename To, typename Function>
void map_elements(const FloatingMatrix<From>& from, const FloatingMatrix<To>& to,
                  const Function& function) {
    const auto lines = lines_along(to.layout, from);
    fill_lines(to, work_of(to.rows, to.cols),
               [&](std::uint64_t line, std::uint64_t begin, std::uint64_t end, To* out) {
                   for (std::uint64_t p = begin; p < end; ++p) {
                       *out++ = function(lines(line, p));
                   }
               });
}

/// Sets `result` to a power above 1.
template <typename T>
void store_power(const FloatingMatrix<const T>& A, std::uint32_t exponent,
                 const FloatingMatrix<T>& result) {
    using Compute = ComputeOf<T>;
    using Matrix = FloatingMatrix<Compute>;
    const std::uint64_t n = A.rows;
    const std::uint64_t count = n * n;
    std::vector<Compute> elements(3 * count);
    const auto matrix_at = [&](std::uint64_t index) {
        return Matrix{elements.data() + index * count, n, n, DataMatrixLayout::row_major};
    };
    const Matrix identity = matrix_at(0);
    for (std::uint64_t i = 0; i < n; ++i) {
        identity(i, i) = 1;
    }
    const Matrix base = matrix_at(1);
    widen_rows(A, 0, n, base.data);
    const Matrix power = power_by_squaring(
        exponent, identity, base, matrix_at(2),
        [](const Matrix& B, const Matrix& C, const Matrix& product) {
            multiply_matrices<Compute>({B.data, B.rows, B.cols, B.layout},
                                       {C.data, C.rows, C.cols, C.layout}, product);
        });
    if (result.is_row_major()) {
        store_results(power.data, result.data, count);
    } else {
        map_elements(power, result, [](Compute element) { return result_as<T>(element); });
    }
}

} // namespace

template <typename T>
void FloatingMatrixPower<T>::matrix_power(BackendExecutionBindings& bindings) {
    const std::uint64_t n = input_matrix<T>(bindings, input_role(0)).rows;
    const auto A = input_matrix<T>(bindings, input_role(0), {n, n});
    const int exponent = exponent_of(bindings);
    const auto result = output_matrix<T>(bindings, output_role(0), {n, n});
    if (exponent == 0) {
        FloatingStructure<T>::eye(bindings);
    } else if (exponent == 1) {
        map_elements(A, result, [](T element) { return element; });
    } else {
        store_power(A, static_cast<std::uint32_t>(exponent), result);
    }
}

#define TESSALINE_INSTANTIATE(category, Stored, Compute)                                           \
    TESSALINE_IF_FLOATING_##category(template struct FloatingMatrixPower<Stored>;)
TESSALINE_COMPILED_POLICIES(TESSALINE_INSTANTIATE)
#undef TESSALINE_INSTANTIATE

} // namespace Tessaline

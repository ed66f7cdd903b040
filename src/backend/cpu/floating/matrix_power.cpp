// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/floating/matrix_power.h"

#include "backend/cpu/floating/loops.h"
#include "backend/cpu/floating/products.h"
#include "backend/cpu/floating/structure.h"
#include "backend/cpu/floating/widened.h"
#include "backend/cpu/numbers/power_by_squaring.h"

#include <iterator>
#include <stdexcept>

namespace Tessaline {

int matrix_power_exponent(BackendExecutionBindings& bindings) {
    const auto& scalar = bound_entity<ScalarEntity>(bindings.operands.at(input_role(1)));
    constexpr std::string_view name = "matrix power exponent";
    const int exponent =
        *require_buffer_data<int>(erased_buffers(scalar, name), BufferRole::data, 1, name);
    if (exponent < 0) {
        throw std::invalid_argument("matrix_power - negative exponent");
    }
    return exponent;
}

namespace {

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

/// Sets `result` to a power above 1. Of the matrices that the squaring needs, the one that ends as
/// the power is the result itself where that can hold it.
template <typename T>
void store_power(const FloatingMatrix<const T>& A, std::uint32_t exponent,
                 const FloatingMatrix<T>& result, const UnfusedTable& kernels) {
    using Compute = ComputeOf<T>;
    using Matrix = FloatingMatrix<Compute>;
    const std::uint64_t n = A.rows;
    const std::uint64_t count = n * n;
    const std::size_t last =
        power_by_squaring<std::size_t>(exponent, 0, 1, 2, [](auto, auto, auto) {});
    const Scratch<Compute> elements(3 * count);
    Matrix matrices[3];
    for (std::size_t i = 0; i < std::size(matrices); ++i) {
        matrices[i] = {elements.data() + i * count, n, n, DataMatrixLayout::row_major};
    }
    if constexpr (std::is_same_v<T, Compute>) {
        if (result.is_row_major()) {
            matrices[last] = result;
        }
    }
    std::fill_n(matrices[0].data, count, Compute{});
    for (std::uint64_t i = 0; i < n; ++i) {
        matrices[0](i, i) = 1;
    }
    widen_rows(A, 0, n, matrices[1].data, kernels);
    power_by_squaring(exponent, matrices[0], matrices[1], matrices[2],
                      [&](const Matrix& B, const Matrix& C, const Matrix& product) {
                          multiply_matrices<Compute>({B.data, B.rows, B.cols, B.layout},
                                                     {C.data, C.rows, C.cols, C.layout}, product,
                                                     kernels);
                      });
    if (!result.is_row_major()) {
        map_elements(matrices[last], result, [](Compute element) { return result_as<T>(element); });
    } else if (!std::is_same_v<T, Compute>) {
        store_results(matrices[last].data, result.data, count, kernels);
    }
}

} // namespace

template <typename T>
void FloatingMatrixPower<T>::matrix_power(const MatrixPower<T>& operands,
                                          const UnfusedTable& kernels) {
    const auto& [A, exponent, result] = operands;
    if (exponent == 0) {
        FloatingStructure<T>::eye(MatrixOutput<T>(result));
    } else if (exponent == 1) {
        map_elements(A, result, [](T element) { return element; });
    } else {
        store_power(A, static_cast<std::uint32_t>(exponent), result, kernels);
    }
}

#define TESSALINE_INSTANTIATE(category, Stored, Compute)                                           \
    TESSALINE_IF_FLOATING_##category(template struct FloatingMatrixPower<Stored>;)
TESSALINE_COMPILED_POLICIES(TESSALINE_INSTANTIATE)
#undef TESSALINE_INSTANTIATE

} // namespace Tessaline

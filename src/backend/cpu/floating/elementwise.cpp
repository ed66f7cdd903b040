// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/floating/elementwise.h"

#include "backend/cpu/floating/conversions.h"
#include "backend/cpu/floating/loops.h"
#include "backend/cpu/numbers/complex_division.h"
#include "backend/cpu/numbers/element_bits.h"
#include "backend/cpu/simd/tables/transposed_copy.h"

#include <algorithm>

namespace Tessaline {

namespace {

/// Calls `body(from, to, count)` with pieces of the first input and the output in compute type,
/// which may be one memory. What it stores has one NaN at the most where T is the compute type.
template <typename T, typename Body>
void map_pieces(const VectorMap<T>& operands, const UnfusedTable& kernels, const Body& body) {
    const std::span<const T> in = operands.in;
    const std::span<T> out = operands.out;
    for_chunks(in.size(), in.size(), [&](std::uint64_t begin, std::uint64_t end) {
        if constexpr (std::is_same_v<T, ComputeOf<T>>) {
            body(in.data() + begin, out.data() + begin, end - begin);
        } else {
            for_conversion_pieces(begin, end, [&](std::uint64_t first, std::uint64_t count) {
                ComputeOf<T> piece[conversion_piece];
                widen_elements(in.data() + first, piece, count, kernels);
                body(piece, piece, count);
                store_results(piece, out.data() + first, count, kernels);
            });
        }
    });
}

/// out[i] = function(in[i]) over the first input and the output.
template <typename T, typename Function>
void map(const VectorMap<T>& operands, const UnfusedTable& kernels, const Function& function) {
    using C = ComputeOf<T>;
    map_pieces<T>(operands, kernels, [&](const C* from, C* to, std::uint64_t count) {
        for (std::uint64_t i = 0; i < count; ++i) {
            if constexpr (std::is_same_v<T, C>) {
                to[i] = result_as<T>(function(from[i]));
            } else {
                to[i] = function(from[i]);
            }
        }
    });
}

/// out[i] = function(a[i], b[i]) over both inputs and the output.
template <typename T, typename Function>
void combine(const VectorCombination<T>& operands, const UnfusedTable& kernels,
             const Function& function) {
    const std::span<const T> a = operands.in.a;
    const std::span<const T> b = operands.in.b;
    const std::span<T> out = operands.out;
    for_chunks(a.size(), a.size(), [&](std::uint64_t begin, std::uint64_t end) {
        if constexpr (std::is_same_v<T, ComputeOf<T>>) {
            for (std::uint64_t i = begin; i < end; ++i) {
                out[i] = result_as<T>(function(a[i], b[i]));
            }
        } else {
            for_conversion_pieces(begin, end, [&](std::uint64_t first, std::uint64_t count) {
                ComputeOf<T> of_a[conversion_piece];
                ComputeOf<T> of_b[conversion_piece];
                widen_elements(a.data() + first, of_a, count, kernels);
                widen_elements(b.data() + first, of_b, count, kernels);
                std::transform(of_a, of_a + count, of_b, of_a, function);
                store_results(of_a, out.data() + first, count, kernels);
            });
        }
    });
}

/// Each element is the Kronecker product of the factor and itself, as products commute bit for bit.
template <typename T>
void scale_by_kernel(const VectorByScalar<T>& operands,
                     const SimdKernels::UnfusedKernels<T>& kernels) {
    const T factor = operands.scalar;
    const std::span<const T> in = operands.map.in;
    const std::span<T> out = operands.map.out;
    for_chunks(in.size(), in.size(), [&](std::uint64_t begin, std::uint64_t end) {
        const std::uint64_t count = end - begin;
        kernels.kron({&factor, 1}, {in.data() + begin, count}, out.data() + begin, {1, 1, count}, 0,
                     1);
    });
}

/// A vector in which a quotient does not stand, and what may come after it.
constexpr std::uint64_t elements_divided_with_care = 16;

/// Quotients by the kernel as far as these stand, the others one by one.
template <typename Real>
void divide_by_kernel(const SimdKernels::QuotientKernels<Real>& kernels,
                      const ComplexDivisor<Real>& divisor, const std::complex<Real>* from,
                      std::complex<Real>* to, std::uint64_t count) {
    const SimdKernels::ScaledDivisor<Real> scaled{divisor.larger_part(), divisor.scaled().real(),
                                                  divisor.scaled().imag(),
                                                  divisor.scaled_squared()};
    std::uint64_t done = 0;
    while (done < count) {
        done += kernels.divide_complex(reinterpret_cast<const Real*>(from + done), scaled,
                                       reinterpret_cast<Real*>(to + done), count - done);
        const std::uint64_t end = std::min(count, done + elements_divided_with_care);
        for (; done < end; ++done) {
            to[done] = result_as<std::complex<Real>>(divisor.quotient(from[done]));
        }
    }
}

} // namespace

template <typename T>
void FloatingElementwise<T>::sqrt(const VectorMap<T>& operands, const UnfusedTable& kernels) {
    using C = ComputeOf<T>;
    if constexpr (is_complex_element<T>) {
        map<T>(operands, kernels, [](C x) { return std::sqrt(x); });
    } else {
        const auto roots = SimdKernels::quotient_kernels<C>(kernels).roots;
        map_pieces<T>(operands, kernels, [roots](const C* from, C* to, std::uint64_t count) {
            roots(from, to, count);
        });
    }
}

template <typename T>
void FloatingElementwise<T>::conjugate(const VectorInPlace<T>& operands) {
    const std::span<T> out = operands.elements;
    auto* const bits = as_bits(out.data());
    for_chunks(out.size(), out.size(), [&](std::uint64_t begin, std::uint64_t end) {
        copy_flipped(bits + begin, bits + begin, end - begin, imaginary_sign<T>());
    });
}

template <typename T>
void FloatingElementwise<T>::multiply(const VectorCombination<T>& operands,
                                      const UnfusedTable& kernels) {
    combine<T>(operands, kernels, [](ComputeOf<T> a, ComputeOf<T> b) { return a * b; });
}

template <typename T>
void FloatingElementwise<T>::add(const VectorCombination<T>& operands,
                                 const UnfusedTable& kernels) {
    combine<T>(operands, kernels, [](ComputeOf<T> a, ComputeOf<T> b) { return a + b; });
}

template <typename T>
void FloatingElementwise<T>::subtract(const VectorCombination<T>& operands,
                                      const UnfusedTable& kernels) {
    combine<T>(operands, kernels, [](ComputeOf<T> a, ComputeOf<T> b) { return a - b; });
}

template <typename T>
void FloatingElementwise<T>::scale(const VectorByScalar<T>& operands, const UnfusedTable& kernels) {
    if constexpr (is_complex_element<T> && std::is_same_v<T, ComputeOf<T>>) {
        scale_by_kernel(operands, SimdKernels::unfused_kernels<T>(kernels));
    } else {
        map<T>(operands.map, kernels,
               [factor = operands.scalar](ComputeOf<T> x) { return x * factor; });
    }
}

template <typename T>
void FloatingElementwise<T>::divide(const VectorByScalar<T>& operands,
                                    const UnfusedTable& kernels) {
    using C = ComputeOf<T>;
    const C scalar = operands.scalar;
    const auto& quotients = SimdKernels::quotient_kernels<Component<C>>(kernels);
    if constexpr (is_complex_element<T>) {
        const ComplexDivisor divisor(scalar);
        if (divisor.is_ordinary()) {
            map_pieces<T>(operands.map, kernels, [&](const C* from, C* to, std::uint64_t count) {
                divide_by_kernel(quotients, divisor, from, to, count);
            });
        } else {
            map<T>(operands.map, kernels, [&divisor](C x) { return divisor.quotient(x); });
        }
    } else {
        map_pieces<T>(operands.map, kernels, [&](const C* from, C* to, std::uint64_t count) {
            quotients.divide(from, scalar, to, count);
        });
    }
}

#define TESSALINE_INSTANTIATE(category, Stored, Compute)                                           \
    TESSALINE_IF_FLOATING_##category(template struct FloatingElementwise<Stored>;)
TESSALINE_COMPILED_POLICIES(TESSALINE_INSTANTIATE)
#undef TESSALINE_INSTANTIATE

} // namespace Tessaline

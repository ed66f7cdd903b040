// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/engine/operations.h"
#include "backend/cpu/numbers/element_bits.h"
#include "backend/cpu/numbers/floating_policies.h"
#include "backend/cpu/simd/tables/transposed_copy.h"
#include "backend/cpu/simd/tables/unfused_kernels.h"
#include "backend/cpu/steps/cpu_chunks.h"

#include <algorithm>

namespace Tessaline::SimdOperations {

namespace {

template <typename T>
DenseRealVectorView<T> part(DenseRealVectorView<T> whole, Index begin, Index end) {
    return {whole.data + begin, end - begin};
}
template <typename T>
DenseComplexSplitVectorView<T> part(DenseComplexSplitVectorView<T> whole, Index begin, Index end) {
    return {whole.real + begin, whole.imag + begin, end - begin};
}

template <typename T>
DenseComplexIntlvVectorView<T> part(DenseComplexIntlvVectorView<T> whole, Index begin, Index end) {
    return {whole.data + begin, end - begin};
}

template <typename T>
DenseRealVectorView<T> real_plane(DenseComplexSplitVectorView<T> vector) {
    return {vector.real, vector.size};
}
template <typename T>
DenseRealVectorView<T> imag_plane(DenseComplexSplitVectorView<T> vector) {
    return {vector.imag, vector.size};
}

/// Real and imaginary parts in turn.
RealInput parts_of(InterleavedInput vector) {
    return {reinterpret_cast<const float*>(vector.data), 2 * vector.size};
}
RealOutput parts_of(InterleavedOutput vector) {
    return {reinterpret_cast<float*>(vector.data), 2 * vector.size};
}

template <typename Body>
void for_elements(Index count, const Body& body) {
    for_chunks(count, count, body);
}

/// Calls a kernel of two inputs on parts of its operands.
template <typename Input, typename Output>
void apply(void (*kernel)(Input, Input, Output), Input a, Input b, Output out) {
    for_elements(out.size, [=](Index begin, Index end) {
        kernel(part(a, begin, end), part(b, begin, end), part(out, begin, end));
    });
}

using RealKernel = void (*)(RealInput, RealInput, RealOutput);

// A real kernel of two inputs on the real numbers of its operands.

void apply_to_parts(RealKernel kernel, RealInput a, RealInput b, RealOutput out) {
    kernel(a, b, out);
}
void apply_to_parts(RealKernel kernel, SplitInput a, SplitInput b, SplitOutput out) {
    kernel(real_plane(a), real_plane(b), real_plane(out));
    kernel(imag_plane(a), imag_plane(b), imag_plane(out));
}
void apply_to_parts(RealKernel kernel, InterleavedInput a, InterleavedInput b,
                    InterleavedOutput out) {
    kernel(parts_of(a), parts_of(b), parts_of(out));
}

template <typename Form>
void combine(RealKernel kernel, VectorInput<Form> a, VectorInput<Form> b, VectorOutput<Form> out) {
    for_elements(out.size, [=](Index begin, Index end) {
        apply_to_parts(kernel, part(a, begin, end), part(b, begin, end), part(out, begin, end));
    });
}

void add_halves(Float16Input a, Float16Input b, Float16Output out) {
    for_elements(out.size, [=](Index begin, Index end) {
        unfused_table().binary16.add(&a.data[begin].bits, &b.data[begin].bits,
                                     &out.data[begin].bits, end - begin);
    });
}

void negate_imaginary(const Table& kernels, SplitOutput a) {
    const RealOutput imag = imag_plane(a);
    kernels.negate({imag.data, imag.size}, imag);
}
void negate_imaginary(const Table&, InterleavedOutput a) {
    auto* const bits = as_bits(a.data);
    copy_flipped(bits, bits, a.size, imaginary_sign<Element>());
}

} // namespace

template <typename Form>
void sqrt(const Table&, VectorInput<Form> a, VectorOutput<Form> out) {
    for_elements(out.size, [=](Index begin, Index end) {
        for (Index i = begin; i < end; ++i) {
            set_element(out, i, result_as<Element>(std::sqrt(element_at(a, i))));
        }
    });
}

template <typename Form>
void conj(const Table& kernels, VectorOutput<Form> a) {
    for_elements(a.size,
                 [&](Index begin, Index end) { negate_imaginary(kernels, part(a, begin, end)); });
}

template <typename Form>
void add(const Table& kernels, VectorInput<Form> a, VectorInput<Form> b, VectorOutput<Form> out) {
    if constexpr (std::is_same_v<Form, HalfForm>) {
        add_halves(a, b, out);
    } else {
        combine<Form>(kernels.add, a, b, out);
    }
}

template <typename Form>
void sub(const Table& kernels, VectorInput<Form> a, VectorInput<Form> b, VectorOutput<Form> out) {
    combine<Form>(kernels.subtract, a, b, out);
}

template <typename Form>
void mul(const Table& kernels, VectorInput<Form> a, VectorInput<Form> b, VectorOutput<Form> out) {
    apply(kernels_of<Form>(kernels).multiply, a, b, out);
}

template <typename Form>
void scale(const Table& kernels, VectorInput<Form> a, ScalarInput<Form> factor,
           VectorOutput<Form> out) {
    // The factor is read once, lest a chunk overwrite one that is an element of the result.
    const auto run = [&](auto value) {
        for_elements(out.size, [&](Index begin, Index end) {
            kernels_of<Form>(kernels).scale(part(a, begin, end), value, part(out, begin, end));
        });
    };
    if constexpr (std::is_same_v<Form, RealForm>) {
        run(*factor.data);
    } else {
        const float real = *factor.real;
        const float imag = *factor.imag;
        run(ComplexScalarView<const float>{&real, &imag});
    }
}

template <typename Form>
void divide(const Table& kernels, VectorInput<Form> a, ScalarInput<Form> divisor,
            VectorOutput<Form> out) {
    const float real = *divisor.real;
    const float imag = *divisor.imag;
    const float squared = real * real + imag * imag;
    const float inverse_real = real / squared;
    const float inverse_imag = -imag / squared;
    scale<Form>(kernels, a, {&inverse_real, &inverse_imag}, out);
}

TESSALINE_IN_EITHER_FORM(sqrt)
TESSALINE_IN_EITHER_FORM(conj)
TESSALINE_IN_EITHER_FORM(add)
TESSALINE_IN_EITHER_FORM(sub)
TESSALINE_IN_EITHER_FORM(mul)
TESSALINE_IN_EITHER_FORM(scale)
TESSALINE_IN_EITHER_FORM(divide)
TESSALINE_IN_FORM(RealForm, add)
TESSALINE_IN_FORM(RealForm, sub)
TESSALINE_IN_FORM(RealForm, mul)
TESSALINE_IN_FORM(RealForm, scale)
TESSALINE_IN_FORM(HalfForm, add)

} // namespace Tessaline::SimdOperations

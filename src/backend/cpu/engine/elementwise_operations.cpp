// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/engine/operations.h"
#include "backend/cpu/numbers/element_bits.h"
#include "backend/cpu/numbers/floating_policies.h"
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

/// Calls a real kernel of two inputs on both parts of complex ones.
void apply_to_parts(void (*kernel)(RealInput, RealInput, RealOutput), SplitInput a, SplitInput b,
                    SplitOutput out) {
    for_elements(out.size, [=](Index begin, Index end) {
        kernel(part(real_plane(a), begin, end), part(real_plane(b), begin, end),
               part(real_plane(out), begin, end));
        kernel(part(imag_plane(a), begin, end), part(imag_plane(b), begin, end),
               part(imag_plane(out), begin, end));
    });
}
void apply_to_parts(void (*kernel)(RealInput, RealInput, RealOutput), InterleavedInput a,
                    InterleavedInput b, InterleavedOutput out) {
    for_elements(out.size, [=](Index begin, Index end) {
        kernel(parts_of(part(a, begin, end)), parts_of(part(b, begin, end)),
               parts_of(part(out, begin, end)));
    });
}

template <typename Form>
void scale_by_kernel(const ComplexKernels<Form>& kernels, typename Form::VectorInput a,
                     ComplexScalarView<const float> factor, typename Form::VectorOutput out) {
    // Read once, lest a chunk overwrite a factor that is an element of the result.
    const float real = *factor.real;
    const float imag = *factor.imag;
    for_elements(out.size, [&](Index begin, Index end) {
        kernels.scale(part(a, begin, end), {&real, &imag}, part(out, begin, end));
    });
}

template <typename Form>
void divide_by_kernel(const ComplexKernels<Form>& kernels, typename Form::VectorInput a,
                      ComplexScalarView<const float> divisor, typename Form::VectorOutput out) {
    const float real = *divisor.real;
    const float imag = *divisor.imag;
    const float squared = real * real + imag * imag;
    const float inverse_real = real / squared;
    const float inverse_imag = -imag / squared;
    scale_by_kernel(kernels, a, {&inverse_real, &inverse_imag}, out);
}

} // namespace

void sqrt(const Table&, SplitInput a, SplitOutput out) {
    for_elements(out.size, [=](Index begin, Index end) {
        for (Index i = begin; i < end; ++i) {
            const auto root = result_as<Element>(std::sqrt(Element(a.real[i], a.imag[i])));
            out.real[i] = root.real();
            out.imag[i] = root.imag();
        }
    });
}

void sqrt(const Table&, InterleavedInput a, InterleavedOutput out) {
    for_elements(out.size, [=](Index begin, Index end) {
        for (Index i = begin; i < end; ++i) {
            out.data[i] = result_as<Element>(std::sqrt(a.data[i]));
        }
    });
}

void conj(const Table& kernels, SplitOutput a) {
    for_elements(a.size, [&](Index begin, Index end) {
        const RealOutput imag = part(imag_plane(a), begin, end);
        kernels.negate({imag.data, imag.size}, imag);
    });
}

void conj(const Table&, InterleavedOutput a) {
    auto* const bits = as_bits(a.data);
    for_elements(a.size, [=](Index begin, Index end) {
        copy_flipped(bits + begin, bits + begin, end - begin, imaginary_sign<Element>());
    });
}

void add(const Table& kernels, RealInput a, RealInput b, RealOutput out) {
    apply(kernels.add, a, b, out);
}

void add(const Table&, Float16Input a, Float16Input b, Float16Output out) {
    for_elements(out.size, [=](Index begin, Index end) {
        if (const ConversionKernels* conversions = unfused_table()) {
            conversions->add_binary16(&a.data[begin].bits, &b.data[begin].bits,
                                      &out.data[begin].bits, end - begin);
        } else {
            std::transform(
                a.data + begin, a.data + end, b.data + begin, out.data + begin,
                [](Float16 x, Float16 y) { return result_as<Float16>(widened(x) + widened(y)); });
        }
    });
}

void add(const Table& kernels, SplitInput a, SplitInput b, SplitOutput out) {
    apply_to_parts(kernels.add, a, b, out);
}

void add(const Table& kernels, InterleavedInput a, InterleavedInput b, InterleavedOutput out) {
    apply_to_parts(kernels.add, a, b, out);
}

void sub(const Table& kernels, RealInput a, RealInput b, RealOutput out) {
    apply(kernels.subtract, a, b, out);
}

void sub(const Table& kernels, SplitInput a, SplitInput b, SplitOutput out) {
    apply_to_parts(kernels.subtract, a, b, out);
}

void sub(const Table& kernels, InterleavedInput a, InterleavedInput b, InterleavedOutput out) {
    apply_to_parts(kernels.subtract, a, b, out);
}

void mul(const Table& kernels, RealInput a, RealInput b, RealOutput out) {
    apply(kernels.multiply, a, b, out);
}

void mul(const Table& kernels, SplitInput a, SplitInput b, SplitOutput out) {
    apply(kernels.split.multiply, a, b, out);
}

void mul(const Table& kernels, InterleavedInput a, InterleavedInput b, InterleavedOutput out) {
    apply(kernels.interleaved.multiply, a, b, out);
}

void scale(const Table& kernels, RealInput a, RealScalarView<const float> factor, RealOutput out) {
    const float value = *factor.data;
    for_elements(out.size, [&](Index begin, Index end) {
        kernels.scale(part(a, begin, end), value, part(out, begin, end));
    });
}

void scale(const Table& kernels, SplitInput a, ComplexScalarView<const float> factor,
           SplitOutput out) {
    scale_by_kernel(kernels.split, a, factor, out);
}

void scale(const Table& kernels, InterleavedInput a, ComplexScalarView<const float> factor,
           InterleavedOutput out) {
    scale_by_kernel(kernels.interleaved, a, factor, out);
}

void divide(const Table& kernels, SplitInput a, ComplexScalarView<const float> divisor,
            SplitOutput out) {
    divide_by_kernel(kernels.split, a, divisor, out);
}

void divide(const Table& kernels, InterleavedInput a, ComplexScalarView<const float> divisor,
            InterleavedOutput out) {
    divide_by_kernel(kernels.interleaved, a, divisor, out);
}

} // namespace Tessaline::SimdOperations

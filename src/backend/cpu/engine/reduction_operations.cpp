// SPDX-License-Identifier: Apache-2.0
#include "backend/common/tolerances.h"
#include "backend/cpu/engine/operations.h"
#include "backend/cpu/engine/planes.h"
#include "backend/cpu/numbers/floating_policies.h"
#include "backend/cpu/runtime/stop_point.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace Tessaline::SimdOperations {

namespace {

constexpr Tolerance<float> tolerance = floating_tolerance<float>;
constexpr float squared_tolerance = 1e-12F; // of the magnitude of a number that stands for zero

/// The sum of `count` elements, `stride` apart: eight running sums over whole groups of eight, then
/// over the two halves and neighbours, then the elements that are left, in order.
float strided_sum(const float* elements, Index count, Index stride) {
    constexpr Index lanes = 8;
    float sums[lanes] = {};
    Index i = 0;
    for (; i + lanes <= count; i += lanes) {
        for (Index lane = 0; lane < lanes; ++lane) {
            sums[lane] += elements[(i + lane) * stride];
        }
    }
    float sum =
        ((sums[0] + sums[4]) + (sums[1] + sums[5])) + ((sums[2] + sums[6]) + (sums[3] + sums[7]));
    for (; i < count; ++i) {
        sum += elements[i * stride];
    }
    return result_as<float>(sum);
}

bool is_finite(float value) {
    return std::fabs(value) <= std::numeric_limits<float>::max();
}

/// Without branches, so that a loop over it is compiled to vectors.
bool nearly_equal(float a, float b) {
    const float difference = std::fabs(a - b);
    const float larger = std::max(std::fabs(a), std::fabs(b));
    const bool close =
        (difference <= tolerance.absolute) | (difference <= tolerance.relative * larger);
    return (a == b) | (is_finite(a) & is_finite(b) & close);
}

bool nearly_equal(const float* a, const float* b, Index size) {
    constexpr Index block = 1024; // elements between looks at the outcome
    for (Index begin = 0; begin < size; begin += block) {
        const Index end = begin + std::min(block, size - begin);
        bool equal = true;
        for (Index i = begin; i < end; ++i) {
            equal &= nearly_equal(a[i], b[i]);
        }
        if (!equal) {
            return false;
        }
    }
    return true;
}

bool nearly_equal(SplitInput a, SplitInput b) {
    return nearly_equal(a.real, b.real, a.size) && nearly_equal(a.imag, b.imag, a.size);
}
bool nearly_equal(InterleavedInput a, InterleavedInput b) {
    return nearly_equal(reinterpret_cast<const float*>(a.data),
                        reinterpret_cast<const float*>(b.data), 2 * a.size);
}

/// The parts of elements that lie `step` floats apart.
struct ElementParts {
    const float* real;
    const float* imag;
    Index step;
};
ElementParts parts_of(SplitMatrixInput A) {
    return {A.real, A.imag, 1};
}
ElementParts parts_of(InterleavedMatrixInput A) {
    const auto* const parts = reinterpret_cast<const float*>(A.data);
    return {parts, parts + 1, 2};
}

/// Whether a row's inner product with itself is 1. An overflow is none.
bool is_unit(float real, float imag) {
    const float difference = std::fabs(real - 1);
    const float size = std::fabs(imag);
    const bool absolutely = difference <= tolerance.absolute && size <= tolerance.absolute;
    const bool relatively =
        difference <= tolerance.relative * std::max(std::fabs(real), 1.0F) && size == 0;
    return is_finite(real) && (absolutely || relatively);
}

bool is_negligible(float real, float imag) {
    return real * real + imag * imag <= squared_tolerance;
}

/// Whether row `i` is orthonormal to itself and the rows after it; `products` holds a vector.
bool is_orthonormal(const Table& kernels, SplitMatrixInput A, Index i, SplitOutput products) {
    const Index start = i * A.cols;
    kernels.conjugate_row_products(A, {A.real + start, A.imag + start, A.cols}, products, i,
                                   A.rows);
    bool orthogonal = true;
    for (Index j = i + 1; j < A.rows; ++j) {
        orthogonal &= is_negligible(products.real[j], products.imag[j]);
    }
    return orthogonal && is_unit(products.real[i], products.imag[i]);
}

bool rows_are_orthonormal(const Table& kernels, SplitMatrixInput A) {
    const Scratch<float> products(2 * A.rows);
    for (Index i = 0; i < A.rows; ++i) {
        stop_point();
        if (!is_orthonormal(kernels, A, i, {products.data(), products.data() + A.rows, A.rows})) {
            return false;
        }
    }
    return true;
}

} // namespace

template <typename Form>
void sum(const Table& kernels, VectorInput<Form> a, ScalarOutput<Form> out) {
    if constexpr (std::is_same_v<Form, RealForm>) {
        *out.data = kernels.sum(a);
    } else {
        kernels_of<Form>(kernels).sum(a, out);
    }
}

template <typename Form>
void trace(const Table&, MatrixInput<Form> A, ScalarOutput<Form> out) {
    const Index count = std::min(A.rows, A.cols);
    const ElementParts parts = parts_of(A);
    const Index stride = parts.step * ((is_row_major(A) ? A.cols : A.rows) + 1);
    *out.real = strided_sum(parts.real, count, stride);
    *out.imag = strided_sum(parts.imag, count, stride);
}

template <typename Form>
void norm(const Table&, VectorInput<Form> a, ScalarOutput<Form> out) {
    float sum = 0;
    for (Index i = 0; i < a.size; ++i) {
        const Element value = element_at(a, i);
        sum += value.real() * value.real() + value.imag() * value.imag();
    }
    *out.real = result_as<float>(std::sqrt(sum));
    *out.imag = 0;
}

void is_unitary(const Table& kernels, SplitMatrixInput A, RealScalarView<int> out) {
    *out.data = 0;
    if (A.rows == A.cols) {
        const RowMajorInput<SplitForm> a(kernels, A);
        *out.data = rows_are_orthonormal(kernels, a.view()) ? 1 : 0;
    }
}

template <typename Form>
void vector_equal(const Table&, VectorInput<Form> a, VectorInput<Form> b, RealScalarView<int> out) {
    *out.data = a.size == b.size && nearly_equal(a, b) ? 1 : 0;
}

TESSALINE_IN_EITHER_FORM(sum)
TESSALINE_IN_EITHER_FORM(trace)
TESSALINE_IN_EITHER_FORM(norm)
TESSALINE_IN_EITHER_FORM(vector_equal)
TESSALINE_IN_FORM(RealForm, sum)

} // namespace Tessaline::SimdOperations

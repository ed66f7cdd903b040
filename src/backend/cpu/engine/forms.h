// SPDX-License-Identifier: Apache-2.0
#pragma once

// Operands of the engine's operations by form, so that an operation is written once for those that
// have it: real float32 or float16 elements, complex ones in two planes or element by element.

#include "backend/cpu/simd/tables/kernels.h"
#include "tessaline/storage/low_precision.h"

namespace Tessaline::SimdOperations {

using namespace SimdKernels;
using Float16Input = DenseRealVectorView<const Float16>;
using Float16Output = DenseRealVectorView<Float16>;

struct RealForm {
    using VectorInput = RealInput;
    using VectorOutput = RealOutput;
    using MatrixInput = RealMatrixInput;
    using MatrixOutput = RealMatrixOutput;
    using ScalarInput = RealScalarView<const float>;
    using ScalarOutput = RealScalarView<float>;
};
struct HalfForm {
    using VectorInput = Float16Input;
    using VectorOutput = Float16Output;
};

// What a form's operands are seen as.
template <typename Form>
using VectorInput = typename Form::VectorInput;
template <typename Form>
using VectorOutput = typename Form::VectorOutput;
template <typename Form>
using MatrixInput = typename Form::MatrixInput;
template <typename Form>
using MatrixOutput = typename Form::MatrixOutput;
template <typename Form>
using ScalarInput = typename Form::ScalarInput;
template <typename Form>
using ScalarOutput = typename Form::ScalarOutput;

namespace FormDetail {

RealForm form_of(RealInput);
RealForm form_of(RealMatrixInput);
HalfForm form_of(Float16Input);
SplitForm form_of(SplitInput);
SplitForm form_of(SplitMatrixInput);
InterleavedForm form_of(InterleavedInput);
InterleavedForm form_of(InterleavedMatrixInput);
RealForm form_of(RealOutput);
RealForm form_of(RealMatrixOutput);
HalfForm form_of(Float16Output);
SplitForm form_of(SplitOutput);
SplitForm form_of(SplitMatrixOutput);
InterleavedForm form_of(InterleavedOutput);
InterleavedForm form_of(InterleavedMatrixOutput);

} // namespace FormDetail

/// The form of a vector or matrix, by its view.
template <typename View>
using FormOf = decltype(FormDetail::form_of(std::declval<View>()));

/// The kernels of a form's operands.
template <typename Form>
const auto& kernels_of(const Table& kernels) {
    if constexpr (std::is_same_v<Form, SplitForm>) {
        return kernels.split;
    } else if constexpr (std::is_same_v<Form, InterleavedForm>) {
        return kernels.interleaved;
    } else {
        return kernels;
    }
}

// One complex element, and what it is read from and written to.

template <typename View>
Element element_at(const View& view, Index i) {
    if constexpr (std::is_same_v<FormOf<View>, SplitForm>) {
        return {view.real[i], view.imag[i]};
    } else {
        return view.data[i];
    }
}

template <typename View>
void set_element(const View& view, Index i, Element value) {
    if constexpr (std::is_same_v<FormOf<View>, SplitForm>) {
        view.real[i] = value.real();
        view.imag[i] = value.imag();
    } else {
        view.data[i] = value;
    }
}

} // namespace Tessaline::SimdOperations

// Instantiates an operation, a function template on the form, for these forms.
#define TESSALINE_IN_FORM(Form, operation) template decltype(operation<Form>) operation<Form>;
#define TESSALINE_IN_EITHER_FORM(operation)                                                        \
    TESSALINE_IN_FORM(SplitForm, operation)                                                        \
    TESSALINE_IN_FORM(InterleavedForm, operation)

// SPDX-License-Identifier: Apache-2.0
#pragma once

// The compiler's own complex types, laid out like std::complex, but without functions of the
// library, of which units for one instruction set may not keep copies. Their products recover
// infinities as C99 Annex G does.

#include <complex>

namespace Tessaline::SimdKernels {

template <typename Component>
struct BuiltInComplex;
template <>
struct BuiltInComplex<float> {
    __extension__ using Type = _Complex float;
};
template <>
struct BuiltInComplex<double> {
    __extension__ using Type = _Complex double;
};

/// An element by its parts: of which type they are, and which built-in type has both.
template <typename T>
struct ElementParts {
    using Part = T;
    using Value = T;
};
template <typename Real>
struct ElementParts<std::complex<Real>> {
    using Part = Real;
    using Value = typename BuiltInComplex<Real>::Type;
};
template <typename T>
using PartOf = typename ElementParts<T>::Part;
template <typename T>
using BuiltInValue = typename ElementParts<T>::Value;

} // namespace Tessaline::SimdKernels

// SPDX-License-Identifier: Apache-2.0
#pragma once

// What each element type stands for. A type without an entry here cannot be held by a buffer.

#include "tessaline/catalogue/scalar_type.h"
#include "tessaline/storage/low_precision.h"

#include <complex>
#include <concepts>
#include <type_traits>

namespace Tessaline {

namespace ElementDetail {

template <ScalarType Type, typename Part>
struct Element {
    static constexpr ScalarType scalar_type = Type;
    using Component = Part;
};

} // namespace ElementDetail

/// `scalar_type` of an element and `Component`, the type of one part of a complex element and else
/// the element itself.
template <typename T>
struct ElementTraits;

template <>
struct ElementTraits<float> : ElementDetail::Element<ScalarType::Float32, float> {};
template <>
struct ElementTraits<double> : ElementDetail::Element<ScalarType::Float64, double> {};
template <>
struct ElementTraits<Float16> : ElementDetail::Element<ScalarType::Float16, Float16> {};
template <>
struct ElementTraits<BFloat16> : ElementDetail::Element<ScalarType::BFloat16, BFloat16> {};
template <>
struct ElementTraits<int> : ElementDetail::Element<ScalarType::Int32, int> {};
template <>
struct ElementTraits<long> : ElementDetail::Element<ScalarType::Int64, long> {};
template <>
struct ElementTraits<unsigned> : ElementDetail::Element<ScalarType::UInt32, unsigned> {};
template <>
struct ElementTraits<unsigned long> : ElementDetail::Element<ScalarType::UInt64, unsigned long> {};
template <>
struct ElementTraits<Complex32> : ElementDetail::Element<ScalarType::Complex32, Float16> {};
template <>
struct ElementTraits<std::complex<float>> : ElementDetail::Element<ScalarType::Complex64, float> {};
template <>
struct ElementTraits<std::complex<double>>
    : ElementDetail::Element<ScalarType::Complex128, double> {};

/// A type that buffers may hold.
template <typename T>
concept BufferElement = std::is_trivially_copyable_v<T> && requires {
    { ElementTraits<T>::scalar_type } -> std::convertible_to<ScalarType>;
};

template <BufferElement T>
using Component = typename ElementTraits<T>::Component;

template <BufferElement T>
inline constexpr bool is_complex_element = !std::is_same_v<Component<T>, T>;

} // namespace Tessaline

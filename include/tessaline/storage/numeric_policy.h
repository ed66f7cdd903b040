// SPDX-License-Identifier: Apache-2.0
#pragma once

// The numeric policies that the program is compiled for: pairs of a stored element and the element
// in which kernels compute. Every factory, predicate and instantiation follows from the one list.

#include "tessaline/catalogue/data_type_descriptor.h"
#include "tessaline/storage/element_traits.h"

#include <utility>

// category, stored element, compute element, and what the caller adds. The order is that of every
// search. Complex elements are the interleaved ones; split storage of the same policy holds their
// components.
#define TESSALINE_COMPILED_POLICIES(POLICY, ...)                                                   \
    POLICY(complex, Tessaline::Complex32, std::complex<float> __VA_OPT__(, ) __VA_ARGS__)          \
    POLICY(floating, Tessaline::Float16, float __VA_OPT__(, ) __VA_ARGS__)                         \
    POLICY(floating, Tessaline::BFloat16, float __VA_OPT__(, ) __VA_ARGS__)                        \
    POLICY(floating, double, double __VA_OPT__(, ) __VA_ARGS__)                                    \
    POLICY(complex, std::complex<double>, std::complex<double> __VA_OPT__(, ) __VA_ARGS__)         \
    POLICY(floating, float, float __VA_OPT__(, ) __VA_ARGS__)                                      \
    POLICY(integer, int, int __VA_OPT__(, ) __VA_ARGS__)                                           \
    POLICY(complex, std::complex<float>, std::complex<float> __VA_OPT__(, ) __VA_ARGS__)

namespace Tessaline {

/// One compiled policy, as a type.
template <BufferElement StoredElement, BufferElement ComputeElement>
struct NumericPolicy {
    using Stored = StoredElement;
    using Compute = ComputeElement;
    static constexpr ScalarType storage_type = ElementTraits<Stored>::scalar_type;
    static constexpr ScalarType compute_type = ElementTraits<Compute>::scalar_type;
    static constexpr bool is_complex = is_complex_element<Stored>;
    static constexpr bool is_integer = std::is_integral_v<Stored>;

    static DataTypeDescriptor type() {
        return DataTypeDescriptor::from_scalar_types(storage_type, compute_type);
    }
};

namespace NumericPolicyDetail {

template <typename... Policies>
struct List {};

// The void heads the list only to take the first comma.
template <typename Head, typename... Policies>
using Tail = List<Policies...>;

#define TESSALINE_LIST_POLICY(category, Stored, Compute) , NumericPolicy<Stored, Compute>
using Compiled = Tail<void TESSALINE_COMPILED_POLICIES(TESSALINE_LIST_POLICY)>;
#undef TESSALINE_LIST_POLICY

[[noreturn]] TESSALINE_API void fail_not_compiled(ScalarType storage, ScalarType compute);

template <typename Visitor, typename First, typename... Rest>
decltype(auto) visit(List<First, Rest...>, ScalarType storage, ScalarType compute,
                     Visitor&& visitor) {
    if (storage == First::storage_type && compute == First::compute_type) {
        return std::forward<Visitor>(visitor)(First{});
    }
    if constexpr (sizeof...(Rest) > 0) {
        return visit(List<Rest...>{}, storage, compute, std::forward<Visitor>(visitor));
    } else {
        fail_not_compiled(storage, compute);
    }
}

template <typename Policy>
struct Found {
    using type = Policy;
};

/// The first policy whose Rule::accepts holds; void when there is none.
template <typename Rule, typename... Policies>
constexpr auto find(List<Policies...>) {
    return Found<void>{};
}
template <typename Rule, typename First, typename... Rest>
constexpr auto find(List<First, Rest...>) {
    if constexpr (Rule::template accepts<First>) {
        return Found<First>{};
    } else {
        return find<Rule>(List<Rest...>{});
    }
}

template <typename T>
struct Stores {
    template <typename Policy>
    static constexpr bool accepts = std::is_same_v<typename Policy::Stored, T>;
};

template <typename T>
struct StoresPartsOf {
    template <typename Policy>
    static constexpr bool accepts =
        Policy::is_complex&& std::is_same_v<Component<typename Policy::Stored>, T>;
};

template <typename Rule>
using First = typename decltype(find<Rule>(Compiled{}))::type;

} // namespace NumericPolicyDetail

/// The compiled policy that stores elements of type T, and the complex one whose split storage
/// holds components of type T; void when there is none.
template <typename T>
using PolicyOf = NumericPolicyDetail::First<NumericPolicyDetail::Stores<T>>;
template <typename T>
using SplitPolicyOf = NumericPolicyDetail::First<NumericPolicyDetail::StoresPartsOf<T>>;

/// A type of which operands may be made.
template <typename T>
concept CompiledElement = BufferElement<T> && !std::is_void_v<PolicyOf<T>>;

/// Calls `visitor` with the NumericPolicy of a descriptor and returns its result. Raises
/// std::invalid_argument for a pair that is not compiled.
template <typename Visitor>
decltype(auto) visit_numeric_policy(const DataTypeDescriptor& type, Visitor&& visitor) {
    return NumericPolicyDetail::visit(NumericPolicyDetail::Compiled{}, type.storage_type(),
                                      type.compute_type(), std::forward<Visitor>(visitor));
}

/// Calls `visitor` with each compiled policy, in order.
template <typename Visitor>
void for_each_numeric_policy(Visitor&& visitor) {
    [&]<typename... Policies>(NumericPolicyDetail::List<Policies...>) {
        (visitor(Policies{}), ...);
    }(NumericPolicyDetail::Compiled{});
}

/// Whether a pair is in the list.
TESSALINE_API bool is_compiled_policy(ScalarType storage, ScalarType compute);

/// Whether it is there and complex, so that its operands may be split or interleaved.
TESSALINE_API bool is_compiled_complex_policy(ScalarType storage, ScalarType compute);

} // namespace Tessaline

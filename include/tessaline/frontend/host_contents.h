// SPDX-License-Identifier: Apache-2.0
#pragma once

// Contents that C++ callers hand to the typed factories of the handles.

#include "tessaline/catalogue/data_layout.h"
#include "tessaline/storage/numeric_policy.h"
#include "tessaline/storage/storage_initialiser.h"

#include <initializer_list>
#include <ranges>
#include <span>

namespace Tessaline {

/// A contiguous range of elements that a numeric policy stores: a span, a std::vector, an array.
template <typename Contents>
concept HostContents =
    std::ranges::contiguous_range<const Contents> && std::ranges::sized_range<const Contents> &&
    CompiledElement<std::ranges::range_value_t<Contents>>;

/// The complex layout of operands that hold whole elements of type T.
template <CompiledElement T>
inline constexpr DataComplexLayout whole_layout =
    is_complex_element<T> ? DataComplexLayout::interleaved : DataComplexLayout::none;

/// An initialiser over the caller's elements.
template <HostContents Contents>
StorageInitialiser initial_contents(const Contents& contents) {
    return StorageInitialiser(make_buffer_view(BufferRole::data, std::ranges::data(contents),
                                               std::ranges::size(contents)));
}

} // namespace Tessaline

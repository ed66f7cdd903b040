// SPDX-License-Identifier: Apache-2.0
#pragma once

// The checked way between typed pointers and erased buffer records. These checks guard the inside:
// a failure means that an entity does not match what a kernel was compiled for.

#include "tessaline/storage/buffer_view.h"
#include "tessaline/storage/element_traits.h"

#include <string>
#include <string_view>

namespace Tessaline {

namespace BufferAccessDetail {

/// What a record must say to be read as elements of one type.
struct Element {
    std::uint64_t size;
    std::uint64_t alignment;
    ScalarType scalar_type;
    const std::type_info* type;
};

template <BufferElement T>
inline constexpr Element element_of{sizeof(T), alignof(T), ElementTraits<T>::scalar_type,
                                    &typeid(T)};

inline const ConstBufferView& as_const_view(const ConstBufferView& view) {
    return view;
}
inline ConstBufferView as_const_view(const MutableBufferView& view) {
    return {view.role, view.data, view.count, view.element_size, view.scalar_type, view.type};
}

/// Raises std::invalid_argument for a record with a count and no data.
TESSALINE_API void require_data(const ConstBufferView& view, std::string_view what);

TESSALINE_API void validate(const ConstBufferView& view, const Element& element,
                            std::size_t expected_count, std::string_view what);

/// The index of the first buffer of a role. Raises std::logic_error when there is none.
TESSALINE_API std::size_t require_index(const ErasedBufferAccess& access, BufferRole role,
                                        std::string_view what);

[[noreturn]] TESSALINE_API void fail_without_buffers(std::string_view what);

} // namespace BufferAccessDetail

/// The record of `count` elements at `data`.
template <BufferElement T>
ConstBufferView make_buffer_view(BufferRole role, const T* data, std::uint64_t count) {
    return {role, data, count, sizeof(T), ElementTraits<T>::scalar_type, &typeid(T)};
}
template <BufferElement T>
MutableBufferView make_buffer_view(BufferRole role, T* data, std::uint64_t count) {
    return {role, data, count, sizeof(T), ElementTraits<T>::scalar_type, &typeid(T)};
}

/// Checks that a record, ConstBufferView or MutableBufferView, is one of `expected_count` elements
/// of type T. `what` opens each message. Raises std::logic_error for another count, element size,
/// scalar type, type identity or alignment, and std::invalid_argument for null data with a count.
template <BufferElement T, typename View>
void validate_buffer_type(const View& view, std::size_t expected_count, std::string_view what) {
    BufferAccessDetail::validate(BufferAccessDetail::as_const_view(view),
                                 BufferAccessDetail::element_of<T>, expected_count, what);
}

/// The elements of the buffer of a role, checked as validate_buffer_type does; null when it is
/// empty and has no memory. Raises std::logic_error besides when there is no buffer of that role.
template <BufferElement T>
const T* require_buffer_data(const ErasedBufferAccess& access, BufferRole role,
                             std::size_t expected_count, std::string_view what) {
    const auto view = access.buffer(BufferAccessDetail::require_index(access, role, what));
    validate_buffer_type<T>(view, expected_count, what);
    return static_cast<const T*>(view.data);
}
template <BufferElement T>
T* require_buffer_data(ErasedBufferAccess& access, BufferRole role, std::size_t expected_count,
                       std::string_view what) {
    const auto view = access.buffer(BufferAccessDetail::require_index(access, role, what));
    validate_buffer_type<T>(view, expected_count, what);
    return static_cast<T*>(view.data);
}

/// Checks before an untyped copy that both objects have the same buffers: their number and, index
/// by index, role, count, element size and scalar type. Element types may differ, as those of host
/// and device do. Raises std::logic_error.
TESSALINE_API void validate_compatible_buffers(const ErasedBufferAccess& source,
                                               ErasedBufferAccess& destination,
                                               std::string_view what);

/// The buffers of an entity of any kind. Raises std::logic_error for an entity that offers none.
template <typename Entity>
ErasedBufferAccess& erased_buffers(Entity& entity, std::string_view what) {
    if constexpr (std::is_base_of_v<ErasedBufferAccess, Entity>) {
        return entity;
    } else {
        if (ErasedBufferAccess* access = entity.buffer_access()) {
            return *access;
        }
        BufferAccessDetail::fail_without_buffers(what);
    }
}
template <typename Entity>
const ErasedBufferAccess& erased_buffers(const Entity& entity, std::string_view what) {
    return erased_buffers(const_cast<Entity&>(entity), what);
}

} // namespace Tessaline

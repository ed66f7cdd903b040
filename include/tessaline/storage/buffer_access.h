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

/// Two copies of a type's identity, one in each of two shared objects, differ in address but not in
/// name.
TESSALINE_API bool have_one_name(const std::type_info* found, const std::type_info& wanted);

// What the checks raise; see those.
[[noreturn]] TESSALINE_API void fail_without_data(BufferRole role, std::string_view what);
[[noreturn]] TESSALINE_API void fail_without_role(BufferRole role, std::string_view what);
[[noreturn]] TESSALINE_API void fail_without_buffers(std::string_view what);
[[noreturn]] TESSALINE_API void fail_to_match(std::string_view what);

/// Raises std::invalid_argument for a record with a count and no data.
template <typename View>
void require_data(const View& view, std::string_view what) {
    if (view.count != 0 && view.data == nullptr) {
        fail_without_data(view.role, what);
    }
}

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
    // In place, as a kernel checks each operand of each call: the record that its maker wrote field
    // by field would be slow to copy.
    if (view.count != expected_count || view.element_size != sizeof(T) ||
        view.scalar_type != ElementTraits<T>::scalar_type ||
        (view.type != &typeid(T) && !BufferAccessDetail::have_one_name(view.type, typeid(T))) ||
        reinterpret_cast<std::uintptr_t>(view.data) % alignof(T) != 0) {
        BufferAccessDetail::fail_to_match(what);
    }
    BufferAccessDetail::require_data(view, what);
}

namespace BufferAccessDetail {

template <BufferElement T, typename Access>
auto* require_data_of_role(Access& access, BufferRole role, std::size_t expected_count,
                           std::string_view what) {
    const std::size_t count = access.buffer_count();
    for (std::size_t index = 0; index < count; ++index) {
        if (const auto view = access.buffer(index); view.role == role) {
            validate_buffer_type<T>(view, expected_count, what);
            return static_cast<std::conditional_t<std::is_const_v<Access>, const T, T>*>(view.data);
        }
    }
    fail_without_role(role, what);
}

} // namespace BufferAccessDetail

/// The elements of the buffer of a role, checked as validate_buffer_type does; null when it is
/// empty and has no memory. Raises std::logic_error besides when there is no buffer of that role.
template <BufferElement T>
const T* require_buffer_data(const ErasedBufferAccess& access, BufferRole role,
                             std::size_t expected_count, std::string_view what) {
    return BufferAccessDetail::require_data_of_role<T>(access, role, expected_count, what);
}
template <BufferElement T>
T* require_buffer_data(ErasedBufferAccess& access, BufferRole role, std::size_t expected_count,
                       std::string_view what) {
    return BufferAccessDetail::require_data_of_role<T>(access, role, expected_count, what);
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
        if (ErasedBufferAccess* buffers = entity.buffer_access().buffers) {
            return *buffers;
        }
        BufferAccessDetail::fail_without_buffers(what);
    }
}
template <typename Entity>
const ErasedBufferAccess& erased_buffers(const Entity& entity, std::string_view what) {
    return erased_buffers(const_cast<Entity&>(entity), what);
}

} // namespace Tessaline

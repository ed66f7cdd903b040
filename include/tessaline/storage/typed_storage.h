// SPDX-License-Identifier: Apache-2.0
#pragma once

// The checked way from an entity down to what a kernel was compiled for, by a comparison of type
// identities: a cast would search the class tree at every launch.

#include "tessaline/storage/entities.h"

#include <type_traits>
#include <typeinfo>

namespace Tessaline {

namespace TypedStorageDetail {

[[noreturn]] TESSALINE_API void fail_to_match();

template <typename Wanted, typename Entity>
using LikeConst = std::conditional_t<std::is_const_v<Entity>, const Wanted, Wanted>;

} // namespace TypedStorageDetail

/// The typed access, such as DenseRealVectorAccess<float>, that a scalar, vector or matrix offers,
/// with the entity's constness. Raises std::bad_cast for storage of another form or element.
template <typename Access, typename Entity>
auto& typed_access(Entity& entity) {
    using Wanted = TypedStorageDetail::LikeConst<Access, Entity>;
    const StorageAccess access = const_cast<std::remove_const_t<Entity>&>(entity).buffer_access();
    if (access.type != nullptr && *access.type == typeid(Access)) {
        return static_cast<Wanted&>(*access.buffers);
    }
    // Storage of users need not tell its access class.
    return dynamic_cast<Wanted&>(entity);
}

/// The entity as the class Storage itself, null when it is of another one.
template <typename Storage, typename Entity>
auto* storage_if(Entity& entity) {
    static_assert(std::is_final_v<Storage>, "a derived class would have another identity");
    using Wanted = TypedStorageDetail::LikeConst<Storage, Entity>;
    return typeid(entity) == typeid(Storage) ? &static_cast<Wanted&>(entity) : nullptr;
}

/// Raises std::bad_cast when the entity is of another class.
template <typename Storage, typename Entity>
auto& storage_as(Entity& entity) {
    if (auto* storage = storage_if<Storage>(entity)) {
        return *storage;
    }
    TypedStorageDetail::fail_to_match();
}

} // namespace Tessaline

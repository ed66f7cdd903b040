// SPDX-License-Identifier: Apache-2.0
#pragma once

// The handle of a scalar operand.

#include "tessaline/storage/entities.h"
#include "tessaline/storage/host_memory.h"
#include "tessaline/storage/numeric_policy.h"
#include "tessaline/storage/storage_initialiser.h"

#include <memory>

namespace Tessaline {

/// Owns the storage of one scalar. Movable, not copyable; a handle that was moved from may only be
/// assigned to or destroyed. Reading is safe from several threads.
class TESSALINE_API Scalar {
  public:
    /// Takes the storage over. Raises ArgumentError with reason null_storage for null.
    explicit Scalar(std::unique_ptr<ScalarEntity> storage);

    /// Pageable host storage; raises what StorageFactory::host_scalar does.
    static Scalar host_impl(const DataTypeDescriptor& type, HostMemoryOptions options = {},
                            const StorageInitialiser& initialiser = {});

    /// Pageable host storage of a value, in the numeric policy that stores its type.
    template <CompiledElement T>
    static Scalar host(const T& value, HostMemoryOptions options = {}) {
        // Standard and own complex types alike consist of their real and imaginary parts.
        const auto* parts = reinterpret_cast<const Component<T>*>(&value);
        if constexpr (is_complex_element<T>) {
            return host_impl(PolicyOf<T>::type(), options,
                             {make_buffer_view(BufferRole::real, parts, 1),
                              make_buffer_view(BufferRole::imaginary, parts + 1, 1)});
        } else {
            return host_impl(PolicyOf<T>::type(), options,
                             StorageInitialiser(make_buffer_view(BufferRole::data, parts, 1)));
        }
    }

    ScalarEntity& entity() { return *storage_; }
    const ScalarEntity& entity() const { return *storage_; }
    const ScalarDescriptor& descriptor() const { return storage_->descriptor(); }
    const DataTopologyDescriptor& topology() const { return descriptor().topology(); }
    const DataTypeDescriptor& type() const { return descriptor().type(); }
    bool is_complex() const { return type().is_complex(); }

  private:
    std::unique_ptr<ScalarEntity> storage_;
};

} // namespace Tessaline

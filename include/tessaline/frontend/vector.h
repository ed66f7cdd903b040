// SPDX-License-Identifier: Apache-2.0
#pragma once

// The handle of a vector operand.

#include "tessaline/frontend/host_contents.h"
#include "tessaline/storage/entities.h"
#include "tessaline/storage/host_memory.h"

#include <memory>

namespace Tessaline {

/// Owns the storage of one vector. Movable, not copyable; a handle that was moved from may only be
/// assigned to or destroyed. Reading is safe from several threads.
class TESSALINE_API Vector {
  public:
    /// Takes the storage over. Raises ArgumentError with reason null_storage for null.
    explicit Vector(std::unique_ptr<VectorEntity> storage);

    /// Pageable host storage; raises what StorageFactory::host_vector does.
    static Vector host_impl(const DataTypeDescriptor& type, std::uint64_t size,
                            DataComplexLayout complex_layout, HostMemoryOptions options = {},
                            const StorageInitialiser& initialiser = {});

    /// Pageable host storage with a copy of the contents, in the numeric policy that stores their
    /// elements; complex elements stay interleaved.
    template <HostContents Contents>
    static Vector host(const Contents& contents, HostMemoryOptions options = {}) {
        using T = std::ranges::range_value_t<Contents>;
        return host_impl(PolicyOf<T>::type(), std::ranges::size(contents), whole_layout<T>, options,
                         initial_contents(contents));
    }
    template <CompiledElement T>
    static Vector host(std::initializer_list<T> contents, HostMemoryOptions options = {}) {
        return host(std::span(contents.begin(), contents.size()), options);
    }

    /// Pageable host storage of `size` zeros of type T.
    template <CompiledElement T>
    static Vector host_zeros(std::uint64_t size, HostMemoryOptions options = {}) {
        return host_impl(PolicyOf<T>::type(), size, whole_layout<T>, options);
    }

    VectorEntity& entity() { return *storage_; }
    const VectorEntity& entity() const { return *storage_; }
    const VectorDescriptor& descriptor() const { return storage_->descriptor(); }
    const DataTopologyDescriptor& topology() const { return descriptor().topology(); }
    const DataTypeDescriptor& type() const { return descriptor().type(); }
    bool is_complex() const { return type().is_complex(); }

    std::uint64_t size() const { return descriptor().size(); }
    DataVectorFormat format() const { return descriptor().format(); }
    DataComplexLayout complex_layout() const { return descriptor().complex_layout(); }
    bool is_dense() const { return format() == DataVectorFormat::dense; }
    bool is_sparse() const { return format() == DataVectorFormat::sparse; }
    bool is_complex_split() const { return complex_layout() == DataComplexLayout::split; }
    bool is_complex_intlv() const { return complex_layout() == DataComplexLayout::interleaved; }

  private:
    std::unique_ptr<VectorEntity> storage_;
};

} // namespace Tessaline

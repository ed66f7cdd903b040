// SPDX-License-Identifier: Apache-2.0
#pragma once

// Memory that the caller owns, seen as the buffer of an entity.

#include "tessaline/storage/element_traits.h"

#include <memory>
#include <utility>

namespace Tessaline {

namespace BorrowedBufferDetail {

[[noreturn]] TESSALINE_API void fail_read_only();

} // namespace BorrowedBufferDetail

/// A pointer to borrowed elements that remembers whether they may be written.
template <BufferElement T>
class BorrowedPointer {
  public:
    BorrowedPointer(T* data) : data_(data), writable_(true) {}
    /// Read-only memory.
    BorrowedPointer(const T* data) : data_(const_cast<T*>(data)), writable_(false) {}

    const T* get() const { return data_; }
    /// Raises std::logic_error for read-only memory.
    T* get_writable() const {
        if (!writable_) {
            BorrowedBufferDetail::fail_read_only();
        }
        return data_;
    }

  private:
    T* data_;
    bool writable_;
};

/// `size()` elements of the caller's, kept alive through the owner, or by the caller when there is
/// none. Mutable access raises std::logic_error for read-only memory.
template <BufferElement T>
class BorrowedBuffer {
  public:
    using value_type = T;

    BorrowedBuffer(BorrowedPointer<T> elements, std::uint64_t size,
                   std::shared_ptr<const void> owner)
        : elements_(elements),
          size_(size),
          owner_(std::move(owner)) {}

    T* data() { return elements_.get_writable(); }
    const T* data() const { return elements_.get(); }
    std::uint64_t size() const { return size_; }

  private:
    BorrowedPointer<T> elements_;
    std::uint64_t size_;
    std::shared_ptr<const void> owner_;
};

} // namespace Tessaline

// SPDX-License-Identifier: Apache-2.0
#pragma once

// What new storage starts with: zeros, or a copy of one buffer, or of two for split storage.

#include "tessaline/storage/buffer_access.h"

#include <optional>

namespace Tessaline {

/// Refers to the caller's memory, which is read only while a factory runs.
class TESSALINE_API StorageInitialiser {
  public:
    /// Zeros.
    StorageInitialiser() = default;
    /// `first` is the data or real buffer, `second` the imaginary one.
    StorageInitialiser(std::optional<ConstBufferView> first, std::optional<ConstBufferView> second)
        : first_(first),
          second_(second) {}
    explicit StorageInitialiser(const ConstBufferView& data) : first_(data) {}

    const std::optional<ConstBufferView>& first() const { return first_; }
    const std::optional<ConstBufferView>& second() const { return second_; }

    /// Raises std::invalid_argument when the views do not suit storage of `count` elements, split
    /// into two buffers or not: by number, role or element count. Types are checked by the factory.
    void validate(std::size_t count, bool split) const;

  private:
    std::optional<ConstBufferView> first_;
    std::optional<ConstBufferView> second_;
};

} // namespace Tessaline

// SPDX-License-Identifier: Apache-2.0
#pragma once

// Takes NumPy arrays apart without copying them where that can be done.

#include <nanobind/nanobind.h>
#include <nanobind/ndarray.h>

#include <array>

namespace Tessaline::Python {

/// A C-ordered array in host memory. It keeps the memory alive: the caller's array, or a temporary
/// copy of one in another order.
class HostArray {
  public:
    /// Raises std::invalid_argument for anything but a NumPy array and for a low-precision array
    /// that is not aligned, native-endian and contiguous or, as an output, not writable; CastError
    /// for an array that is no numbers in native byte order, or a read-only output; the MemoryError
    /// of a copy that cannot be had.
    HostArray(nanobind::handle array, bool writable);

    /// The first element; to be written only where the array was taken as writable.
    void* data() const { return data_; }
    std::size_t rank() const { return rank_; }
    /// Of the first two axes.
    std::size_t extent(std::size_t axis) const { return extents_[axis]; }
    nanobind::dlpack::dtype dtype() const { return dtype_; }
    /// Whether what is written stays in a copy, out of the caller's sight.
    bool is_copy() const { return is_copy_; }

  private:
    nanobind::object owner_;
    void* data_ = nullptr;
    std::size_t rank_ = 0;
    std::array<std::size_t, 2> extents_{};
    nanobind::dlpack::dtype dtype_{};
    bool is_copy_ = false;
};

} // namespace Tessaline::Python

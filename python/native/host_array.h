// SPDX-License-Identifier: Apache-2.0
#pragma once

// Takes NumPy arrays apart without copying them where that can be done.

#include <nanobind/nanobind.h>
#include <nanobind/ndarray.h>

namespace Tessaline::Python {

/// A C-ordered array in host memory. It keeps the memory alive: the caller's array, or a temporary
/// copy of one in another order.
class HostArray {
  public:
    /// Raises std::invalid_argument for anything but a NumPy array and for a low-precision array
    /// that is not aligned, native-endian and contiguous or, as an output, not writable; and
    /// nanobind's cast error for an array that cannot be imported, such as a read-only output.
    HostArray(nanobind::handle array, bool writable);

    /// The first element; to be written only where the array was taken as writable.
    void* data() const { return data_; }
    std::size_t rank() const { return rank_; }
    std::size_t extent(std::size_t axis) const { return static_cast<std::size_t>(shape_[axis]); }
    nanobind::dlpack::dtype dtype() const { return dtype_; }

  private:
    void import(nanobind::handle array, bool writable);

    nanobind::object owner_; ///< the caller's array, where its memory is used as it lies
    nanobind::ndarray<nanobind::ro, nanobind::c_contig, nanobind::device::cpu> imported_; ///< else
    void* data_ = nullptr;
    std::size_t rank_ = 0;
    const std::int64_t* shape_ = nullptr;
    nanobind::dlpack::dtype dtype_{};
};

} // namespace Tessaline::Python

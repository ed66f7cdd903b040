// SPDX-License-Identifier: Apache-2.0
#pragma once

// The erased view of operand memory: records that name role, size and element type of each buffer
// of an object, and the abstract class that lists them.

#include "tessaline/catalogue/scalar_type.h"

#include <cstddef>
#include <typeinfo>

namespace Tessaline {

/// What a buffer is within its object.
enum class BufferRole : std::int32_t {
    data = 0,
    real = 1,
    imaginary = 2,
    lu_pivots = 3,
    lu_factors = 4,
    lu_swap_count = 5,
    eigenvalues = 6,
    eigenvectors = 7,
};

/// The role as messages write it, such as "LU factors", and "unknown" for any other value.
TESSALINE_API const char* buffer_role_name(BufferRole role);

/// One buffer, seen without its type. Owns nothing and is valid while its owner lives.
struct ConstBufferView {
    BufferRole role;            ///< what this buffer is
    const void* data;           ///< first element; null only when `count` is 0
    std::uint64_t count;        ///< number of elements
    std::uint64_t element_size; ///< bytes per element
    ScalarType scalar_type;     ///< the element's scalar type
    const std::type_info* type; ///< the exact element type
};

/// Converts to the view for reading.
struct MutableBufferView {
    BufferRole role;            ///< what this buffer is
    void* data;                 ///< first element; null only when `count` is 0
    std::uint64_t count;        ///< number of elements
    std::uint64_t element_size; ///< bytes per element
    ScalarType scalar_type;     ///< the element's scalar type
    const std::type_info* type; ///< the exact element type

    operator ConstBufferView() const {
        return {role, data, count, element_size, scalar_type, type};
    }
};

/// The list of an object's buffers. Concurrent readers need no lock.
class TESSALINE_API ErasedBufferAccess {
  public:
    virtual ~ErasedBufferAccess();

    virtual std::size_t buffer_count() const = 0;
    /// Both raise std::out_of_range for an index that is not below buffer_count().
    virtual MutableBufferView buffer(std::size_t index) = 0;
    virtual ConstBufferView buffer(std::size_t index) const = 0;

  protected:
    ErasedBufferAccess() = default;
    ErasedBufferAccess(const ErasedBufferAccess&) = default;
    ErasedBufferAccess& operator=(const ErasedBufferAccess&) = default;
};

} // namespace Tessaline

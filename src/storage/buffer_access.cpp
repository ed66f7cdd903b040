// SPDX-License-Identifier: Apache-2.0
#include "tessaline/storage/buffer_access.h"

#include "tessaline/storage/dense_access.h"

#include <stdexcept>

namespace Tessaline {

DenseMatrixAccessBase::~DenseMatrixAccessBase() = default;

bool BufferAccessDetail::have_one_name(const std::type_info* found, const std::type_info& wanted) {
    // name() leaves out the leading "*" that marks a name as local.
    return found != nullptr && std::string_view(found->name()) == wanted.name();
}

void BufferAccessDetail::fail_to_match(std::string_view what) {
    throw std::logic_error(std::string(what) +
                           " - storage buffer type, alignment or count mismatch");
}

void BufferAccessDetail::fail_without_data(BufferRole role, std::string_view what) {
    throw std::invalid_argument(std::string(what) + " - " + buffer_role_name(role) +
                                " buffer is null");
}

void BufferAccessDetail::fail_without_role(BufferRole role, std::string_view what) {
    throw std::logic_error(std::string(what) + " - required " + buffer_role_name(role) +
                           " buffer is unavailable");
}

void BufferAccessDetail::fail_without_buffers(std::string_view what) {
    throw std::logic_error(std::string(what) + " - storage offers no buffers");
}

void validate_compatible_buffers(const ErasedBufferAccess& source, ErasedBufferAccess& destination,
                                 std::string_view what) {
    const ErasedBufferAccess& target = destination;
    bool compatible = source.buffer_count() == target.buffer_count();
    for (std::size_t index = 0; compatible && index < source.buffer_count(); ++index) {
        const ConstBufferView from = source.buffer(index);
        const ConstBufferView to = target.buffer(index);
        compatible = from.role == to.role && from.count == to.count &&
                     from.element_size == to.element_size && from.scalar_type == to.scalar_type;
    }
    if (!compatible) {
        throw std::logic_error(std::string(what) + " - buffer layout mismatch");
    }
}

void DenseAccessDetail::check_buffer_index(std::size_t index, std::size_t count) {
    if (index >= count) {
        throw std::out_of_range("ErasedBufferAccess - buffer index out of range");
    }
}

} // namespace Tessaline

// SPDX-License-Identifier: Apache-2.0
#include "tessaline/storage/buffer_access.h"

#include "tessaline/storage/dense_access.h"

#include <stdexcept>

namespace Tessaline {

DenseMatrixAccessBase::~DenseMatrixAccessBase() = default;

namespace {

/// Two copies of a type's identity, one in each of two shared objects, differ in address but not in
/// name. name() leaves out the leading "*" that marks a name as local.
bool identifies(const std::type_info* found, const std::type_info* wanted) {
    return found == wanted ||
           (found != nullptr && std::string_view(found->name()) == wanted->name());
}

bool is_aligned(const void* data, std::uint64_t alignment) {
    return reinterpret_cast<std::uintptr_t>(data) % alignment == 0;
}

} // namespace

void BufferAccessDetail::require_data(const ConstBufferView& view, std::string_view what) {
    if (view.count != 0 && view.data == nullptr) {
        throw std::invalid_argument(std::string(what) + " - " + buffer_role_name(view.role) +
                                    " buffer is null");
    }
}

void BufferAccessDetail::validate(const ConstBufferView& view, const Element& element,
                                  std::size_t expected_count, std::string_view what) {
    if (view.count != expected_count || view.element_size != element.size ||
        view.scalar_type != element.scalar_type || !identifies(view.type, element.type) ||
        !is_aligned(view.data, element.alignment)) {
        throw std::logic_error(std::string(what) +
                               " - storage buffer type, alignment or count mismatch");
    }
    require_data(view, what);
}

std::size_t BufferAccessDetail::require_index(const ErasedBufferAccess& access, BufferRole role,
                                              std::string_view what) {
    const std::size_t count = access.buffer_count();
    for (std::size_t index = 0; index < count; ++index) {
        if (access.buffer(index).role == role) {
            return index;
        }
    }
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

// SPDX-License-Identifier: Apache-2.0
#include "frontend/plugin/marshal_operand.h"

#include "catalogue/require.h"
#include "frontend/plugin/plugin_abi.h"
#include "tessaline/storage/buffer_access.h"
#include "tessaline/storage/element_count.h"

#include <array>

namespace Tessaline::PluginDetail::Internal {

namespace {

constexpr const char* label = "native kernel operand marshalling";

[[noreturn]] void refuse(const std::string& what) {
    throw std::invalid_argument(std::string(label) + " - " + what);
}

/// What a descriptor says about one buffer.
struct ExpectedBuffer {
    BufferRole role;
    std::uint64_t count;
    ScalarType type;
};

/// What a descriptor says about all of them, in their order.
struct ExpectedBuffers {
    std::array<ExpectedBuffer, most_buffers> buffers;
    std::size_t count;
};

ExpectedBuffers in_one(std::uint64_t count, ScalarType element) {
    return {{{{BufferRole::data, count, element}}}, 1};
}

ExpectedBuffers in_parts(std::uint64_t count, ScalarType element) {
    const ScalarType part = scalar_metadata(element).component;
    return {{{{BufferRole::real, count, part}, {BufferRole::imaginary, count, part}}}, 2};
}

struct BuffersOf {
    ExpectedBuffers operator()(const ScalarDescriptor& scalar) const {
        const ScalarType element = scalar.type().storage_type();
        return scalar.type().is_complex() ? in_parts(1, element) : in_one(1, element);
    }
    ExpectedBuffers operator()(const VectorDescriptor& vector) const {
        return elements(vector, vector.size());
    }
    ExpectedBuffers operator()(const MatrixDescriptor& matrix) const {
        return elements(matrix, checked_element_count(matrix.rows(), matrix.cols()));
    }
    ExpectedBuffers operator()(const LuDecompDescriptor& lu) const {
        return {{{{BufferRole::lu_pivots, lu.size(), ScalarType::Int64},
                  {BufferRole::lu_factors, checked_element_count(lu.size(), lu.size()),
                   lu.type().storage_type()},
                  {BufferRole::lu_swap_count, 1, ScalarType::UInt64}}},
                3};
    }
    ExpectedBuffers operator()(const EigenValsDescriptor& eigen) const {
        const ScalarType element = eigen.type().storage_type();
        return {{{{BufferRole::eigenvalues, eigen.size(), element},
                  {BufferRole::eigenvectors, checked_element_count(eigen.size(), eigen.size()),
                   element}}},
                2};
    }

  private:
    template <typename Descriptor>
    static ExpectedBuffers elements(const Descriptor& descriptor, std::uint64_t count) {
        const ScalarType element = descriptor.type().storage_type();
        return descriptor.complex_layout() == DataComplexLayout::split ? in_parts(count, element)
                                                                       : in_one(count, element);
    }
};

/// The two faces of one operand's storage.
struct Storage {
    const ErasedBufferAccess* read;
    ErasedBufferAccess* write; ///< null for an operand that is only read
};

template <typename Entity>
Storage storage_of(const OperandBinding& binding, OperandAccess access) {
    if (access == OperandAccess::read) {
        return {&erased_buffers(bound_entity<Entity>(binding), label), nullptr};
    }
    ErasedBufferAccess& buffers = erased_buffers(writable_entity<Entity>(binding), label);
    return {&buffers, &buffers};
}

Storage storage_of(const OperandBinding& binding, const StagedOperand& operand) {
    switch (operand.kind) {
    case OperandKind::Vector:
        return storage_of<VectorEntity>(binding, operand.access);
    case OperandKind::Matrix:
        return storage_of<MatrixEntity>(binding, operand.access);
    case OperandKind::LuDecomp:
        return storage_of<LuDecompEntity>(binding, operand.access);
    case OperandKind::EigenVals:
        return storage_of<EigenValsEntity>(binding, operand.access);
    case OperandKind::Scalar:
        break;
    }
    return storage_of<ScalarEntity>(binding, operand.access);
}

/// The pointer to write through, checked to lead to the buffer that is read.
void* writable_data(const Storage& storage, std::size_t index, const ConstBufferView& read) {
    if (storage.write == nullptr) {
        return nullptr;
    }
    const MutableBufferView written = storage.write->buffer(index);
    if (written.role != read.role || written.count != read.count ||
        written.element_size != read.element_size || written.scalar_type != read.scalar_type ||
        *written.type != *read.type) {
        refuse("buffer layout mismatch at index " + std::to_string(index));
    }
    return written.data;
}

tessaline_buffer_view marshal_buffer(const ConstBufferView& read, void* writable,
                                     const ExpectedBuffer& expected) {
    require(read.role >= BufferRole::data && read.role <= BufferRole::eigenvectors,
            "native operand has an unknown storage buffer role");
    BufferAccessDetail::require_data(read, label);
    if (read.role != expected.role || read.count != expected.count ||
        read.scalar_type != expected.type) {
        refuse(std::string("descriptor disagrees with ") + buffer_role_name(read.role) + " buffer");
    }
    return {sizeof(tessaline_buffer_view),
            static_cast<std::uint32_t>(read.role) + 1,
            read.data,
            writable,
            read.count,
            read.element_size,
            abi_buffer_element_type(read.scalar_type)};
}

} // namespace

tessaline_operand_view marshal_operand(const StagedOperand& operand, const OperandBinding& binding,
                                       tessaline_buffer_view* buffers) {
    require(operand_kind(binding) == operand.kind,
            "native kernel binding family differs from its sealed signature");
    const OperandDescriptor descriptor = describe_operand(operand.role, binding);
    const ExpectedBuffers expected = std::visit(BuffersOf{}, descriptor.descriptor());
    const Storage storage = storage_of(binding, operand);
    if (storage.read->buffer_count() != expected.count) {
        refuse("descriptor buffer count mismatch");
    }
    for (std::size_t index = 0; index < expected.count; ++index) {
        const ConstBufferView read = storage.read->buffer(index);
        buffers[index] =
            marshal_buffer(read, writable_data(storage, index, read), expected.buffers[index]);
    }
    tessaline_operand_view view = abi_operand_view(descriptor, operand.access);
    view.buffers = buffers;
    view.buffer_count = expected.count;
    return view;
}

} // namespace Tessaline::PluginDetail::Internal

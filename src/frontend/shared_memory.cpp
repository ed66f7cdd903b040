// SPDX-License-Identifier: Apache-2.0
#include "frontend/shared_memory.h"

#include "tessaline/catalogue/backend_key.h"

#include <algorithm>
#include <stdexcept>
#include <string>

namespace Tessaline {

namespace {

/// Null for storage that offers none.
const ErasedBufferAccess* buffers_of(const OperandBinding& binding) {
    return std::visit(
        [](const auto& bound) -> const ErasedBufferAccess* {
            using Entity = std::remove_cvref_t<decltype(bound.get())>;
            if constexpr (std::is_base_of_v<ErasedBufferAccess, Entity>) {
                return &bound.get();
            } else {
                return const_cast<Entity&>(bound.get()).buffer_access().buffers;
            }
        },
        binding);
}

/// Buffers have no gaps, so a comparison of their bounds is exact.
bool overlap(const ConstBufferView& a, const ConstBufferView& b) {
    const auto a_begin = reinterpret_cast<std::uintptr_t>(a.data);
    const auto b_begin = reinterpret_cast<std::uintptr_t>(b.data);
    return a.count != 0 && b.count != 0 && a_begin < b_begin + b.count * b.element_size &&
           b_begin < a_begin + a.count * a.element_size;
}

bool overlaps_any(const ConstBufferView& buffer, const ErasedBufferAccess& buffers) {
    const std::size_t count = buffers.buffer_count();
    for (std::size_t index = 0; index < count; ++index) {
        if (overlap(buffer, buffers.buffer(index))) {
            return true;
        }
    }
    return false;
}

bool are_one_memory(const ErasedBufferAccess& a, const ErasedBufferAccess& b) {
    const std::size_t count = a.buffer_count();
    bool same = b.buffer_count() == count;
    for (std::size_t index = 0; same && index < count; ++index) {
        const ConstBufferView mine = a.buffer(index);
        const ConstBufferView theirs = b.buffer(index);
        same = mine.data == theirs.data && mine.count == theirs.count;
    }
    return same;
}

bool are_alike(const OperandDescriptor& a, const OperandDescriptor& b) {
    const MatrixDescriptor* const matrix = a.matrix();
    return operand_key_for(a) == operand_key_for(b) &&
           (matrix == nullptr || matrix->rows() == b.matrix()->rows());
}

const OperandDescriptor& described(std::span<const OperandDescriptor> operands, OperandRole role) {
    return *std::ranges::find(operands, role, &OperandDescriptor::role);
}

/// An operand's role and its memory, null where its storage offers no access to it.
struct OperandMemory {
    OperandRole role;
    const ErasedBufferAccess* buffers;
};

struct Call {
    const OperationSpec& spec;
    const OperationDescriptor& request;
    const BackendExecutionBindings& bindings;

    OperandMemory operand(OperandRole role) const {
        return {role, buffers_of(bindings.operands.at(role))};
    }
    bool may_replace(const OperandMemory& input, const OperandMemory& output) const {
        return spec.in_place_use() == InPlaceUse::elementwise && !is_output_role(input.role) &&
               are_one_memory(*input.buffers, *output.buffers) &&
               are_alike(described(request.inputs(), input.role),
                         described(request.outputs(), output.role));
    }
    void refuse_sharing(const OperandMemory& output, const ConstBufferView& buffer) const;
};

void Call::refuse_sharing(const OperandMemory& output, const ConstBufferView& buffer) const {
    // In role order: all inputs and the outputs before this one, so that a pair is looked at once.
    for (const OperationOperandSpec& contract : spec.operands()) {
        if (contract.role == output.role) {
            break;
        }
        const OperandMemory other = operand(contract.role);
        if (other.buffers != nullptr && overlaps_any(buffer, *other.buffers) &&
            !may_replace(other, output)) {
            throw std::invalid_argument(
                "TessalineExecutor::execute - " + operand_role_name(output.role) + " overlaps " +
                operand_role_name(other.role) + " in operation '" + spec.id().canonical() + "'");
        }
    }
}

/// Two planes of an output that lie over each other.
void refuse_own_sharing(const OperationSpec& spec, const OperandMemory& output,
                        const ConstBufferView& buffer, std::size_t index) {
    for (std::size_t before = 0; before < index; ++before) {
        if (overlap(buffer, output.buffers->buffer(before))) {
            throw std::invalid_argument(
                "TessalineExecutor::execute - " + operand_role_name(output.role) +
                " overlaps itself in operation '" + spec.id().canonical() + "'");
        }
    }
}

} // namespace

void refuse_shared_memory(const OperationSpec& spec, const OperationDescriptor& request,
                          const BackendExecutionBindings& bindings) {
    const Call call{spec, request, bindings};
    for (const OperationOperandSpec& contract : spec.outputs()) {
        const OperandMemory output = call.operand(contract.role);
        const std::size_t count = output.buffers == nullptr ? 0 : output.buffers->buffer_count();
        for (std::size_t index = 0; index < count; ++index) {
            const ConstBufferView buffer = output.buffers->buffer(index);
            refuse_own_sharing(spec, output, buffer, index);
            call.refuse_sharing(output, buffer);
        }
    }
}

} // namespace Tessaline

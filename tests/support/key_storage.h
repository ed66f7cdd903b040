// SPDX-License-Identifier: Apache-2.0
#pragma once

// Host operands made from the key of an implementation, so that its kernel can be run on exactly
// what the key promises.

#include "tessaline/dispatch/backend_registry.h"
#include "tessaline/storage/buffer_access.h"
#include "tessaline/storage/numeric_policy.h"
#include "tessaline/storage/storage_factory.h"

#include <algorithm>
#include <variant>
#include <vector>

namespace Tessaline::Testing {

/// Calls `body(parts, count, parts_of_an_element)` with a buffer of floating elements of any type.
template <typename Body>
void visit_parts(const MutableBufferView& view, const Body& body) {
    const ScalarMetadata& element = scalar_metadata(view.scalar_type);
    const std::uint64_t parts = view.element_size / scalar_metadata(element.component).size;
    const auto visit = [&]<typename Part>(std::type_identity<Part>) {
        if (element.component == ElementTraits<Part>::scalar_type) {
            body(static_cast<Part*>(view.data), parts * view.count, parts);
        }
    };
    visit(std::type_identity<Float16>{});
    visit(std::type_identity<BFloat16>{});
    visit(std::type_identity<float>{});
    visit(std::type_identity<double>{});
}

/// Operands bound by role: scalars, and vectors and square matrices of an order.
class OperandsOfKeys {
  public:
    /// `fill(role, buffers)` sets the elements.
    template <typename Fill>
    OperandsOfKeys(const BackendRegistryKey& key, std::uint64_t input_order,
                   std::uint64_t output_order, const Fill& fill) {
        for (std::size_t index = 0; index < key.inputs().size(); ++index) {
            add(input_role(index), key.inputs()[index], input_order, fill);
        }
        for (std::size_t index = 0; index < key.output_count(); ++index) {
            add(output_role(index), key.outputs()[index], output_order, fill);
        }
    }

    BackendExecutionBindings& bindings() { return bindings_; }

    /// Calls `body` with each buffer of the outputs.
    template <typename Body>
    void for_each_output(const Body& body) {
        for (std::size_t index = 0; index < entities_.size(); ++index) {
            if (is_output_role(bindings_.roles[index])) {
                std::visit(
                    [&](const auto& entity) {
                        auto& buffers = erased_buffers(*entity, "test operand");
                        for (std::size_t i = 0; i < buffers.buffer_count(); ++i) {
                            body(buffers.buffer(i));
                        }
                    },
                    entities_[index]);
            }
        }
    }

  private:
    using Entity = std::variant<std::unique_ptr<ScalarEntity>, std::unique_ptr<VectorEntity>,
                                std::unique_ptr<MatrixEntity>, std::unique_ptr<LuDecompEntity>,
                                std::unique_ptr<EigenValsEntity>>;

    static Entity make(const BackendOperandKey& key, std::uint64_t order) {
        const auto type = DataTypeDescriptor::from_scalar_types(key.storage, key.compute);
        switch (key.kind) {
        case OperandKind::Vector:
            return StorageFactory::host_vector(type, order, key.complex);
        case OperandKind::Matrix:
            return StorageFactory::host_matrix(type, order, order, key.layout.value(), key.complex);
        case OperandKind::LuDecomp:
            return StorageFactory::host_lu(type, order);
        case OperandKind::EigenVals:
            return StorageFactory::host_eigen(type, order, key.layout.value());
        case OperandKind::Scalar:
            break;
        }
        return StorageFactory::host_scalar(type);
    }

    template <typename Fill>
    void add(OperandRole role, const BackendOperandKey& key, std::uint64_t order,
             const Fill& fill) {
        std::visit(
            [&](const auto& entity) {
                fill(role, erased_buffers(*entity, "test operand"));
                bindings_.operands.insert(role, std::ref(*entity));
            },
            entities_.emplace_back(make(key, order)));
        bindings_.roles.push_back(role);
    }

    std::vector<Entity> entities_;
    BackendExecutionBindings bindings_;
};

} // namespace Tessaline::Testing

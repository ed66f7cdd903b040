// SPDX-License-Identifier: Apache-2.0
#pragma once

// The value that stands for one bound operand of a run.

#include "tessaline/catalogue/operand.h"
#include "tessaline/storage/entities.h"

#include <functional>
#include <optional>
#include <type_traits>
#include <variant>

namespace Tessaline {

/// Refers to an operand that is not to be written.
template <typename Entity>
class ConstOperandEntityRef {
  public:
    explicit ConstOperandEntityRef(const Entity& entity) : entity_(&entity) {}

    const Entity& get() const { return *entity_; }

  private:
    const Entity* entity_;
};

/// Refers to an entity and owns nothing. Even alternatives are writable, odd ones const, and half
/// the index is the OperandKind.
using OperandBinding =
    std::variant<std::reference_wrapper<ScalarEntity>, ConstOperandEntityRef<ScalarEntity>,
                 std::reference_wrapper<VectorEntity>, ConstOperandEntityRef<VectorEntity>,
                 std::reference_wrapper<MatrixEntity>, ConstOperandEntityRef<MatrixEntity>,
                 std::reference_wrapper<LuDecompEntity>, ConstOperandEntityRef<LuDecompEntity>,
                 std::reference_wrapper<EigenValsEntity>, ConstOperandEntityRef<EigenValsEntity>>;

inline bool is_writable(const OperandBinding& binding) {
    return binding.index() % 2 == 0;
}

inline OperandKind operand_kind(const OperandBinding& binding) {
    return static_cast<OperandKind>(binding.index() / 2);
}

/// The operand as its entity describes it at this moment.
TESSALINE_API OperandDescriptor describe_operand(OperandRole role, const OperandBinding& binding);

TESSALINE_API const DataTopologyDescriptor& operand_topology(const OperandBinding& binding);

/// The device of an operand in device memory, empty for one on the host.
TESSALINE_API std::optional<std::int32_t> gpu_operand_device_id(const OperandBinding& binding);

/// What orders work on an operand in device memory, null for one on the host.
TESSALINE_API const GpuResidentEntity* operand_readiness(const OperandBinding& binding);

/// The bound entity of a kind, read-only. Raises std::bad_variant_access for another kind.
template <typename Entity>
const Entity& bound_entity(const OperandBinding& binding) {
    if (const auto* writable = std::get_if<std::reference_wrapper<Entity>>(&binding)) {
        return writable->get();
    }
    return std::get<ConstOperandEntityRef<Entity>>(binding).get();
}

/// The bound entity of a kind, for writing. Raises std::bad_variant_access for another kind and for
/// a const binding.
template <typename Entity>
Entity& writable_entity(const OperandBinding& binding) {
    return std::get<std::reference_wrapper<Entity>>(binding).get();
}

/// The bound entity of a kind, for reading if Const and for writing else. Raises what bound_entity
/// and writable_entity do.
template <typename Entity, bool Const>
auto& bound_operand(const OperandBinding& binding) {
    if constexpr (Const) {
        return bound_entity<Entity>(binding);
    } else {
        return writable_entity<Entity>(binding);
    }
}

} // namespace Tessaline

// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/steps/cpu_layout_adaptation.h"

#include "backend/cpu/steps/deferred_planes.h"
#include "tessaline/backend/cpu/adapt_operand_step.h"
#include "tessaline/storage/numeric_policy.h"

#include <stdexcept>

namespace Tessaline {

namespace {

bool is_dense(const BackendOperandKey& key) {
    return key.format.value == 0;
}

DataTypeDescriptor type_of(const BackendOperandKey& key) {
    return DataTypeDescriptor::from_scalar_types(key.storage, key.compute);
}

/// A temporary goes where its source was asked to be.
DataTopologyDescriptor unplaced(const DataTopologyDescriptor& source) {
    HostPlacement placement;
    placement.requested_numa_id = source.requested_numa_id();
    placement.host_allocation_policy = source.host_allocation_policy();
    return DataTopologyDescriptor::pageable_host(placement);
}

VectorDescriptor adapted(const VectorDescriptor& source, const BackendOperandKey& target) {
    return {source.size(), unplaced(source.topology()), type_of(target), DataVectorFormat::dense,
            target.complex};
}

MatrixDescriptor adapted(const MatrixDescriptor& source, const BackendOperandKey& target) {
    return {source.rows(),
            source.cols(),
            unplaced(source.topology()),
            type_of(target),
            DataMatrixFormat::dense,
            target.layout.value_or(DataMatrixLayout::row_major),
            target.complex};
}

template <typename Entity, typename T>
std::unique_ptr<BackendProcessStep> make_restoring_step(OperandRole role) {
    return std::make_unique<RestoreAdaptedStep>(role, [](const OperandBinding& adapted,
                                                         const OperandBinding& saved) {
        // What nobody asked for planes was written where it belongs.
        if (deferred_origin<Entity, T>(adapted) == nullptr) {
            copy_complex_layout<T>(bound_entity<Entity>(adapted), writable_entity<Entity>(saved));
        }
    });
}

template <typename Entity, typename T>
std::unique_ptr<BackendProcessStep> make_step(OperandRole role, const BackendOperandKey& target,
                                              bool copy) {
    using Owner = std::unique_ptr<Entity>;
    const bool deferred = target.complex == DataComplexLayout::split;
    return std::make_unique<AdaptOperandStep<Owner>>(
        role,
        [target, copy, deferred](const OperandBinding& source,
                                 const BackendExecutionBindings&) -> Owner {
            auto descriptor = adapted(bound_entity<Entity>(source).descriptor(), target);
            if (deferred) {
                return std::make_unique<DeferredSplit<Entity, T>>(std::move(descriptor), source,
                                                                  copy);
            }
            return DeferredPlanesDetail::make_storage(descriptor);
        },
        [copies = copy && !deferred](const OperandBinding& source, Entity& temporary) {
            if (copies) {
                copy_complex_layout<T>(bound_entity<Entity>(source), temporary);
            }
        });
}

template <typename Entity, typename T>
std::unique_ptr<BackendProcessStep> make_step(OperandRole role, const BackendOperandKey& target,
                                              bool copy, bool restore) {
    return restore ? make_restoring_step<Entity, T>(role)
                   : make_step<Entity, T>(role, target, copy);
}

} // namespace

bool supports_cpu_layout_adaptation(const BackendOperandKey& from, const BackendOperandKey& to) {
    const bool same_data = from.location == DataLocation::pageable_host &&
                           to.location == DataLocation::pageable_host && from.kind == to.kind &&
                           from.format == to.format && from.storage == to.storage &&
                           from.compute == to.compute;
    if (!same_data || !is_compiled_complex_policy(from.storage, from.compute) || !is_dense(from) ||
        from.complex != DataComplexLayout::interleaved) {
        return false;
    }
    if (from.kind == OperandKind::Vector) {
        return to.complex == DataComplexLayout::split;
    }
    if (from.kind != OperandKind::Matrix || !from.layout || !to.layout) {
        return false;
    }
    return to.complex == DataComplexLayout::split
               ? *from.layout == DataMatrixLayout::row_major &&
                     *to.layout == DataMatrixLayout::row_major
               : to.complex == DataComplexLayout::interleaved && *from.layout != *to.layout;
}

std::unique_ptr<BackendProcessStep>
adapt_cpu_layout(OperandRole role, const BackendOperandKey& target, bool copy, bool restore) {
    return visit_numeric_policy(
        type_of(target), [&](auto policy) -> std::unique_ptr<BackendProcessStep> {
            using Policy = decltype(policy);
            if constexpr (Policy::is_complex) {
                using Part = Component<typename Policy::Stored>;
                if (target.kind == OperandKind::Vector) {
                    return make_step<VectorEntity, Part>(role, target, copy, restore);
                }
                if (target.kind == OperandKind::Matrix) {
                    return make_step<MatrixEntity, Part>(role, target, copy, restore);
                }
            }
            throw std::invalid_argument(
                "CPU layout adaptation - unsupported policy or operand kind");
        });
}

} // namespace Tessaline

// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/cpu_layout_adaptation.h"

#include "backend/cpu/cpu_layout_copy.h"
#include "tessaline/backend/cpu/adapt_operand_step.h"
#include "tessaline/backend/cpu/register_cpu.h"
#include "tessaline/storage/numeric_policy.h"
#include "tessaline/storage/storage_factory.h"

#include <stdexcept>

namespace Tessaline {

namespace {

bool is_complex_policy(ScalarType storage, ScalarType compute) {
    return is_compiled_policy(storage, compute) &&
           scalar_metadata(storage).category == ScalarCategory::complex_floating;
}

bool is_dense(const BackendOperandKey& key) {
    return key.format.value == 0;
}

DataTypeDescriptor type_of(const BackendOperandKey& key) {
    return DataTypeDescriptor::from_scalar_types(key.storage, key.compute);
}

/// A temporary goes where its source was asked to be.
HostMemoryOptions memory_of(const DataTopologyDescriptor& topology) {
    return {topology.requested_numa_id(),
            static_cast<HostMemoryPolicy>(topology.host_allocation_policy())};
}

std::unique_ptr<VectorEntity> like(const VectorEntity& source, const BackendOperandKey& target) {
    const VectorDescriptor& descriptor = source.descriptor();
    return StorageFactory::host_vector(type_of(target), descriptor.size(), target.complex,
                                       memory_of(descriptor.topology()));
}

std::unique_ptr<MatrixEntity> like(const MatrixEntity& source, const BackendOperandKey& target) {
    const MatrixDescriptor& descriptor = source.descriptor();
    return StorageFactory::host_matrix(type_of(target), descriptor.rows(), descriptor.cols(),
                                       target.layout.value_or(DataMatrixLayout::row_major),
                                       target.complex, memory_of(descriptor.topology()));
}

template <typename Entity, typename T>
std::unique_ptr<BackendProcessStep> make_step(OperandRole role, const BackendOperandKey& target,
                                              bool copy, bool restore) {
    if (restore) {
        return std::make_unique<RestoreAdaptedStep>(role, [](const OperandBinding& adapted,
                                                             const OperandBinding& saved) {
            copy_complex_layout<T>(bound_entity<Entity>(adapted), writable_entity<Entity>(saved));
        });
    }
    return std::make_unique<AdaptOperandStep<std::unique_ptr<Entity>>>(
        role,
        [target](const OperandBinding& source, const BackendExecutionBindings&) {
            return like(bound_entity<Entity>(source), target);
        },
        [copy](const OperandBinding& source, Entity& adapted) {
            if (copy) {
                copy_complex_layout<T>(bound_entity<Entity>(source), adapted);
            }
        });
}

} // namespace

bool supports_cpu_layout_adaptation(const BackendOperandKey& from, const BackendOperandKey& to) {
    const bool same_data = from.location == DataLocation::pageable_host &&
                           to.location == DataLocation::pageable_host && from.kind == to.kind &&
                           from.format == to.format && from.storage == to.storage &&
                           from.compute == to.compute;
    if (!same_data || !is_complex_policy(from.storage, from.compute) || !is_dense(from) ||
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

void register_cpu_adaptations(BackendAdaptationRegistry& adaptations) {
    adaptations.inputs.push_back(
        {supports_cpu_layout_adaptation,
         [](OperandRole role, const BackendOperandKey&, const BackendOperandKey& registered) {
             BackendAdaptationRegistry::StepSequence steps;
             steps.push_back(adapt_cpu_layout(role, registered, true, false));
             return steps;
         }});
    adaptations.outputs.push_back(
        {supports_cpu_layout_adaptation, [](OperandRole role, const BackendOperandKey&,
                                            const BackendOperandKey& registered, bool preserve) {
             return BackendAdaptationRegistry::StepPair(
                 adapt_cpu_layout(role, registered, preserve, false),
                 adapt_cpu_layout(role, registered, true, true));
         }});
}

} // namespace Tessaline

// SPDX-License-Identifier: Apache-2.0
#include "tessaline/storage/storage_factory.h"

#include "tessaline/storage/host_entities.h"

#include <stdexcept>

namespace Tessaline::StorageFactory {

namespace {

void check_contract(OperandKind kind, OperandFormat format, const DataTypeDescriptor& type,
                    DataComplexLayout complex_layout, std::optional<DataMatrixLayout> layout) {
    if (!dense_storage_contract({kind, DataLocation::pageable_host, format, type.storage_type(),
                                 type.compute_type(), complex_layout, layout})) {
        throw std::invalid_argument("dense storage - unsupported scalar category, shape or layout");
    }
}

template <BufferElement T>
HostBuffer<T> make_buffer(const std::optional<ConstBufferView>& contents, std::uint64_t count,
                          HostMemoryOptions options, std::string_view what) {
    if (!contents) {
        return HostBuffer<T>(count, options);
    }
    validate_buffer_type<T>(*contents, count, what);
    return HostBuffer<T>(std::span(static_cast<const T*>(contents->data), count), options);
}

} // namespace

std::unique_ptr<VectorEntity> host_vector(const DataTypeDescriptor& type, std::uint64_t size,
                                          DataComplexLayout complex_layout,
                                          HostMemoryOptions options,
                                          const StorageInitialiser& initialiser) {
    check_contract(OperandKind::Vector, OperandFormat::of(DataVectorFormat::dense), type,
                   complex_layout, {});
    return visit_numeric_policy(type, [&](auto policy) -> std::unique_ptr<VectorEntity> {
        using Policy = decltype(policy);
        using Stored = typename Policy::Stored;
        initialiser.validate(size, complex_layout == DataComplexLayout::split);
        if constexpr (!Policy::is_complex) {
            auto data = make_buffer<Stored>(initialiser.first(), size, options, "host vector");
            VectorDescriptor descriptor(
                size, host_buffers_topology(DataLocation::pageable_host, options, data),
                Policy::type(), DataVectorFormat::dense, complex_layout);
            return std::make_unique<DenseHostRealVector<Stored, typename Policy::Compute>>(
                std::move(descriptor), std::move(data));
        }
        throw std::invalid_argument("host vector - unsupported complex layout for policy");
    });
}

} // namespace Tessaline::StorageFactory

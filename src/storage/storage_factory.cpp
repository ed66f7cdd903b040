// SPDX-License-Identifier: Apache-2.0
#include "tessaline/storage/storage_factory.h"

#include "tessaline/storage/host_eigen_vals.h"
#include "tessaline/storage/host_entities.h"
#include "tessaline/storage/host_lu_decomp.h"

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

/// The layout that structured storage of a policy has: interleaved when complex.
DataComplexLayout whole_layout(const DataTypeDescriptor& type) {
    const ScalarCategory category = scalar_metadata(type.storage_type()).category;
    return category == ScalarCategory::complex_floating ? DataComplexLayout::interleaved
                                                        : DataComplexLayout::none;
}

/// What the buffers of one operand are made from.
struct Request {
    HostMemoryOptions options;
    const StorageInitialiser& initialiser;
    std::uint64_t count; ///< elements of each buffer

    template <BufferElement T>
    HostBuffer<T> make_buffer(const std::optional<ConstBufferView>& contents,
                              std::string_view what) const {
        if (!contents) {
            return HostBuffer<T>(count, options);
        }
        validate_buffer_type<T>(*contents, count, what);
        return HostBuffer<T>(std::span(static_cast<const T*>(contents->data), count), options);
    }

    /// Makes the entity over one buffer; `describe` gives the descriptor for a topology.
    template <template <typename, typename> typename Entity, typename Policy, typename Describe>
    auto make_single(const Describe& describe, std::string_view what) const {
        using Stored = typename Policy::Stored;
        auto data = make_buffer<Stored>(initialiser.first(), what);
        auto descriptor =
            describe(host_buffers_topology(DataLocation::pageable_host, options, data));
        return std::make_unique<Entity<Stored, typename Policy::Compute>>(std::move(descriptor),
                                                                          std::move(data));
    }

    /// The same over a real and an imaginary buffer.
    template <template <typename, typename> typename Entity, typename Policy, typename Describe>
    auto make_split(const Describe& describe, std::string_view what) const {
        using Stored = Component<typename Policy::Stored>;
        auto real = make_buffer<Stored>(initialiser.first(), what);
        auto imag = make_buffer<Stored>(initialiser.second(), what);
        auto descriptor =
            describe(host_buffers_topology(DataLocation::pageable_host, options, real, imag));
        return std::make_unique<Entity<Stored, Component<typename Policy::Compute>>>(
            std::move(descriptor), std::move(real), std::move(imag));
    }
};

template <typename Policy>
std::unique_ptr<MatrixEntity> make_matrix(const Request& request, std::uint64_t rows,
                                          std::uint64_t cols, DataMatrixLayout layout,
                                          DataComplexLayout complex_layout) {
    const auto describe = [&](DataTopologyDescriptor topology) {
        return MatrixDescriptor(rows, cols, std::move(topology), Policy::type(),
                                DataMatrixFormat::dense, layout, complex_layout);
    };
    const bool row_major = layout == DataMatrixLayout::row_major;
    if constexpr (Policy::is_complex) {
        if (complex_layout == DataComplexLayout::interleaved && row_major) {
            return request.make_single<DenseHostComplexIntlvMatrixRowMajor, Policy>(describe,
                                                                                    "host matrix");
        }
        if (complex_layout == DataComplexLayout::interleaved) {
            return request.make_single<DenseHostComplexIntlvMatrixColMajor, Policy>(describe,
                                                                                    "host matrix");
        }
        if (complex_layout == DataComplexLayout::split && row_major) {
            return request.make_split<DenseHostComplexSplitMatrixRowMajor, Policy>(
                describe, "host split matrix");
        }
    } else if (complex_layout == DataComplexLayout::none && row_major) {
        return request.make_single<DenseHostRealMatrixRowMajor, Policy>(describe, "host matrix");
    }
    throw std::invalid_argument("host matrix - unsupported layout for policy");
}

template <typename Policy>
std::unique_ptr<VectorEntity> make_vector(const Request& request,
                                          DataComplexLayout complex_layout) {
    const auto describe = [&](DataTopologyDescriptor topology) {
        return VectorDescriptor(request.count, std::move(topology), Policy::type(),
                                DataVectorFormat::dense, complex_layout);
    };
    if constexpr (Policy::is_complex) {
        if (complex_layout == DataComplexLayout::interleaved) {
            return request.make_single<DenseHostComplexIntlvVector, Policy>(describe,
                                                                            "host vector");
        }
        if (complex_layout == DataComplexLayout::split) {
            return request.make_split<DenseHostComplexSplitVector, Policy>(describe,
                                                                           "host split vector");
        }
    } else if (complex_layout == DataComplexLayout::none) {
        return request.make_single<DenseHostRealVector, Policy>(describe, "host vector");
    }
    throw std::invalid_argument("host vector - unsupported complex layout for policy");
}

} // namespace

std::unique_ptr<ScalarEntity> host_scalar(const DataTypeDescriptor& type, HostMemoryOptions options,
                                          const StorageInitialiser& initialiser) {
    check_contract(OperandKind::Scalar, {}, type, DataComplexLayout::none, {});
    return visit_numeric_policy(type, [&](auto policy) -> std::unique_ptr<ScalarEntity> {
        using Policy = decltype(policy);
        initialiser.validate(1, Policy::is_complex);
        const Request request{options, initialiser, 1};
        const auto describe = [](DataTopologyDescriptor topology) {
            return ScalarDescriptor(std::move(topology), Policy::type());
        };
        if constexpr (Policy::is_complex) {
            return request.make_split<BoundComplexScalarEntity, Policy>(describe, "host scalar");
        } else {
            return request.make_single<BoundRealScalarEntity, Policy>(describe, "host scalar");
        }
    });
}

std::unique_ptr<VectorEntity> host_vector(const DataTypeDescriptor& type, std::uint64_t size,
                                          DataComplexLayout complex_layout,
                                          HostMemoryOptions options,
                                          const StorageInitialiser& initialiser) {
    check_contract(OperandKind::Vector, OperandFormat::of(DataVectorFormat::dense), type,
                   complex_layout, {});
    return visit_numeric_policy(type, [&](auto policy) {
        initialiser.validate(size, complex_layout == DataComplexLayout::split);
        return make_vector<decltype(policy)>({options, initialiser, size}, complex_layout);
    });
}

std::unique_ptr<MatrixEntity> host_matrix(const DataTypeDescriptor& type, std::uint64_t rows,
                                          std::uint64_t cols, DataMatrixLayout layout,
                                          DataComplexLayout complex_layout,
                                          HostMemoryOptions options,
                                          const StorageInitialiser& initialiser) {
    check_contract(OperandKind::Matrix, OperandFormat::of(DataMatrixFormat::dense), type,
                   complex_layout, layout);
    return visit_numeric_policy(type, [&](auto policy) {
        const std::uint64_t count = checked_element_count(rows, cols);
        initialiser.validate(count, complex_layout == DataComplexLayout::split);
        return make_matrix<decltype(policy)>({options, initialiser, count}, rows, cols, layout,
                                             complex_layout);
    });
}

std::unique_ptr<LuDecompEntity> host_lu(const DataTypeDescriptor& type, std::uint64_t size,
                                        HostMemoryOptions options,
                                        const StorageInitialiser& initialiser) {
    check_contract(OperandKind::LuDecomp, OperandFormat::of(DataMatrixFormat::dense), type,
                   whole_layout(type), DataMatrixLayout::column_major);
    return visit_numeric_policy(type, [&](auto policy) -> std::unique_ptr<LuDecompEntity> {
        using Policy = decltype(policy);
        using Stored = typename Policy::Stored;
        const std::uint64_t count = checked_element_count(size, size);
        initialiser.validate(count, false);
        if constexpr (Policy::is_integer) {
            throw std::invalid_argument("host LU - unsupported numerical policy");
        } else {
            auto factors = Request{options, initialiser, count}.template make_buffer<Stored>(
                initialiser.first(), "host LU");
            HostBuffer<long> pivots(size, options);
            LuDecompDescriptor descriptor(
                size, host_buffers_topology(DataLocation::pageable_host, options, pivots, factors),
                DataTypeDescriptor::real_long(), Policy::type(), DataMatrixFormat::dense,
                DataMatrixLayout::column_major, whole_layout(type));
            return std::make_unique<
                DenseHostLUDecompColMajor<long, Stored, typename Policy::Compute>>(
                std::move(descriptor), std::move(pivots), std::move(factors));
        }
    });
}

std::unique_ptr<EigenValsEntity> host_eigen(const DataTypeDescriptor& type, std::uint64_t size,
                                            DataMatrixLayout layout, HostMemoryOptions options) {
    check_contract(OperandKind::EigenVals, OperandFormat::of(DataMatrixFormat::dense), type,
                   whole_layout(type), layout);
    return visit_numeric_policy(type, [&](auto policy) -> std::unique_ptr<EigenValsEntity> {
        using Policy = decltype(policy);
        if constexpr (Policy::is_complex) {
            return std::make_unique<
                HostEigenVals<typename Policy::Stored, typename Policy::Compute>>(size, layout,
                                                                                  options);
        } else {
            throw std::invalid_argument("host eigenvalues - unsupported policy or layout");
        }
    });
}

} // namespace Tessaline::StorageFactory

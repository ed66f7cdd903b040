// SPDX-License-Identifier: Apache-2.0
#pragma once

// How a request for dense storage becomes a concrete entity, wherever its memory lies. A Place
// tells what differs: `location`, the `label` that opens each message, the Buffer, and the class of
// each form of operand.

#include "tessaline/storage/host_buffer.h"
#include "tessaline/storage/storage_factory.h"

#include <stdexcept>
#include <string>

namespace Tessaline::DenseFactory {

/// Raises std::invalid_argument for a request outside the contract of dense storage.
void check_contract(OperandKind kind, const DataTypeDescriptor& type,
                    DataComplexLayout complex_layout, std::optional<DataMatrixLayout> layout);

/// The layout that structured storage of a policy has: interleaved when complex.
DataComplexLayout whole_layout(const DataTypeDescriptor& type);

template <typename Place>
[[noreturn]] void refuse(const char* complaint) {
    throw std::invalid_argument(std::string(Place::label) + complaint);
}

/// What the buffers of one operand are made from.
template <typename Place>
struct Request {
    HostMemoryOptions options;
    const StorageInitialiser& initialiser;
    std::uint64_t count; ///< elements of each buffer

    template <BufferElement T>
    using Buffer = typename Place::template Buffer<T>;

    template <BufferElement T>
    Buffer<T> make_buffer(const std::optional<ConstBufferView>& contents, const char* what) const {
        if (!contents) {
            return Buffer<T>(count, options);
        }
        validate_buffer_type<T>(*contents, count, std::string(Place::label) + what);
        return Buffer<T>(std::span(static_cast<const T*>(contents->data), count), options);
    }

    template <typename... Buffers>
    DataTopologyDescriptor topology(const Buffers&... buffers) const {
        return host_buffers_topology(Place::location, options, buffers...);
    }

    /// Makes the entity over one buffer; `describe` gives the descriptor for a topology.
    template <template <typename, typename> typename Entity, typename Policy, typename Describe>
    auto make_single(const Describe& describe, const char* what) const {
        using Stored = typename Policy::Stored;
        auto data = make_buffer<Stored>(initialiser.first(), what);
        auto descriptor = describe(topology(data));
        return std::make_unique<Entity<Stored, typename Policy::Compute>>(std::move(descriptor),
                                                                          std::move(data));
    }

    /// Makes the entity over a real and an imaginary buffer.
    template <template <typename, typename> typename Entity, typename Policy, typename Describe>
    auto make_split(const Describe& describe, const char* what) const {
        using Stored = Component<typename Policy::Stored>;
        auto real = make_buffer<Stored>(initialiser.first(), what);
        auto imag = make_buffer<Stored>(initialiser.second(), what);
        auto descriptor = describe(topology(real, imag));
        return std::make_unique<Entity<Stored, Component<typename Policy::Compute>>>(
            std::move(descriptor), std::move(real), std::move(imag));
    }
};

template <typename Place, typename Policy>
std::unique_ptr<MatrixEntity> make_matrix(const Request<Place>& request, std::uint64_t rows,
                                          std::uint64_t cols, DataMatrixLayout layout,
                                          DataComplexLayout complex_layout) {
    const auto describe = [&](DataTopologyDescriptor topology) {
        return MatrixDescriptor(rows, cols, std::move(topology), Policy::type(),
                                DataMatrixFormat::dense, layout, complex_layout);
    };
    const bool row_major = layout == DataMatrixLayout::row_major;
    if constexpr (Policy::is_complex) {
        if (complex_layout == DataComplexLayout::interleaved && row_major) {
            return request.template make_single<Place::template InterleavedMatrix, Policy>(
                describe, " matrix");
        }
        if (complex_layout == DataComplexLayout::interleaved) {
            return request.template make_single<Place::template InterleavedMatrixColMajor, Policy>(
                describe, " matrix");
        }
        if (complex_layout == DataComplexLayout::split && row_major) {
            return request.template make_split<Place::template SplitMatrix, Policy>(
                describe, " split matrix");
        }
    } else if (complex_layout == DataComplexLayout::none && row_major) {
        return request.template make_single<Place::template RealMatrix, Policy>(describe,
                                                                                " matrix");
    }
    refuse<Place>(" matrix - unsupported layout for policy");
}

template <typename Place, typename Policy>
std::unique_ptr<VectorEntity> make_vector(const Request<Place>& request,
                                          DataComplexLayout complex_layout) {
    const auto describe = [&](DataTopologyDescriptor topology) {
        return VectorDescriptor(request.count, std::move(topology), Policy::type(),
                                DataVectorFormat::dense, complex_layout);
    };
    if constexpr (Policy::is_complex) {
        if (complex_layout == DataComplexLayout::interleaved) {
            return request.template make_single<Place::template InterleavedVector, Policy>(
                describe, " vector");
        }
        if (complex_layout == DataComplexLayout::split) {
            return request.template make_split<Place::template SplitVector, Policy>(
                describe, " split vector");
        }
    } else if (complex_layout == DataComplexLayout::none) {
        return request.template make_single<Place::template RealVector, Policy>(describe,
                                                                                " vector");
    }
    refuse<Place>(" vector - unsupported complex layout for policy");
}

template <typename Place>
std::unique_ptr<ScalarEntity> scalar(const DataTypeDescriptor& type, HostMemoryOptions options,
                                     const StorageInitialiser& initialiser) {
    check_contract(OperandKind::Scalar, type, DataComplexLayout::none, {});
    return visit_numeric_policy(type, [&](auto policy) -> std::unique_ptr<ScalarEntity> {
        using Policy = decltype(policy);
        initialiser.validate(1, Policy::is_complex);
        const Request<Place> request{options, initialiser, 1};
        const auto describe = [](DataTopologyDescriptor topology) {
            return ScalarDescriptor(std::move(topology), Policy::type());
        };
        if constexpr (Policy::is_complex) {
            return request.template make_split<Place::template SplitScalar, Policy>(describe,
                                                                                    " scalar");
        } else {
            return request.template make_single<Place::template RealScalar, Policy>(describe,
                                                                                    " scalar");
        }
    });
}

template <typename Place>
std::unique_ptr<VectorEntity> vector(const DataTypeDescriptor& type, std::uint64_t size,
                                     DataComplexLayout complex_layout, HostMemoryOptions options,
                                     const StorageInitialiser& initialiser) {
    check_contract(OperandKind::Vector, type, complex_layout, {});
    return visit_numeric_policy(type, [&](auto policy) {
        initialiser.validate(size, complex_layout == DataComplexLayout::split);
        return make_vector<Place, decltype(policy)>({options, initialiser, size}, complex_layout);
    });
}

template <typename Place>
std::unique_ptr<MatrixEntity> matrix(const DataTypeDescriptor& type, std::uint64_t rows,
                                     std::uint64_t cols, DataMatrixLayout layout,
                                     DataComplexLayout complex_layout, HostMemoryOptions options,
                                     const StorageInitialiser& initialiser) {
    check_contract(OperandKind::Matrix, type, complex_layout, layout);
    return visit_numeric_policy(type, [&](auto policy) {
        const std::uint64_t count = checked_element_count(rows, cols);
        initialiser.validate(count, complex_layout == DataComplexLayout::split);
        return make_matrix<Place, decltype(policy)>({options, initialiser, count}, rows, cols,
                                                    layout, complex_layout);
    });
}

template <typename Place>
std::unique_ptr<LuDecompEntity> lu(const DataTypeDescriptor& type, std::uint64_t size,
                                   HostMemoryOptions options,
                                   const StorageInitialiser& initialiser) {
    check_contract(OperandKind::LuDecomp, type, whole_layout(type), DataMatrixLayout::column_major);
    return visit_numeric_policy(type, [&](auto policy) -> std::unique_ptr<LuDecompEntity> {
        using Policy = decltype(policy);
        using Stored = typename Policy::Stored;
        const std::uint64_t count = checked_element_count(size, size);
        initialiser.validate(count, false);
        if constexpr (Policy::is_integer) {
            refuse<Place>(" LU - unsupported numerical policy");
        } else {
            const Request<Place> request{options, initialiser, count};
            auto factors = request.template make_buffer<Stored>(initialiser.first(), " LU");
            typename Place::template Buffer<long> pivots(size, options);
            LuDecompDescriptor descriptor(size, request.topology(pivots, factors),
                                          DataTypeDescriptor::real_long(), Policy::type(),
                                          DataMatrixFormat::dense, DataMatrixLayout::column_major,
                                          whole_layout(type));
            return std::make_unique<
                typename Place::template LuDecomp<Stored, typename Policy::Compute>>(
                std::move(descriptor), std::move(pivots), std::move(factors));
        }
    });
}

template <typename Place>
std::unique_ptr<EigenValsEntity> eigen(const DataTypeDescriptor& type, std::uint64_t size,
                                       DataMatrixLayout layout, HostMemoryOptions options) {
    check_contract(OperandKind::EigenVals, type, whole_layout(type), layout);
    return visit_numeric_policy(type, [&](auto policy) -> std::unique_ptr<EigenValsEntity> {
        using Policy = decltype(policy);
        if constexpr (Policy::is_complex) {
            return std::make_unique<typename Place::template EigenVals<typename Policy::Stored,
                                                                       typename Policy::Compute>>(
                size, layout, options);
        } else {
            refuse<Place>(" eigenvalues - unsupported policy or layout");
        }
    });
}

} // namespace Tessaline::DenseFactory

// SPDX-License-Identifier: Apache-2.0
#include "tessaline/frontend/lu_factorisation.h"

#include "frontend/null_storage.h"
#include "tessaline/storage/storage_factory.h"

#include <algorithm>
#include <stdexcept>

namespace Tessaline {

namespace {

constexpr const char* initialisation = "LU initialisation";

/// Calls store(target, source) with the positions in the column-major target and the source of each
/// element of a matrix of order n.
template <typename Store>
void for_each_transposed(std::uint64_t n, DataMatrixLayout source_layout, const Store& store) {
    if (source_layout == DataMatrixLayout::column_major) {
        for (std::uint64_t index = 0; index < n * n; ++index) {
            store(index, index);
        }
        return;
    }
    // One side strides by n elements. In square tiles of this edge both sides stay in the first
    // cache: 32 lines of the one, 2 to 8 lines for each column of the other.
    constexpr std::uint64_t tile = 32;
    for (std::uint64_t column = 0; column < n; column += tile) {
        for (std::uint64_t row = 0; row < n; row += tile) {
            for (std::uint64_t j = column; j < std::min(column + tile, n); ++j) {
                for (std::uint64_t i = row; i < std::min(row + tile, n); ++i) {
                    store(i + j * n, i * n + j);
                }
            }
        }
    }
}

template <typename Stored>
void copy_factors(const Matrix& source, const ErasedBufferAccess& buffers, Stored* factors) {
    using Part = Component<Stored>;
    const std::uint64_t count = source.size();
    if constexpr (is_complex_element<Stored>) {
        if (source.is_complex_split()) {
            const auto* real =
                require_buffer_data<Part>(buffers, BufferRole::real, count, initialisation);
            const auto* imag =
                require_buffer_data<Part>(buffers, BufferRole::imaginary, count, initialisation);
            for_each_transposed(source.rows(), source.layout(), [&](auto target, auto from) {
                factors[target] = Stored(real[from], imag[from]);
            });
            return;
        }
    }
    const auto* data =
        require_buffer_data<Stored>(buffers, BufferRole::data, count, initialisation);
    for_each_transposed(source.rows(), source.layout(),
                        [&](auto target, auto from) { factors[target] = data[from]; });
}

void check_source(const Matrix& source) {
    if (source.topology().is_gpu() || source.rows() != source.cols()) {
        throw std::invalid_argument("LU initialisation - a square host matrix is required");
    }
    const ScalarType storage = source.type().storage_type();
    if (scalar_metadata(storage).category == ScalarCategory::real_integer ||
        !is_compiled_policy(storage, source.type().compute_type())) {
        throw std::invalid_argument("LU initialisation - floating point matrix required");
    }
}

} // namespace

LuFactorisation::LuFactorisation(std::unique_ptr<LuDecompEntity> storage)
    : storage_(require_storage(std::move(storage), "LuFactorisation")) {}

LuFactorisation LuFactorisation::host_impl(const DataTypeDescriptor& type, std::uint64_t size,
                                           HostMemoryOptions options,
                                           const StorageInitialiser& initialiser) {
    return LuFactorisation(StorageFactory::host_lu(type, size, options, initialiser));
}

LuFactorisation LuFactorisation::from_host_matrix(const Matrix& source, HostMemoryOptions options) {
    check_source(source);
    LuFactorisation result = host_impl(source.type(), source.rows(), options);
    const ErasedBufferAccess& buffers = erased_buffers(source.entity(), initialisation);
    visit_numeric_policy(source.type(), [&](auto policy) {
        using Stored = typename decltype(policy)::Stored;
        auto* factors = require_buffer_data<Stored>(result.entity(), BufferRole::lu_factors,
                                                    source.size(), initialisation);
        copy_factors(source, buffers, factors);
    });
    return result;
}

} // namespace Tessaline

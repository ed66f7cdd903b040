// SPDX-License-Identifier: Apache-2.0
#include "tessaline/frontend/lu_factorisation.h"

#include "backend/cpu/steps/turned_parts.h"
#include "frontend/null_storage.h"
#include "tessaline/storage/storage_factory.h"

#include <algorithm>
#include <stdexcept>

namespace Tessaline {

namespace {

constexpr const char* initialisation = "LU initialisation";

template <typename Stored>
void copy_factors(const Matrix& source, const ErasedBufferAccess& buffers, Stored* factors) {
    using Part = Component<Stored>;
    const std::uint64_t n = source.rows();
    const std::uint64_t count = source.size();
    // Copies go through the caches, since a factorisation reads the factors next.
    if constexpr (is_complex_element<Stored>) {
        if (source.is_complex_split()) {
            const auto* real =
                require_buffer_data<Part>(buffers, BufferRole::real, count, initialisation);
            const auto* imag =
                require_buffer_data<Part>(buffers, BufferRole::imaginary, count, initialisation);
            copy_parts_transposed(ComplexParts<const Part, 1>{real, imag},
                                  interleaved_parts(reinterpret_cast<Part*>(factors)), n, n, 0, n,
                                  false);
            return;
        }
    }
    const auto* data =
        require_buffer_data<Stored>(buffers, BufferRole::data, count, initialisation);
    if (source.is_col_major()) {
        std::copy_n(data, count, factors);
    } else {
        copy_transposed(as_bits(data), n, as_bits(factors), n, n, n, BitsOf<Stored>{}, false);
    }
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

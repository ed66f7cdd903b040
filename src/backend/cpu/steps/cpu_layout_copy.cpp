// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/steps/cpu_layout_copy.h"

#include "backend/cpu/steps/cpu_chunks.h"
#include "backend/cpu/steps/turned_parts.h"
#include "tessaline/storage/buffer_access.h"
#include "tessaline/storage/element_count.h"
#include "tessaline/storage/element_traits.h"

#include <stdexcept>
#include <type_traits>

namespace Tessaline {

namespace {

constexpr const char* input_name = "CPU layout input";
constexpr const char* output_name = "CPU layout output";

template <typename T, std::uint64_t From, std::uint64_t To>
void copy_elements(ComplexParts<const T, From> source, ComplexParts<T, To> target,
                   std::uint64_t begin, std::uint64_t end) {
    for (std::uint64_t index = begin; index < end; ++index) {
        target.real[index * To] = source.real[index * From];
        target.imag[index * To] = source.imag[index * From];
    }
}

/// The elements of an interleaved operand, as the type that its buffer holds.
template <typename T>
using Interleaved = std::conditional_t<std::is_same_v<T, Float16>, Complex32, std::complex<T>>;

/// Calls `use` with the parts of an operand, read-only for a const Entity.
template <typename T, typename Entity, typename Use>
void with_parts(Entity& entity, std::uint64_t count, const char* name, const Use& use) {
    using Part = std::conditional_t<std::is_const_v<Entity>, const T, T>;
    auto& buffers = erased_buffers(entity, name);
    if (entity.descriptor().complex_layout() == DataComplexLayout::interleaved) {
        auto* elements =
            require_buffer_data<Interleaved<T>>(buffers, BufferRole::data, count, name);
        use(interleaved_parts(reinterpret_cast<Part*>(elements)));
    } else {
        use(ComplexParts<Part, 1>{
            require_buffer_data<T>(buffers, BufferRole::real, count, name),
            require_buffer_data<T>(buffers, BufferRole::imaginary, count, name)});
    }
}

template <typename T, typename Source, typename Target, typename Copy>
void with_both(const Source& source, Target& target, std::uint64_t count, const Copy& copy) {
    with_parts<T>(source, count, input_name, [&](auto from) {
        with_parts<T>(target, count, output_name, [&](auto to) { copy(from, to); });
    });
}

void require_agreement(bool same_shape, const DataTypeDescriptor& source,
                       const DataTypeDescriptor& target) {
    if (!same_shape || source.storage_type() != target.storage_type() ||
        source.compute_type() != target.compute_type()) {
        throw std::invalid_argument("CPU layout adaptation - shape or numerical policy mismatch");
    }
}

template <typename T, typename Source, typename Target>
void copy_in_order(const Source& source, Target& target, std::uint64_t count) {
    with_both<T>(source, target, count, [&](auto from, auto to) {
        for_chunks(count, count, [&](std::uint64_t begin, std::uint64_t end) {
            copy_elements(from, to, begin, end);
        });
    });
}

} // namespace

template <typename T>
void copy_complex_layout(const VectorEntity& source, VectorEntity& target) {
    const VectorDescriptor& from = source.descriptor();
    const VectorDescriptor& to = target.descriptor();
    require_agreement(from.size() == to.size(), from.type(), to.type());
    copy_in_order<T>(source, target, from.size());
}

template <typename T>
void copy_complex_layout(const MatrixEntity& source, MatrixEntity& target) {
    const MatrixDescriptor& from = source.descriptor();
    const MatrixDescriptor& to = target.descriptor();
    require_agreement(from.rows() == to.rows() && from.cols() == to.cols(), from.type(), to.type());
    const std::uint64_t count = checked_element_count(from.rows(), from.cols());
    if (from.layout() == to.layout()) {
        copy_in_order<T>(source, target, count);
        return;
    }
    // A column-major matrix is its transpose in row-major order.
    const bool row_major = from.layout() == DataMatrixLayout::row_major;
    const std::uint64_t rows = row_major ? from.rows() : from.cols();
    const std::uint64_t cols = row_major ? from.cols() : from.rows();
    const bool past_caches = count * 2 * sizeof(T) >= least_bytes_past_caches;
    with_both<T>(source, target, count, [&](auto parts_from, auto parts_to) {
        for_chunks(rows, count, [&](std::uint64_t begin, std::uint64_t end) {
            copy_parts_transposed(parts_from, parts_to, rows, cols, begin, end, past_caches);
        });
    });
}

#define TESSALINE_INSTANTIATE(T)                                                                   \
    template void copy_complex_layout<T>(const VectorEntity&, VectorEntity&);                      \
    template void copy_complex_layout<T>(const MatrixEntity&, MatrixEntity&);
TESSALINE_INSTANTIATE(Float16)
TESSALINE_INSTANTIATE(float)
TESSALINE_INSTANTIATE(double)
#undef TESSALINE_INSTANTIATE

} // namespace Tessaline

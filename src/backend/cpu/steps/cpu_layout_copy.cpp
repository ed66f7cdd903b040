// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/steps/cpu_layout_copy.h"

#include "backend/cpu/numbers/element_bits.h"
#include "backend/cpu/simd/tables/transposed_copy.h"
#include "backend/cpu/steps/cpu_chunks.h"
#include "tessaline/storage/buffer_access.h"
#include "tessaline/storage/element_count.h"
#include "tessaline/storage/element_traits.h"

#include <algorithm>
#include <cstring>
#include <emmintrin.h>
#include <stdexcept>
#include <type_traits>

namespace Tessaline {

namespace {

constexpr const char* input_name = "CPU layout input";
constexpr const char* output_name = "CPU layout output";

/// The parts of complex elements: one step apart in two buffers, or two steps apart in one.
template <typename T, std::uint64_t Step>
struct ComplexParts {
    T* real;
    T* imag;
};

/// The side of a square tile of a transposing copy: a tile of complex128 elements takes 16 KiB,
/// half the first cache.
constexpr std::uint64_t tile = 32;

/// Writes `count` elements past the caches.
template <typename T>
void stream(T* to, const T* from, std::uint64_t count) {
    constexpr std::uint64_t vector_size = sizeof(__m128i);
    auto* target = reinterpret_cast<unsigned char*>(to);
    const auto* source = reinterpret_cast<const unsigned char*>(from);
    std::uint64_t size = count * sizeof(T);
    const std::uint64_t head =
        std::min(size, (0 - reinterpret_cast<std::uintptr_t>(target)) % vector_size);
    std::memcpy(target, source, head);
    for (target += head, source += head, size -= head; size >= vector_size;
         target += vector_size, source += vector_size, size -= vector_size) {
        _mm_stream_si128(reinterpret_cast<__m128i*>(target),
                         _mm_loadu_si128(reinterpret_cast<const __m128i*>(source)));
    }
    std::memcpy(target, source, size);
}

template <typename T, std::uint64_t From, std::uint64_t To>
void copy_elements(ComplexParts<const T, From> source, ComplexParts<T, To> target,
                   std::uint64_t begin, std::uint64_t end) {
    for (std::uint64_t index = begin; index < end; ++index) {
        target.real[index * To] = source.real[index * From];
        target.imag[index * To] = source.imag[index * From];
    }
}

/// A tile of elements, line by line of the target.
template <typename T>
struct TurnedTile {
    struct Element {
        T real;
        T imag;
    };

    /// Takes the elements of `height` lines of the source, `width` of each, which lie `stride`
    /// elements apart.
    template <std::uint64_t From>
    void turn(ComplexParts<const T, From> source, std::uint64_t stride, std::uint64_t height,
              std::uint64_t width) {
        for (std::uint64_t i = 0; i < height; ++i) {
            const T* real = source.real + i * stride * From;
            const T* imag = source.imag + i * stride * From;
            for (std::uint64_t j = 0; j < width; ++j) {
                lines[j][i] = {real[j * From], imag[j * From]};
            }
        }
    }

    /// Gives `width` lines of the target `height` elements each.
    template <std::uint64_t To>
    void write(ComplexParts<T, To> target, std::uint64_t stride, std::uint64_t height,
               std::uint64_t width, bool streamed) const {
        for (std::uint64_t j = 0; j < width; ++j) {
            if constexpr (To == 2) {
                write_line(target.real + j * stride * 2, &lines[j][0].real, 2 * height, streamed);
            } else {
                T real[tile];
                T imag[tile];
                for (std::uint64_t i = 0; i < tile; ++i) {
                    real[i] = lines[j][i].real;
                    imag[i] = lines[j][i].imag;
                }
                write_line(target.real + j * stride, real, height, streamed);
                write_line(target.imag + j * stride, imag, height, streamed);
            }
        }
    }

    static void write_line(T* to, const T* from, std::uint64_t count, bool streamed) {
        if (streamed) {
            stream(to, from, count);
        } else {
            std::copy_n(from, count, to);
        }
    }

    Element lines[tile][tile]{};
};

template <typename T, std::uint64_t Step>
ComplexParts<T, Step> offset(ComplexParts<T, Step> parts, std::uint64_t elements) {
    return {parts.real + elements * Step, parts.imag + elements * Step};
}

/// Element (i, j) of a matrix of `rows` by `cols`, in the source at i * cols + j, goes to
/// j * rows + i, for the rows [begin, end). Each tile is turned in a buffer, so that source and
/// target are both walked along their lines.
template <typename T, std::uint64_t From, std::uint64_t To>
void copy_parts_transposed(ComplexParts<const T, From> source, ComplexParts<T, To> target,
                           std::uint64_t rows, std::uint64_t cols, std::uint64_t begin,
                           std::uint64_t end) {
    const bool streamed = rows * cols * 2 * sizeof(T) >= least_bytes_past_caches;
    if constexpr (From == 2 && To == 2) {
        using Bits = BitsOfSize<2 * sizeof(T)>;
        copy_transposed(reinterpret_cast<const Bits*>(source.real) + begin * cols, cols,
                        reinterpret_cast<Bits*>(target.real) + begin, rows, end - begin, cols,
                        Bits{}, streamed);
        return;
    }
    TurnedTile<T> turned;
    for (std::uint64_t row = begin; row < end; row += tile) {
        const std::uint64_t height = std::min(tile, end - row);
        for (std::uint64_t col = 0; col < cols; col += tile) {
            const std::uint64_t width = std::min(tile, cols - col);
            turned.turn(offset(source, row * cols + col), cols, height, width);
            turned.write(offset(target, col * rows + row), rows, height, width, streamed);
        }
    }
    if (streamed) {
        _mm_sfence();
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
        auto* parts = reinterpret_cast<Part*>(elements);
        use(ComplexParts<Part, 2>{parts, parts == nullptr ? nullptr : parts + 1});
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
    with_both<T>(source, target, count, [&](auto parts_from, auto parts_to) {
        for_chunks(rows, count, [&](std::uint64_t begin, std::uint64_t end) {
            copy_parts_transposed(parts_from, parts_to, rows, cols, begin, end);
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

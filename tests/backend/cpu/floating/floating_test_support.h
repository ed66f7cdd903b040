// SPDX-License-Identifier: Apache-2.0
#pragma once

// Operands and runs for tests of floating kernels: values that cover the range of a type, operands
// in every order, and results compared by their bits over several thread counts.

#include "backend/cpu/cpu_test_support.h"
#include "backend/cpu/floating/floating_dispatcher.h"
#include "backend/cpu/instruction_sets.h"
#include "backend/cpu/numbers/element_bits.h"
#include "backend/cpu/numbers/floating_policies.h"
#include "backend/cpu/simd/tables/unfused_kernels.h"
#include "support/counter_random.h"
#include "tessaline/storage/buffer_access.h"
#include "tessaline/storage/storage_factory.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <span>

namespace Tessaline::Testing {

using FloatingTypes = ::testing::Types<Complex32, Float16, BFloat16, double, std::complex<double>,
                                       float, std::complex<float>>;

using Size = std::uint64_t;

template <typename T>
inline constexpr std::size_t part_count = sizeof(T) / sizeof(Component<T>);

/// The stored parts of an element: one, or real and imaginary.
template <typename T>
using Parts = std::array<Component<T>, part_count<T>>;

/// Elements by row and column; a vector is one column, a scalar one element.
template <typename T>
struct Grid {
    /// `make(i, j)` is a stored or a compute value.
    template <typename Make>
    Grid(Size row_count, Size col_count, const Make& make) : rows(row_count),
                                                             cols(col_count) {
        for (Size i = 0; i < rows * cols; ++i) {
            elements.push_back(static_cast<T>(make(i / cols, i % cols)));
        }
    }
    /// The compute value of an element.
    ComputeOf<T> operator()(Size i, Size j = 0) const {
        return static_cast<ComputeOf<T>>(elements[i * cols + j]);
    }

    Size rows;
    Size cols;
    std::vector<T> elements; ///< row by row
};

/// Largest, smallest normal and smallest subnormal value of a stored part.
template <typename Part>
std::array<Part, 3> range_of() {
    if constexpr (std::is_same_v<Part, Float16>) {
        return {Float16::from_bits(0x7bff), Float16::from_bits(0x0400), Float16::from_bits(1)};
    } else if constexpr (std::is_same_v<Part, BFloat16>) {
        return {BFloat16::from_bits(0x7f7f), BFloat16::from_bits(0x0080), BFloat16::from_bits(1)};
    } else {
        using Limits = std::numeric_limits<Part>;
        return {Limits::max(), Limits::min(), Limits::denorm_min()};
    }
}

/// A value of either sign over twelve binades around 1.
template <typename Part>
Part ordinary(CounterRandom& random) {
    const double magnitude = 1 + static_cast<double>(random.next() >> 11U) * 0x1p-53;
    const double sign = random.below(2) == 0 ? 1 : -1;
    const int exponent = static_cast<int>(random.below(12)) - 6;
    return static_cast<Part>(static_cast<ComputeOf<Part>>(std::ldexp(sign * magnitude, exponent)));
}

/// As many bits as a part of an element has.
template <typename Part>
using PartBits = BitsOfSize<sizeof(Part)>;
template <typename Part>
constexpr auto sign_bit = static_cast<PartBits<Part>>(PartBits<Part>{1} << (8 * sizeof(Part) - 1));

/// The bits of infinity. Above them lie those of every NaN, but for the sign.
template <typename Part>
PartBits<Part> infinity_bits() {
    return std::bit_cast<PartBits<Part>>(
        static_cast<Part>(std::numeric_limits<ComputeOf<Part>>::infinity()));
}

/// One value in four is zero, infinite, NaN, or from the edge of the range, of either sign.
template <typename Part>
Part special(CounterRandom& random) {
    using Real = ComputeOf<Part>;
    if (random.below(4) != 0) {
        return ordinary<Part>(random);
    }
    if (random.below(8) == 0) {
        // A signalling NaN with a payload, which no operation passes on but a move.
        const auto bits = static_cast<PartBits<Part>>(infinity_bits<Part>() | 0x21U);
        return std::bit_cast<Part>(
            static_cast<PartBits<Part>>(bits ^ (random.below(2) == 0 ? 0 : sign_bit<Part>)));
    }
    const auto range = range_of<Part>();
    const Real specials[] = {0,
                             std::numeric_limits<Real>::infinity(),
                             std::numeric_limits<Real>::quiet_NaN(),
                             static_cast<Real>(range[0]),
                             static_cast<Real>(range[1]),
                             static_cast<Real>(range[2])};
    const Real value = specials[random.below(std::size(specials))];
    return static_cast<Part>(random.below(2) == 0 ? value : -value);
}

/// Ordinary values, and special ones among them where `with_specials` is set.
template <typename T>
Grid<T> random_grid(Size rows, Size cols, CounterRandom& random, bool with_specials = true) {
    using Part = Component<T>;
    return {rows, cols, [&](Size, Size) {
                Parts<T> parts;
                for (Part& part : parts) {
                    part = with_specials ? special<Part>(random) : ordinary<Part>(random);
                }
                return std::bit_cast<T>(parts);
            }};
}

/// Host storage of a grid. Copies share it.
template <typename T>
class Operand {
  public:
    /// A scalar, vector or matrix; the order is that of a matrix.
    Operand(OperandKind kind, const Grid<T>& grid,
            DataMatrixLayout order = DataMatrixLayout::row_major)
        : rows_(grid.rows),
          cols_(grid.cols),
          row_stride_(order == DataMatrixLayout::row_major ? cols_ : 1),
          col_stride_(order == DataMatrixLayout::row_major ? 1 : rows_) {
        const DataTypeDescriptor type = PolicyOf<T>::type();
        if (kind == OperandKind::Scalar) {
            hold(StorageFactory::host_scalar(type));
        } else if (kind == OperandKind::Vector) {
            hold(StorageFactory::host_vector(type, rows_, representation));
        } else {
            hold(StorageFactory::host_matrix(type, rows_, cols_, order, representation));
        }
        assign(grid);
    }

    static Operand scalar(const Grid<T>& grid) { return {OperandKind::Scalar, grid}; }
    static Operand vector(const Grid<T>& grid) { return {OperandKind::Vector, grid}; }
    static Operand matrix(const Grid<T>& grid, DataMatrixLayout order) {
        return {OperandKind::Matrix, grid, order};
    }

    OperandBinding written() const { return *binding_; }
    OperandBinding read() const { return *const_binding_; }

    void assign(const Grid<T>& grid) {
        for (Size i = 0; i < rows_ * cols_; ++i) {
            const auto parts = std::bit_cast<Parts<T>>(grid.elements[i]);
            for (std::size_t part = 0; part < parts.size(); ++part) {
                *place(i / cols_, i % cols_, part) = parts[part];
            }
        }
    }
    Grid<T> grid() const {
        return {rows_, cols_, [&](Size i, Size j) {
                    Parts<T> parts;
                    for (std::size_t part = 0; part < parts.size(); ++part) {
                        parts[part] = *place(i, j, part);
                    }
                    return std::bit_cast<T>(parts);
                }};
    }

  private:
    static constexpr DataComplexLayout representation =
        is_complex_element<T> ? DataComplexLayout::interleaved : DataComplexLayout::none;

    template <typename Entity>
    void hold(std::unique_ptr<Entity> entity) {
        ErasedBufferAccess& buffers = erased_buffers(*entity, "test operand");
        interleaved_ = buffers.buffer_count() == 1;
        for (std::size_t part = 0; part < part_count<T>; ++part) {
            parts_[part] = static_cast<Component<T>*>(buffers.buffer(interleaved_ ? 0 : part).data);
        }
        binding_ = std::ref(*entity);
        const_binding_ = ConstOperandEntityRef<Entity>(*entity);
        owner_ = std::move(entity);
    }

    Component<T>* place(Size i, Size j, std::size_t part) const {
        const Size index = i * row_stride_ + j * col_stride_;
        return parts_[part] + (interleaved_ ? index * part_count<T> + part : index);
    }

    std::shared_ptr<void> owner_;
    std::optional<OperandBinding> binding_;
    std::optional<OperandBinding> const_binding_;
    Size rows_;
    Size cols_;
    Size row_stride_;
    Size col_stride_;
    bool interleaved_ = true;
    std::array<Component<T>*, part_count<T>> parts_{};
};

/// The orders that operands of T may have.
template <typename T>
std::vector<DataMatrixLayout> orders_of(OperandKind kind = OperandKind::Matrix) {
    if (is_complex_element<T> && kind == OperandKind::Matrix) {
        return {DataMatrixLayout::row_major, DataMatrixLayout::column_major};
    }
    return {DataMatrixLayout::row_major};
}

inline BackendExecutionBindings bindings_of(const std::vector<OperandBinding>& inputs,
                                            const OperandBinding& output) {
    BackendExecutionBindings bindings;
    for (std::size_t index = 0; index < inputs.size(); ++index) {
        bindings.operands.insert(input_role(index), inputs[index]);
        bindings.roles.push_back(input_role(index));
    }
    bindings.operands.insert(output_role(0), output);
    bindings.roles.push_back(output_role(0));
    return bindings;
}

/// What a grid's elements hold in memory.
template <typename T>
std::span<const std::byte> bytes_of(const Grid<T>& grid) {
    return std::as_bytes(std::span(grid.elements));
}

/// Calls `body` with the unfused kernels of each instruction set that the machine has, and with
/// those for a processor that does not convert binary16.
template <typename Body>
void for_each_unfused_table(const Body& body) {
    for_each_instruction_set(SimdKernels::avx256_unfused_table, SimdKernels::avx512_unfused_table,
                             body);
    SCOPED_TRACE("AVX2 without F16C");
    SimdKernels::UnfusedTable table = SimdKernels::avx256_unfused_table;
    table.binary16 = SimdKernels::avx256_integer_binary16_kernels;
    body(table);
}

/// Runs a kernel directly and as a step of sessions with 1, 2, 3 and 7 threads, and expects the
/// bits of `expected` each time. `before` is what the output holds before each run. `table` is for
/// the direct run.
template <typename T, typename Output>
void expect_result(FloatingOperation operation, const std::vector<OperandBinding>& inputs,
                   Operand<Output> output, const Grid<Output>& before, const Grid<Output>& expected,
                   const SimdKernels::UnfusedTable& table = SimdKernels::unfused_table()) {
    static const std::array<std::shared_ptr<CpuRuntimeContext>, 4> runtimes = [] {
        const auto runtime = [](std::size_t threads) {
            return std::make_shared<CpuRuntimeContext>(Test::unpinned_options(threads),
                                                       Test::one_node(threads + 1),
                                                       BackendKind::cpu_simd);
        };
        return std::array{runtime(1), runtime(2), runtime(3), runtime(7)};
    }();
    auto bindings = bindings_of(inputs, output.written());
    const auto expect_bits = [&](std::size_t threads) {
        const Grid<Output> found = output.grid();
        const auto difference = std::ranges::mismatch(bytes_of(found), bytes_of(expected)).in1 -
                                bytes_of(found).begin();
        const auto i = static_cast<std::size_t>(difference) / sizeof(Output);
        ASSERT_EQ(i, expected.elements.size())
            << operation_id(operation).name() << " with " << threads << " threads, element " << i
            << " of " << expected.rows << " by " << expected.cols << ": "
            << ::testing::PrintToString(found.elements[i]) << ", expected "
            << ::testing::PrintToString(expected.elements[i]);
    };
    output.assign(before);
    run_floating_kernel<T>(operation, bindings, table);
    expect_bits(0);
    for (const auto& runtime : runtimes) {
        output.assign(before);
        BackendExecutionSession session(runtime);
        floating_kernel_step<T>(operation)->execute(session, bindings);
        expect_bits(runtime->thread_count());
    }
}

/// What tests fill outputs with, to show elements that were not written.
template <typename T>
Grid<T> unwritten(Size rows, Size cols) {
    return {rows, cols, [](Size, Size) { return static_cast<ComputeOf<T>>(12288); }};
}

} // namespace Tessaline::Testing

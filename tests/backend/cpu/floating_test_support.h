// SPDX-License-Identifier: Apache-2.0
#pragma once

// Operands and runs for tests of floating kernels: values that cover the range of a type, operands
// in every order, and results compared by their bits over several thread counts.

#include "backend/cpu/cpu_test_support.h"
#include "backend/cpu/floating_dispatcher.h"
#include "backend/cpu/floating_policies.h"
#include "support/counter_random.h"
#include "tessaline/storage/buffer_access.h"
#include "tessaline/storage/storage_factory.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <span>

namespace Tessaline::Testing {

using FloatingTypes = ::testing::Types<Complex32, Float16, BFloat16, double, std::complex<double>,
                                       float, std::complex<float>>;

template <typename T>
inline constexpr std::size_t part_count = sizeof(T) / sizeof(Component<T>);

/// The stored parts of an element: one, or real and imaginary.
template <typename T>
using Parts = std::array<Component<T>, part_count<T>>;

/// Elements by row and column; a vector is one column, a scalar one element.
template <typename T>
struct Grid {
    using Element = T;

    /// `make(i, j)` is a stored or a compute value.
    template <typename Make>
    Grid(std::uint64_t row_count, std::uint64_t col_count, const Make& make)
        : rows(row_count),
          cols(col_count) {
        for (std::uint64_t i = 0; i < rows * cols; ++i) {
            elements.push_back(static_cast<T>(make(i / cols, i % cols)));
        }
    }
    /// The compute value of an element.
    ComputeOf<T> operator()(std::uint64_t i, std::uint64_t j = 0) const {
        return static_cast<ComputeOf<T>>(elements[i * cols + j]);
    }

    std::uint64_t rows;
    std::uint64_t cols;
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

/// One value in four is zero, infinite, NaN, or from the edge of the range, of either sign.
template <typename Part>
Part special(CounterRandom& random) {
    using Real = ComputeOf<Part>;
    if (random.below(4) != 0) {
        return ordinary<Part>(random);
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
Grid<T> random_grid(std::uint64_t rows, std::uint64_t cols, CounterRandom& random,
                    bool with_specials = true) {
    using Part = Component<T>;
    return {rows, cols, [&](std::uint64_t, std::uint64_t) {
                Parts<T> parts;
                for (Part& part : parts) {
                    part = with_specials ? special<Part>(random) : ordinary<Part>(random);
                }
                return std::bit_cast<T>(parts);
            }};
}

/// Host storage of a grid.
template <typename T>
class Operand {
  public:
    static Operand scalar(const Grid<T>& grid) {
        return {grid, StorageFactory::host_scalar(PolicyOf<T>::type()), 1, 1};
    }
    static Operand vector(const Grid<T>& grid) {
        return {grid, StorageFactory::host_vector(PolicyOf<T>::type(), grid.rows, representation),
                1, grid.cols};
    }
    static Operand matrix(const Grid<T>& grid, DataMatrixLayout order) {
        auto entity = StorageFactory::host_matrix(PolicyOf<T>::type(), grid.rows, grid.cols, order,
                                                  representation);
        return order == DataMatrixLayout::row_major
                   ? Operand(grid, std::move(entity), grid.cols, 1)
                   : Operand(grid, std::move(entity), 1, grid.rows);
    }

    OperandBinding written() const { return binding_; }
    OperandBinding read() const { return const_binding_; }

    void assign(const Grid<T>& grid) {
        for (std::uint64_t i = 0; i < rows_ * cols_; ++i) {
            const auto parts = std::bit_cast<Parts<T>>(grid.elements[i]);
            for (std::size_t part = 0; part < parts.size(); ++part) {
                *place(i / cols_, i % cols_, part) = parts[part];
            }
        }
    }
    Grid<T> grid() const {
        return {rows_, cols_, [&](std::uint64_t i, std::uint64_t j) {
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
    Operand(const Grid<T>& grid, std::unique_ptr<Entity> entity, std::uint64_t row_stride,
            std::uint64_t col_stride)
        : binding_(std::ref(*entity)),
          const_binding_(ConstOperandEntityRef<Entity>(*entity)),
          rows_(grid.rows),
          cols_(grid.cols),
          row_stride_(row_stride),
          col_stride_(col_stride) {
        ErasedBufferAccess& buffers = erased_buffers(*entity, "test operand");
        for (std::size_t part = 0; part < part_count<T>; ++part) {
            interleaved_ = buffers.buffer_count() == 1;
            const MutableBufferView view = buffers.buffer(interleaved_ ? 0 : part);
            parts_[part] = static_cast<Component<T>*>(view.data) + (interleaved_ ? part : 0);
        }
        owner_ = std::shared_ptr<Entity>(std::move(entity));
        assign(grid);
    }

    Component<T>* place(std::uint64_t i, std::uint64_t j, std::size_t part) const {
        return parts_[part] +
               (i * row_stride_ + j * col_stride_) * (interleaved_ ? part_count<T> : 1);
    }

    std::shared_ptr<void> owner_;
    OperandBinding binding_;
    OperandBinding const_binding_;
    std::uint64_t rows_;
    std::uint64_t cols_;
    std::uint64_t row_stride_;
    std::uint64_t col_stride_;
    bool interleaved_ = true;
    std::array<Component<T>*, part_count<T>> parts_{};
};

/// The orders that matrices of T may have.
template <typename T>
std::vector<DataMatrixLayout> orders_of() {
    if constexpr (is_complex_element<T>) {
        return {DataMatrixLayout::row_major, DataMatrixLayout::column_major};
    } else {
        return {DataMatrixLayout::row_major};
    }
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

/// Runs a kernel directly and as a step of sessions with 1, 2, 3 and 7 threads, and expects the
/// bits of `expected` each time. `before` is what the output holds before each run.
template <typename T, typename Output>
void expect_result(FloatingOperation operation, const std::vector<OperandBinding>& inputs,
                   Operand<Output>& output, const Grid<Output>& before,
                   const Grid<Output>& expected) {
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
            << BackendRegistration::floating_operations[static_cast<std::size_t>(operation)]
                   .get()
                   .name()
            << " with " << threads << " threads, element " << i << " of " << expected.rows << " by "
            << expected.cols << ": " << ::testing::PrintToString(found.elements[i]) << ", expected "
            << ::testing::PrintToString(expected.elements[i]);
    };
    output.assign(before);
    run_floating_kernel<T>(operation, bindings);
    expect_bits(0);
    for (const auto& runtime : runtimes) {
        output.assign(before);
        BackendExecutionSession session(runtime);
        floating_kernel_step<T>(operation)->execute(session, bindings);
        expect_bits(runtime->thread_count());
    }
}

/// The same for an output whose former content no kernel reads: every element gets written.
template <typename T, typename Output>
void expect_result(FloatingOperation operation, const std::vector<OperandBinding>& inputs,
                   Operand<Output> output, const Grid<Output>& expected) {
    const Grid<Output> unwritten(expected.rows, expected.cols, [](std::uint64_t, std::uint64_t) {
        return static_cast<Output>(static_cast<ComputeOf<Output>>(12288));
    });
    expect_result<T>(operation, inputs, output, unwritten, expected);
}

} // namespace Tessaline::Testing

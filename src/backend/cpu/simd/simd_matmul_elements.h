// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the tiles of a matrix product hold: real elements, or complex ones of two planes.

#include "backend/cpu/simd/simd_arithmetic.h"

namespace Tessaline::SimdKernels {

template <typename InstructionSet>
struct RealElements {
    using Set = InstructionSet;
    using Value = typename Set::Register;
    using MatrixInput = RealMatrixInput;
    using MatrixOutput = RealMatrixOutput;
    using Input = const float*;
    using Output = float*;
    static constexpr Index tile_rows = Set::real_tile_rows;
    static constexpr Index tile_vectors = Set::real_tile_vectors;

    static Input input(MatrixInput matrix) { return matrix.data; }
    static Output output(MatrixOutput matrix) { return matrix.data; }
    static Input offset(Input elements, Index index) { return elements + index; }

    static Value zero() { return Set::zero(); }
    static Value broadcast(Input elements, Index index) { return Set::broadcast(elements[index]); }
    template <typename Lanes>
    static Value load(Input elements, Index index, Lanes lanes) {
        return SimdKernels::load<Set>(elements + index, lanes);
    }
    template <typename Lanes>
    static void store(Output elements, Index index, Value value, Lanes lanes) {
        SimdKernels::store<Set>(elements + index, value, lanes);
    }

    template <Index Count>
    struct Packed {
        Input input() const { return elements; }
        Output output() { return elements; }
        alignas(64) float elements[Count];
    };
};

template <typename InstructionSet>
struct SplitElements {
    using Set = InstructionSet;
    using Value = Complex<Set>;
    using MatrixInput = SplitMatrixInput;
    using MatrixOutput = SplitMatrixOutput;
    static constexpr Index tile_rows = Set::split_tile_rows;
    static constexpr Index tile_vectors = Set::split_tile_vectors;

    struct Input {
        const float* real;
        const float* imag;
    };
    struct Output {
        float* real;
        float* imag;
        operator Input() const { return {real, imag}; }
    };

    static Input input(MatrixInput matrix) { return {matrix.real, matrix.imag}; }
    static Output output(MatrixOutput matrix) { return {matrix.real, matrix.imag}; }
    static Input offset(Input elements, Index index) {
        return {elements.real + index, elements.imag + index};
    }

    static Value zero() { return {Set::zero(), Set::zero()}; }
    static Value broadcast(Input elements, Index index) {
        return broadcast_complex<Set>(elements.real[index], elements.imag[index]);
    }
    template <typename Lanes>
    static Value load(Input elements, Index index, Lanes lanes) {
        return {SimdKernels::load<Set>(elements.real + index, lanes),
                SimdKernels::load<Set>(elements.imag + index, lanes)};
    }
    template <typename Lanes>
    static void store(Output elements, Index index, Value value, Lanes lanes) {
        SimdKernels::store<Set>(elements.real + index, value.real, lanes);
        SimdKernels::store<Set>(elements.imag + index, value.imag, lanes);
    }

    template <Index Count>
    struct Packed {
        Input input() const { return {real, imag}; }
        Output output() { return {real, imag}; }
        alignas(64) float real[Count];
        alignas(64) float imag[Count];
    };
};

} // namespace Tessaline::SimdKernels

// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the tiles of a matrix product hold: real elements, or complex ones of two planes or in pairs
// of parts. Input and Output find elements in memory, Packed keeps a panel of them for the inner
// loop, and LaneMask names the lanes that take part in a vector at a matrix's edge.

#include "backend/cpu/simd/kernels/arithmetic.h"
#include "backend/cpu/simd/plain/scratch_memory.h"

namespace Tessaline::SimdKernels {

/// Rows of elements that lie `stride` of them apart.
template <typename Elements>
struct Strided {
    Elements data;
    Index stride;
};

/// Calls `body(index, mask)` for each vector of [0, count): with all lanes, and once with the first
/// ones only for what is left.
template <typename Elements, typename Body>
void for_element_vectors(Index count, const Body& body) {
    constexpr Index lanes = Elements::Set::lanes;
    Index i = 0;
    for (; i + lanes <= count; i += lanes) {
        body(i, AllLanes{});
    }
    if (i < count) {
        body(i, Elements::first_lanes(count - i));
    }
}

/// Whether the inner loop reads B from packed panels.
enum class Packing { never, where_it_pays, always };

template <typename InstructionSet>
struct RealElements {
    using Set = InstructionSet;
    using Element = typename Set::Component;
    using Value = typename Set::Register;
    using LaneMask = typename Set::Mask;
    using Input = const Element*;
    using Output = Element*;
    using PackedInput = Input;
    using PackedOutput = Output;
    static constexpr Index parts = 1;
    static constexpr Packing packing = Packing::where_it_pays;
    static constexpr bool recovers_infinities = false;
    static constexpr Index tile_rows = Set::real_tile_rows;
    static constexpr Index tile_vectors = Set::real_tile_vectors;

    static Input input(const Element* elements) { return elements; }
    static Output output(Element* elements) { return elements; }
    static Input offset(Input elements, Index index) { return elements + index; }
    static LaneMask first_lanes(Index count) { return Set::first_lanes(count); }

    static Value zero() { return Set::zero(); }
    static Value broadcast(Input elements, Index index) { return Set::broadcast(elements[index]); }
    template <typename Lanes>
    static Value load(Input elements, Index index, Lanes lanes) {
        return SimdKernels::load<Set>(elements + index, lanes);
    }
    template <typename Lanes>
    static Value load_packed(PackedInput elements, Index index, Lanes lanes) {
        return load(elements, index, lanes);
    }
    template <typename Lanes>
    static void store(Output elements, Index index, Value value, Lanes lanes) {
        SimdKernels::store<Set>(elements + index, as_result<Set>(value), lanes);
    }

    static void prefetch(Input elements, Index index) { __builtin_prefetch(elements + index); }

    static PackedOutput packed(void* memory) { return static_cast<PackedOutput>(memory); }
    static PackedInput offset_packed(PackedInput elements, Index index) { return elements + index; }
    static void store_packed(PackedOutput elements, Index index, Value value) {
        Set::store(elements + index, value);
    }
};

template <typename Component>
struct SplitPlanes {
    Component* real;
    Component* imag;
    operator SplitPlanes<const Component>() const { return {real, imag}; }
};
template <typename Component>
SplitPlanes(Component*, Component*) -> SplitPlanes<Component>;

/// Packed panels of complex elements, as two planes.
template <typename InstructionSet>
struct PackedPlanes {
    using Set = InstructionSet;
    using Component = typename Set::Component;
    using Value = Complex<Set>;
    using PackedInput = SplitPlanes<const Component>;
    using PackedOutput = SplitPlanes<Component>;
    static constexpr Index parts = 2;
    static constexpr Index tile_rows = Set::split_tile_rows;
    static constexpr Index tile_vectors = Set::split_tile_vectors;

    static PackedOutput packed(void* memory) {
        auto* const real = static_cast<Component*>(memory);
        return {real, real + packing_bytes / parts / sizeof(Component)};
    }
    static PackedInput offset_packed(PackedInput planes, Index index) {
        return {planes.real + index, planes.imag + index};
    }
    static void store_packed(PackedOutput planes, Index index, Value value) {
        Set::store(planes.real + index, value.real);
        Set::store(planes.imag + index, value.imag);
    }
    static Value zero() { return {Set::zero(), Set::zero()}; }
};

template <typename InstructionSet>
struct SplitElements : PackedPlanes<InstructionSet> {
    using Set = InstructionSet;
    using Component = typename Set::Component;
    using Value = Complex<Set>;
    using LaneMask = typename Set::Mask;
    using Input = SplitPlanes<const Component>;
    using Output = SplitPlanes<Component>;
    static constexpr Packing packing = Packing::where_it_pays;
    /// No kernel forms products of split operands anew.
    static_assert(InstructionSet::lost_product == LostProduct::stays);
    static constexpr bool recovers_infinities = false;

    static Input offset(Input elements, Index index) {
        return {elements.real + index, elements.imag + index};
    }
    static LaneMask first_lanes(Index count) { return Set::first_lanes(count); }
    static void prefetch(Input elements, Index index) {
        __builtin_prefetch(elements.real + index);
        __builtin_prefetch(elements.imag + index);
    }

    static Value broadcast(Input elements, Index index) {
        return broadcast_complex<Set>(elements.real[index], elements.imag[index]);
    }
    template <typename Lanes>
    static Value load(Input elements, Index index, Lanes lanes) {
        return {SimdKernels::load<Set>(elements.real + index, lanes),
                SimdKernels::load<Set>(elements.imag + index, lanes)};
    }
    template <typename Lanes>
    static Value load_packed(Input elements, Index index, Lanes lanes) {
        return load(elements, index, lanes);
    }
    template <typename Lanes>
    static void store(Output elements, Index index, Value value, Lanes lanes) {
        SimdKernels::store<Set>(elements.real + index, as_result<Set>(value.real), lanes);
        SimdKernels::store<Set>(elements.imag + index, as_result<Set>(value.imag), lanes);
    }
};

/// Elements lie in pairs of parts in memory, but as two planes in registers and packed panels.
template <typename InstructionSet>
struct InterleavedElements : PackedPlanes<InstructionSet> {
    using Set = InstructionSet;
    using Component = typename Set::Component;
    using Element = std::complex<Component>;
    using Value = Complex<Set>;
    using Input = const Component*;
    using Output = Component*;
    static constexpr Packing packing = Packing::always;
    static constexpr bool recovers_infinities = Set::lost_product == LostProduct::recovers;
    static constexpr Index lanes_in_half = Set::lanes / 2; ///< elements of one vector in memory

    struct LaneMask {
        typename Set::Mask in_plane;
        typename Set::Mask in_low;
        typename Set::Mask in_high;
    };
    static LaneMask first_lanes(Index count) {
        const bool fits_low = count <= lanes_in_half;
        return {Set::first_lanes(count), Set::first_lanes(fits_low ? 2 * count : Set::lanes),
                Set::first_lanes(fits_low ? 0 : 2 * (count - lanes_in_half))};
    }

    static Input input(const Element* elements) { return reinterpret_cast<Input>(elements); }
    static Output output(Element* elements) { return reinterpret_cast<Output>(elements); }
    static Input offset(Input elements, Index index) { return elements + 2 * index; }
    static void prefetch(Input elements, Index index) {
        __builtin_prefetch(elements + 2 * index);
        __builtin_prefetch(elements + 2 * index + Set::lanes);
    }

    static Value broadcast(Input elements, Index index) {
        return broadcast_complex<Set>(elements[2 * index], elements[2 * index + 1]);
    }
    static Value load(Input elements, Index index, AllLanes) {
        return as_planes(Set::load(elements + 2 * index),
                         Set::load(elements + 2 * index + Set::lanes));
    }
    static Value load(Input elements, Index index, LaneMask mask) {
        return as_planes(Set::load(elements + 2 * index, mask.in_low),
                         Set::load(elements + 2 * index + Set::lanes, mask.in_high));
    }
    static Value load_packed(SplitPlanes<const Component> planes, Index index, AllLanes lanes) {
        return {SimdKernels::load<Set>(planes.real + index, lanes),
                SimdKernels::load<Set>(planes.imag + index, lanes)};
    }
    static Value load_packed(SplitPlanes<const Component> planes, Index index, LaneMask mask) {
        return {Set::load(planes.real + index, mask.in_plane),
                Set::load(planes.imag + index, mask.in_plane)};
    }
    static void store(Output elements, Index index, Value value, AllLanes) {
        const Value result{as_result<Set>(value.real), as_result<Set>(value.imag)};
        Set::store(elements + 2 * index, Set::low_alternated(result.real, result.imag));
        Set::store(elements + 2 * index + Set::lanes,
                   Set::high_alternated(result.real, result.imag));
    }
    static void store(Output elements, Index index, Value value, LaneMask mask) {
        const Value result{as_result<Set>(value.real), as_result<Set>(value.imag)};
        Set::store(elements + 2 * index, Set::low_alternated(result.real, result.imag),
                   mask.in_low);
        Set::store(elements + 2 * index + Set::lanes,
                   Set::high_alternated(result.real, result.imag), mask.in_high);
    }

    static Value as_planes(typename Set::Register low, typename Set::Register high) {
        return {Set::even_elements(low, high), Set::odd_elements(low, high)};
    }
};

/// Interleaved elements for products of few rows, which take the pairs apart as they read them.
template <typename Set>
struct UnpackedInterleavedElements : InterleavedElements<Set> {
    using Interleaved = InterleavedElements<Set>;
    using PackedInput = typename Interleaved::Input;
    static constexpr Packing packing = Packing::never;

    template <typename Lanes>
    static Complex<Set> load_packed(PackedInput elements, Index index, Lanes lanes) {
        return Interleaved::load(elements, index, lanes);
    }
};

} // namespace Tessaline::SimdKernels

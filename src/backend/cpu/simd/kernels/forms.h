// SPDX-License-Identifier: Apache-2.0
#pragma once

// The elements of complex operands in either form, found in the views that the engine's kernels
// take.

#include "backend/cpu/simd/kernels/elements.h"

namespace Tessaline::SimdKernels {

template <typename Set, typename OperandForm>
struct FormElements;

template <typename Set>
struct FormElements<Set, SplitForm> : SplitElements<Set> {
    using Form = SplitForm;
    /// Products of few rows read the planes as they lie; see SplitElements::packing.
    using Unpacked = FormElements;

    /// The elements from `first` on.
    template <typename View>
    static auto of(const View& view, Index first = 0) {
        return SplitPlanes{view.real + first, view.imag + first};
    }
    /// The two parts of one element.
    template <typename View>
    static auto parts_at(const View& view, Index index) {
        return of(view, index);
    }
};

template <typename Set>
struct FormElements<Set, InterleavedForm> : InterleavedElements<Set> {
    using Form = InterleavedForm;
    using Unpacked = UnpackedInterleavedElements<Set>;

    template <typename View>
    static auto of(const View& view, Index first = 0) {
        if constexpr (std::is_const_v<std::remove_pointer_t<decltype(view.data)>>) {
            return InterleavedElements<Set>::input(view.data + first);
        } else {
            return InterleavedElements<Set>::output(view.data + first);
        }
    }
    template <typename View>
    static auto parts_at(const View& view, Index index) {
        const auto parts = of(view, index);
        return SplitPlanes{parts, parts + 1};
    }
};

} // namespace Tessaline::SimdKernels

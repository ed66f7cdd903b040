// SPDX-License-Identifier: Apache-2.0
#pragma once

// The step of a kernel that exists for split and for interleaved complex operands. Its row asks for
// planes; where all of them are deferred, the operands themselves go to the interleaved kernel.

#include "backend/cpu/deferred_planes.h"
#include "tessaline/backend/cpu/cpu_operand_views.h"
#include "tessaline/backend/cpu/launch_cpu_kernel_step.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <functional>
#include <tuple>

namespace Tessaline {

/// The binder of an operand as the interleaved kernel takes it. Operands without a complex layout
/// are the same to both.
template <typename Binder>
struct InterleavedBinder : Binder {
    static bool is_available(const BackendExecutionBindings&) { return true; }
};

namespace InterleavedBinderDetail {

template <typename Interface, template <typename> typename Access, OperandRole Role, bool Const>
struct Deferred {
    static const OperandBinding* origin(const BackendExecutionBindings& bindings) {
        return deferred_origin<Interface, float>(bindings.operands.at(Role));
    }
    static bool is_available(const BackendExecutionBindings& bindings) {
        return origin(bindings) != nullptr;
    }
    static auto& operand(const BackendExecutionBindings& bindings) {
        using CpuOperandViewDetail::access;
        if constexpr (Const) {
            return access<Access, std::complex<float>>(bound_entity<Interface>(*origin(bindings)));
        } else {
            return access<Access, std::complex<float>>(
                writable_entity<Interface>(*origin(bindings)));
        }
    }
    using Element = CpuOperandViewDetail::Viewed<std::complex<float>, Const>;
};

} // namespace InterleavedBinderDetail

template <typename Entity, OperandRole Role, bool Const>
struct InterleavedBinder<BoundDenseComplexSplitVectorView<Entity, Role, Const>>
    : InterleavedBinderDetail::Deferred<VectorEntity, DenseComplexInterleavedVectorAccess, Role,
                                        Const> {
    static auto get(BackendExecutionBindings& bindings) {
        auto& vector = InterleavedBinder::operand(bindings);
        return DenseComplexIntlvVectorView<typename InterleavedBinder::Element>{vector.data(),
                                                                                vector.size()};
    }
};

template <typename Entity, OperandRole Role, bool Const>
struct InterleavedBinder<BoundDenseComplexSplitMatrixView<Entity, Role, Const>>
    : InterleavedBinderDetail::Deferred<MatrixEntity, DenseComplexInterleavedMatrixAccess, Role,
                                        Const> {
    static auto get(BackendExecutionBindings& bindings) {
        auto& matrix = InterleavedBinder::operand(bindings);
        return DenseComplexIntlvMatrixView<typename InterleavedBinder::Element>{
            matrix.data(), matrix.rows(), matrix.cols(), matrix.layout()};
    }
};

/// Whether an interleaved kernel may write its result straight into the caller's memory. Planes are
/// copies, so that a result may overlap operands in any way; without them it may only be the very
/// memory of an operand, and that where all operands are vectors and go element by element.
namespace OverlapDetail {

struct Extent {
    const std::byte* begin = nullptr;
    const std::byte* end = nullptr;
    bool is_written = false;
    bool is_vector = true;
};

template <typename T>
Extent extent_of(T* data, std::uint64_t count, bool is_vector) {
    const auto* const begin = reinterpret_cast<const std::byte*>(data);
    return {begin, begin + count * sizeof(T), !std::is_const_v<T>, is_vector};
}
template <typename T>
Extent extent(const DenseComplexIntlvVectorView<T>& view) {
    return extent_of(view.data, view.size, true);
}
template <typename T>
Extent extent(const DenseComplexIntlvMatrixView<T>& view) {
    return extent_of(view.data, view.rows * view.cols, false);
}
template <typename Scalar>
Extent extent(const Scalar&) {
    return {};
}

inline bool interfere(const Extent& a, const Extent& b, bool elementwise) {
    if (!a.is_written && !b.is_written) {
        return false;
    }
    const bool same = elementwise && a.begin == b.begin && a.end == b.end;
    return !same && std::less<>{}(a.begin, b.end) && std::less<>{}(b.begin, a.end);
}

template <typename... Views>
bool is_harmless(const std::tuple<Views...>& views) {
    const auto extents =
        std::apply([](const auto&... view) { return std::array{extent(view)...}; }, views);
    const bool elementwise = std::ranges::all_of(extents, &Extent::is_vector);
    for (std::size_t i = 0; i < extents.size(); ++i) {
        for (std::size_t j = i + 1; j < extents.size(); ++j) {
            if (interfere(extents[i], extents[j], elementwise)) {
                return false;
            }
        }
    }
    return true;
}

} // namespace OverlapDetail

template <typename SplitKernel, typename InterleavedKernel, typename... Binders>
class LaunchInEitherFormStep final : public BackendProcessStep {
  public:
    LaunchInEitherFormStep(SplitKernel split, InterleavedKernel interleaved)
        : split_(split),
          interleaved_(interleaved) {}

    void execute(BackendExecutionSession& session, BackendExecutionBindings& bindings) override {
        CpuProcessStepDetail::with_cpu_context(session, bindings, BackendKind::cpu_simd, [&] {
            if (!ran_interleaved(bindings)) {
                const std::tuple arguments{Binders::get(bindings)...};
                std::apply(split_, arguments);
            }
        });
    }

  private:
    bool ran_interleaved(BackendExecutionBindings& bindings) const {
        if (!(InterleavedBinder<Binders>::is_available(bindings) && ...)) {
            return false;
        }
        const std::tuple arguments{InterleavedBinder<Binders>::get(bindings)...};
        if (!OverlapDetail::is_harmless(arguments)) {
            return false;
        }
        std::apply(interleaved_, arguments);
        return true;
    }

    SplitKernel split_;
    InterleavedKernel interleaved_;
};

} // namespace Tessaline

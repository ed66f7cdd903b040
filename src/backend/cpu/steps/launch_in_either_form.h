// SPDX-License-Identifier: Apache-2.0
#pragma once

// The step of a kernel that exists for split and for interleaved complex operands. Its row asks for
// planes; where all of them are deferred, the operands themselves go to the interleaved kernel.

#include "backend/cpu/steps/deferred_planes.h"
#include "tessaline/backend/cpu/cpu_operand_views.h"
#include "tessaline/backend/cpu/launch_cpu_kernel_step.h"

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

template <typename SplitKernel, typename InterleavedKernel, typename... Binders>
class LaunchInEitherFormStep final : public BackendProcessStep {
  public:
    LaunchInEitherFormStep(SplitKernel split, InterleavedKernel interleaved)
        : split_(split),
          interleaved_(interleaved) {}

    void execute(BackendExecutionSession& session, BackendExecutionBindings& bindings) override {
        CpuProcessStepDetail::with_cpu_context(session, bindings, BackendKind::cpu_simd, [&] {
            if ((InterleavedBinder<Binders>::is_available(bindings) && ...)) {
                apply<InterleavedBinder<Binders>...>(interleaved_, bindings);
            } else {
                apply<Binders...>(split_, bindings);
            }
        });
    }

  private:
    /// The views are taken in the order of the arguments.
    template <typename... Views, typename Kernel>
    static void apply(Kernel kernel, BackendExecutionBindings& bindings) {
        const std::tuple arguments{Views::get(bindings)...};
        std::apply(kernel, arguments);
    }

    SplitKernel split_;
    InterleavedKernel interleaved_;
};

} // namespace Tessaline

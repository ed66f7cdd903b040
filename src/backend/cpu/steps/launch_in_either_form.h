// SPDX-License-Identifier: Apache-2.0
#pragma once

// The step of a kernel that exists for split and for interleaved complex operands. Its row asks for
// planes; where all of them are deferred, the operands themselves go to the interleaved kernel.

#include "backend/cpu/steps/deferred_planes.h"
#include "tessaline/backend/cpu/launch_cpu_kernel_step.h"
#include "tessaline/storage/operand_views.h"

#include <tuple>

namespace Tessaline {

/// The binder of an operand as the interleaved kernel takes it. Operands without a complex layout
/// are the same to both.
template <typename Binder>
struct InterleavedBinder : Binder {
    static bool is_available(const BackendExecutionBindings&) { return true; }
};

namespace InterleavedBinderDetail {

/// A split operand as Interleaved views what it stands for.
template <typename Interleaved>
struct Deferred : Interleaved {
    static const OperandBinding* origin(const BackendExecutionBindings& bindings) {
        return deferred_origin<typename Interleaved::Interface, float>(
            bindings.operands.at(Interleaved::role));
    }
    static bool is_available(const BackendExecutionBindings& bindings) {
        return origin(bindings) != nullptr;
    }
    static auto get(const BackendExecutionBindings& bindings) {
        const OperandBinding& interleaved = *origin(bindings);
        return Interleaved::view(
            bound_operand<typename Interleaved::Interface, Interleaved::is_const>(interleaved));
    }
};

} // namespace InterleavedBinderDetail

template <OperandRole Role, bool Const>
struct InterleavedBinder<BoundView<DenseComplexSplitVectorView, DenseComplexSplitVectorAccess,
                                   float, VectorEntity, Role, Const>>
    : InterleavedBinderDetail::Deferred<
          BoundView<DenseComplexIntlvVectorView, DenseComplexInterleavedVectorAccess,
                    std::complex<float>, VectorEntity, Role, Const>> {};

template <OperandRole Role, bool Const>
struct InterleavedBinder<BoundView<DenseComplexSplitMatrixView, DenseComplexSplitMatrixAccess,
                                   float, MatrixEntity, Role, Const>>
    : InterleavedBinderDetail::Deferred<
          BoundView<DenseComplexIntlvMatrixView, DenseComplexInterleavedMatrixAccess,
                    std::complex<float>, MatrixEntity, Role, Const>> {};

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

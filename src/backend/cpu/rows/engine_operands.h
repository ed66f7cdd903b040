// SPDX-License-Identifier: Apache-2.0
#pragma once

// The operands of the engine's rows: what a row's key says of a role, and the binder by which the
// kernel gets that operand. Inputs are read, outputs written.

#include "backend/cpu/rows/cpu_operand_keys.h"
#include "tessaline/storage/host_eigen_vals.h"
#include "tessaline/storage/host_entities.h"
#include "tessaline/storage/host_lu_decomp.h"
#include "tessaline/storage/operand_views.h"

namespace Tessaline::EngineRows {

using enum OperandKind;
using enum DataComplexLayout;
using Complex64 = std::complex<float>;

inline constexpr OperandRole in0{0};
inline constexpr OperandRole in1{1};
inline constexpr OperandRole out0{operand_role_limit};

template <OperandRole Role>
inline constexpr bool is_read = !is_output_role(Role);

template <typename BinderOfRole, OperandKind Kind, typename Element,
          DataComplexLayout Complex = none>
struct EngineOperand {
    using Binder = BinderOfRole;
    static constexpr OperandRole role = Binder::role;

    static BackendOperandKey key() {
        return dense_host_key(Kind, PolicyOf<Element>::type(), Complex);
    }
};

template <typename Operand>
struct InColumns : Operand {
    static BackendOperandKey key() {
        BackendOperandKey key = Operand::key();
        key.layout = DataMatrixLayout::column_major;
        return key;
    }
};

template <OperandRole Role, typename Element = float>
using RealScalar =
    EngineOperand<BoundRealScalarView<BoundRealScalarEntity<Element, Element>, Role, is_read<Role>>,
                  Scalar, Element>;

template <OperandRole Role>
using ComplexScalar = EngineOperand<
    BoundComplexScalarView<BoundComplexScalarEntity<float, float>, Role, is_read<Role>>, Scalar,
    Complex64>;

/// Goes to the kernel by value.
template <OperandRole Role>
using Exponent =
    EngineOperand<BoundUnsignedScalarValue<BoundRealScalarEntity<int, int>, Role>, Scalar, int>;

template <OperandRole Role, typename Element = float>
using RealVector = EngineOperand<
    BoundDenseRealVectorView<DenseHostRealVector<Element, float>, Role, is_read<Role>>, Vector,
    Element>;

template <OperandRole Role>
using RealMatrix = EngineOperand<
    BoundDenseRealMatrixView<DenseHostRealMatrixRowMajor<float, float>, Role, is_read<Role>>,
    Matrix, float>;

template <OperandRole Role>
using SplitVector =
    EngineOperand<BoundDenseComplexSplitVectorView<DenseHostComplexSplitVector<float, float>, Role,
                                                   is_read<Role>>,
                  Vector, Complex64, split>;

template <OperandRole Role>
using SplitMatrix =
    EngineOperand<BoundDenseComplexSplitMatrixView<
                      DenseHostComplexSplitMatrixRowMajor<float, float>, Role, is_read<Role>>,
                  Matrix, Complex64, split>;

template <OperandRole Role>
using InterleavedVector =
    EngineOperand<BoundDenseComplexIntlvVectorView<
                      DenseHostComplexIntlvVector<Complex64, Complex64>, Role, is_read<Role>>,
                  Vector, Complex64, interleaved>;

template <OperandRole Role>
using InterleavedMatrix = InColumns<EngineOperand<
    BoundDenseComplexIntlvMatrixView<DenseHostComplexIntlvMatrixColMajor<Complex64, Complex64>,
                                     Role, is_read<Role>>,
    Matrix, Complex64, interleaved>>;

using HostFactors = DenseHostLUDecompColMajor<long, Complex64, Complex64>;
template <OperandRole Role>
using Factors =
    EngineOperand<std::conditional_t<is_read<Role>, BoundConstHostLUDecompView<HostFactors, Role>,
                                     BoundHostLUDecompView<HostFactors, Role>>,
                  LuDecomp, Complex64, interleaved>;

template <OperandRole Role>
using EigenSet = EngineOperand<BoundHostEigenVals<HostEigenVals<Complex64, Complex64>, Role>,
                               EigenVals, Complex64, interleaved>;

} // namespace Tessaline::EngineRows

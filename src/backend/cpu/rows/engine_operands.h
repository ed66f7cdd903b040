// SPDX-License-Identifier: Apache-2.0
#pragma once

// The operands of the engine's rows: what a row's key says of a role, and the binder by which the
// kernel gets that operand. Inputs are read, outputs written.

#include "backend/cpu/rows/cpu_operand_keys.h"
#include "tessaline/backend/cpu/cpu_structured_operand_views.h"
#include "tessaline/storage/host_entities.h"

namespace Tessaline::EngineRows {

using enum OperandKind;
using enum DataComplexLayout;
using Complex64 = std::complex<float>;

inline constexpr OperandRole in0{0};
inline constexpr OperandRole in1{1};
inline constexpr OperandRole out0{operand_role_limit};

template <OperandRole Role>
inline constexpr bool is_read = !is_output_role(Role);

template <OperandRole Role, typename BinderOfRole, OperandKind Kind, typename Element,
          DataComplexLayout Complex = none>
struct EngineOperand {
    using Binder = BinderOfRole;
    static constexpr OperandRole role = Role;

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
    EngineOperand<Role,
                  BoundRealScalarView<BoundRealScalarEntity<Element, Element>, Role, is_read<Role>>,
                  Scalar, Element>;

template <OperandRole Role>
using ComplexScalar = EngineOperand<
    Role, BoundComplexScalarView<BoundComplexScalarEntity<float, float>, Role, is_read<Role>>,
    Scalar, Complex64>;

/// Goes to the kernel by value.
template <OperandRole Role>
using Exponent =
    EngineOperand<Role, BoundUnsignedScalarValue<BoundRealScalarEntity<int, int>, Role>, Scalar,
                  int>;

template <OperandRole Role, typename Element = float>
using RealVector = EngineOperand<
    Role, BoundDenseRealVectorView<DenseHostRealVector<Element, float>, Role, is_read<Role>>,
    Vector, Element>;

template <OperandRole Role>
using RealMatrix = EngineOperand<
    Role, BoundDenseRealMatrixView<DenseHostRealMatrixRowMajor<float, float>, Role, is_read<Role>>,
    Matrix, float>;

template <OperandRole Role>
using SplitVector =
    EngineOperand<Role,
                  BoundDenseComplexSplitVectorView<DenseHostComplexSplitVector<float, float>, Role,
                                                   is_read<Role>>,
                  Vector, Complex64, split>;

template <OperandRole Role>
using SplitMatrix =
    EngineOperand<Role,
                  BoundDenseComplexSplitMatrixView<
                      DenseHostComplexSplitMatrixRowMajor<float, float>, Role, is_read<Role>>,
                  Matrix, Complex64, split>;

template <OperandRole Role>
using InterleavedVector =
    EngineOperand<Role,
                  BoundDenseComplexIntlvVectorView<
                      DenseHostComplexIntlvVector<Complex64, Complex64>, Role, is_read<Role>>,
                  Vector, Complex64, interleaved>;

template <OperandRole Role>
using InterleavedMatrix = InColumns<EngineOperand<
    Role,
    BoundDenseComplexIntlvMatrixView<DenseHostComplexIntlvMatrixColMajor<Complex64, Complex64>,
                                     Role, is_read<Role>>,
    Matrix, Complex64, interleaved>>;

using HostFactors = DenseHostLUDecompColMajor<long, Complex64, Complex64>;
template <OperandRole Role>
using Factors =
    EngineOperand<Role,
                  std::conditional_t<is_read<Role>, BoundConstHostLUDecompView<HostFactors, Role>,
                                     BoundHostLUDecompView<HostFactors, Role>>,
                  LuDecomp, Complex64, interleaved>;

template <OperandRole Role>
using EigenSet = EngineOperand<Role, BoundHostEigenVals<HostEigenVals<Complex64, Complex64>, Role>,
                               EigenVals, Complex64, interleaved>;

} // namespace Tessaline::EngineRows

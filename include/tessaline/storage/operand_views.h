// SPDX-License-Identifier: Apache-2.0
#pragma once

// Binders: each turns the operand that is bound to a role into what a kernel takes of it.
//
// A binder tells its operand as data: the kind by `Interface`, the `role`, and `is_const` for an
// operand that the kernel only reads. `get(bindings)` looks the operand up and views it. Bindings
// belong to a run, of which storage knows nothing: their type brings `bound_operand` along.
//
// Entity names the storage class that the kernel was written for. A scalar, vector or matrix may be
// of any storage with the same typed access, borrowed storage too; factors and eigenvalue sets have
// no such access and have to be of the class itself. Every `get` raises std::out_of_range for a
// role that is not bound, std::bad_variant_access for an operand of another kind or a const one in
// a written role, and std::bad_cast for storage of another form or element.

#include "tessaline/storage/dense_access.h"
#include "tessaline/storage/kernel_views.h"
#include "tessaline/storage/typed_storage.h"

#include <functional>

namespace Tessaline {

/// What all binders have.
template <typename OperandInterface, OperandRole Role, bool Const>
struct OperandBinder {
    using Interface = OperandInterface;
    static constexpr OperandRole role = Role;
    static constexpr bool is_const = Const;

    /// The bound entity, const for an operand that is only read.
    template <typename Bindings>
    static auto& operand(Bindings& bindings) {
        return bound_operand<Interface, Const>(bindings, Role);
    }
};

/// View is a kernel view, made from the members of Access in their order.
template <template <typename> typename View, template <typename> typename Access, typename T,
          typename Interface, OperandRole Role, bool Const>
struct BoundView : OperandBinder<Interface, Role, Const> {
    using Element = std::conditional_t<Const, const T, T>;

    template <typename Entity>
    static View<Element> view(Entity& entity) {
        auto& access = typed_access<Access<T>>(entity);
        if constexpr (requires { access.data_real(); }) {
            return with_shape(access, access.data_real(), access.data_imag());
        } else {
            return with_shape(access, access.data());
        }
    }

    template <typename Bindings>
    static View<Element> get(Bindings& bindings) {
        return view(BoundView::operand(bindings));
    }

  private:
    template <typename Storage, typename... Data>
    static View<Element> with_shape(Storage& access, Data... data) {
        if constexpr (std::is_base_of_v<DenseMatrixAccessBase, Storage>) {
            return {data..., access.rows(), access.cols(), access.layout()};
        } else if constexpr (requires { access.size(); }) {
            return {data..., access.size()};
        } else {
            return {data...};
        }
    }
};

template <typename Entity, OperandRole Role, bool Const>
using BoundRealScalarView = BoundView<RealScalarView, DenseRealScalarAccess,
                                      typename Entity::Element, ScalarEntity, Role, Const>;
template <typename Entity, OperandRole Role, bool Const>
using BoundComplexScalarView = BoundView<ComplexScalarView, DenseComplexSplitScalarAccess,
                                         typename Entity::Element, ScalarEntity, Role, Const>;
template <typename Entity, OperandRole Role, bool Const>
using BoundDenseRealVectorView = BoundView<DenseRealVectorView, DenseRealVectorAccess,
                                           typename Entity::Element, VectorEntity, Role, Const>;
template <typename Entity, OperandRole Role, bool Const>
using BoundDenseComplexSplitVectorView =
    BoundView<DenseComplexSplitVectorView, DenseComplexSplitVectorAccess, typename Entity::Element,
              VectorEntity, Role, Const>;
template <typename Entity, OperandRole Role, bool Const>
using BoundDenseComplexIntlvVectorView =
    BoundView<DenseComplexIntlvVectorView, DenseComplexInterleavedVectorAccess,
              typename Entity::Element, VectorEntity, Role, Const>;
template <typename Entity, OperandRole Role, bool Const>
using BoundDenseRealMatrixView = BoundView<DenseRealMatrixView, DenseRealMatrixAccess,
                                           typename Entity::Element, MatrixEntity, Role, Const>;
template <typename Entity, OperandRole Role, bool Const>
using BoundDenseComplexSplitMatrixView =
    BoundView<DenseComplexSplitMatrixView, DenseComplexSplitMatrixAccess, typename Entity::Element,
              MatrixEntity, Role, Const>;
template <typename Entity, OperandRole Role, bool Const>
using BoundDenseComplexIntlvMatrixView =
    BoundView<DenseComplexIntlvMatrixView, DenseComplexInterleavedMatrixAccess,
              typename Entity::Element, MatrixEntity, Role, Const>;

/// The value of an integer scalar, modulo 2^32.
template <typename Entity, OperandRole Role>
struct BoundUnsignedScalarValue : OperandBinder<ScalarEntity, Role, true> {
    template <typename Bindings>
    static unsigned get(Bindings& bindings) {
        return static_cast<unsigned>(*BoundRealScalarView<Entity, Role, true>::get(bindings).data);
    }
};

template <typename Entity, OperandRole Role, bool Const>
struct BoundLUDecompView : OperandBinder<LuDecompEntity, Role, Const> {
    template <typename Bindings>
    static auto get(Bindings& bindings) {
        auto& lu = storage_as<Entity>(BoundLUDecompView::operand(bindings));
        using Pivot = std::remove_pointer_t<decltype(lu.pivots())>;
        using Element = std::remove_pointer_t<decltype(lu.factors())>;
        return LuDecompView<Pivot, Element>{lu.pivots(), lu.factors(), lu.swap_count(), lu.size()};
    }
};
template <typename Entity, OperandRole Role>
using BoundHostLUDecompView = BoundLUDecompView<Entity, Role, false>;
template <typename Entity, OperandRole Role>
using BoundConstHostLUDecompView = BoundLUDecompView<Entity, Role, true>;

/// The set itself, for kernels that take a reference to it.
template <typename Entity, OperandRole Role>
struct BoundHostEigenVals : OperandBinder<EigenValsEntity, Role, false> {
    template <typename Bindings>
    static std::reference_wrapper<Entity> get(Bindings& bindings) {
        return storage_as<Entity>(BoundHostEigenVals::operand(bindings));
    }
};

} // namespace Tessaline

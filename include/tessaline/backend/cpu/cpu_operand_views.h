// SPDX-License-Identifier: Apache-2.0
#pragma once

// Binders: each turns the operand that is bound to a role into the view that a kernel takes.
//
// Entity names the storage class that the kernel was written for; the operand may be any storage
// that offers the same typed access, borrowed storage too. Every `get` raises std::out_of_range for
// a role that is not bound, std::bad_variant_access for an operand of another kind or a const one
// in a written role, and std::bad_cast for storage of another form or element.

#include "tessaline/execution/backend_execution_bindings.h"
#include "tessaline/storage/dense_access.h"
#include "tessaline/storage/kernel_views.h"

#include <type_traits>

namespace Tessaline {

namespace CpuOperandViewDetail {

template <typename Interface, OperandRole Role, bool Const>
decltype(auto) entity(BackendExecutionBindings& bindings) {
    const OperandBinding& binding = bindings.operands.at(Role);
    if constexpr (Const) {
        return bound_entity<Interface>(binding);
    } else {
        return writable_entity<Interface>(binding);
    }
}

/// The typed access of an entity, with the entity's constness.
template <template <typename> typename Access, typename Element, typename Entity>
decltype(auto) access(Entity& entity) {
    using Wanted =
        std::conditional_t<std::is_const_v<Entity>, const Access<Element>, Access<Element>>;
    return dynamic_cast<Wanted&>(entity);
}

template <typename Element, bool Const>
using Viewed = std::conditional_t<Const, const Element, Element>;

} // namespace CpuOperandViewDetail

template <typename Entity, OperandRole Role, bool Const>
struct BoundRealScalarView {
    using Element = typename Entity::Element;
    static auto get(BackendExecutionBindings& bindings) {
        using namespace CpuOperandViewDetail;
        auto& scalar =
            access<DenseRealScalarAccess, Element>(entity<ScalarEntity, Role, Const>(bindings));
        return RealScalarView<Viewed<Element, Const>>{scalar.data()};
    }
};

template <typename Entity, OperandRole Role, bool Const>
struct BoundComplexScalarView {
    using Element = typename Entity::Element;
    static auto get(BackendExecutionBindings& bindings) {
        using namespace CpuOperandViewDetail;
        auto& scalar = access<DenseComplexSplitScalarAccess, Element>(
            entity<ScalarEntity, Role, Const>(bindings));
        return ComplexScalarView<Viewed<Element, Const>>{scalar.data_real(), scalar.data_imag()};
    }
};

/// The value of an integer scalar, modulo 2^32.
template <typename Entity, OperandRole Role>
struct BoundUnsignedScalarValue {
    using Element = typename Entity::Element;
    static unsigned get(BackendExecutionBindings& bindings) {
        using namespace CpuOperandViewDetail;
        const auto& scalar =
            access<DenseRealScalarAccess, Element>(entity<ScalarEntity, Role, true>(bindings));
        return static_cast<unsigned>(*scalar.data());
    }
};

template <typename Entity, OperandRole Role, bool Const>
struct BoundDenseRealVectorView {
    using Element = typename Entity::Element;
    static auto get(BackendExecutionBindings& bindings) {
        using namespace CpuOperandViewDetail;
        auto& vector =
            access<DenseRealVectorAccess, Element>(entity<VectorEntity, Role, Const>(bindings));
        return DenseRealVectorView<Viewed<Element, Const>>{vector.data(), vector.size()};
    }
};

template <typename Entity, OperandRole Role, bool Const>
struct BoundDenseComplexSplitVectorView {
    using Element = typename Entity::Element;
    static auto get(BackendExecutionBindings& bindings) {
        using namespace CpuOperandViewDetail;
        auto& vector = access<DenseComplexSplitVectorAccess, Element>(
            entity<VectorEntity, Role, Const>(bindings));
        return DenseComplexSplitVectorView<Viewed<Element, Const>>{
            vector.data_real(), vector.data_imag(), vector.size()};
    }
};

template <typename Entity, OperandRole Role, bool Const>
struct BoundDenseComplexIntlvVectorView {
    using Element = typename Entity::Element;
    static auto get(BackendExecutionBindings& bindings) {
        using namespace CpuOperandViewDetail;
        auto& vector = access<DenseComplexInterleavedVectorAccess, Element>(
            entity<VectorEntity, Role, Const>(bindings));
        return DenseComplexIntlvVectorView<Viewed<Element, Const>>{vector.data(), vector.size()};
    }
};

template <typename Entity, OperandRole Role, bool Const>
struct BoundDenseRealMatrixView {
    using Element = typename Entity::Element;
    static auto get(BackendExecutionBindings& bindings) {
        using namespace CpuOperandViewDetail;
        auto& matrix =
            access<DenseRealMatrixAccess, Element>(entity<MatrixEntity, Role, Const>(bindings));
        return DenseRealMatrixView<Viewed<Element, Const>>{matrix.data(), matrix.rows(),
                                                           matrix.cols(), matrix.layout()};
    }
};

template <typename Entity, OperandRole Role, bool Const>
struct BoundDenseComplexSplitMatrixView {
    using Element = typename Entity::Element;
    static auto get(BackendExecutionBindings& bindings) {
        using namespace CpuOperandViewDetail;
        auto& matrix = access<DenseComplexSplitMatrixAccess, Element>(
            entity<MatrixEntity, Role, Const>(bindings));
        return DenseComplexSplitMatrixView<Viewed<Element, Const>>{
            matrix.data_real(), matrix.data_imag(), matrix.rows(), matrix.cols(), matrix.layout()};
    }
};

template <typename Entity, OperandRole Role, bool Const>
struct BoundDenseComplexIntlvMatrixView {
    using Element = typename Entity::Element;
    static auto get(BackendExecutionBindings& bindings) {
        using namespace CpuOperandViewDetail;
        auto& matrix = access<DenseComplexInterleavedMatrixAccess, Element>(
            entity<MatrixEntity, Role, Const>(bindings));
        return DenseComplexIntlvMatrixView<Viewed<Element, Const>>{matrix.data(), matrix.rows(),
                                                                   matrix.cols(), matrix.layout()};
    }
};

} // namespace Tessaline

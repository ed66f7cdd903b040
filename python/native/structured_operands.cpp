// SPDX-License-Identifier: Apache-2.0
#include "structured_operands.h"

#include "array_policy.h"
#include "borrowed_operand.h"
#include "host_array.h"
#include "interrupts.h"
#include "native_errors.h"
#include "unlocked_interpreter.h"

#include "tessaline/catalogue/builtin_operation_ids.h"
#include "tessaline/frontend/elements.h"
#include "tessaline/storage/borrowed_host_entities.h"

#include <nanobind/stl/complex.h>
#include <nanobind/stl/string_view.h>

#include <algorithm>
#include <array>
#include <memory>
#include <stdexcept>
#include <vector>

namespace nb = nanobind;
using namespace nb::literals;

namespace Tessaline::Python {

namespace {

const char* word_of(ScalarType type) {
    return scalar_metadata(type).name;
}

/// The type of structured storage that two dtype words ask for: the compute type of their policy.
DataTypeDescriptor structured_type(std::string_view dtype, std::string_view compute) {
    std::optional<DataTypeDescriptor> found;
    for_each_numeric_policy([&](auto policy) {
        if (!policy.is_integer && dtype == word_of(policy.storage_type) &&
            (compute.empty() || compute == word_of(policy.compute_type))) {
            found = DataTypeDescriptor::from_scalar_types(policy.compute_type, policy.compute_type);
        }
    });
    if (!found) {
        throw std::invalid_argument("structured operand - uncompiled storage/compute dtype policy");
    }
    return *found;
}

/// Calls `visitor` with the numeric policy of factors, which are stored in the type that they are
/// computed in.
template <typename Visitor>
decltype(auto) visit_factor_policy(const DataTypeDescriptor& type, Visitor&& visitor) {
    return visit_numeric_policy(type, [&](auto policy) -> decltype(visitor(PolicyOf<float>{})) {
        using Policy = decltype(policy);
        if constexpr (std::is_same_v<typename Policy::Stored, typename Policy::Compute> &&
                      !Policy::is_integer) {
            return visitor(policy);
        } else {
            throw std::invalid_argument(
                "structured operand requires a float32/64 or complex64/128 factor policy");
        }
    });
}

template <typename Element>
bool is_aligned(const HostArray& array) {
    return reinterpret_cast<std::uintptr_t>(array.data()) % alignof(Component<Element>) == 0;
}

/// The order of a square matrix.
std::size_t order_of(const HostArray& matrix) {
    if (matrix.rank() != 2 || matrix.extent(0) != matrix.extent(1)) {
        throw std::invalid_argument("LUOperand - matrix must be square");
    }
    return matrix.extent(0);
}

HostArray matrix_of(nb::handle array) {
    try {
        return HostArray(array, false);
    } catch (const CastError& fault) {
        throw CastError(std::string("LUOperand - matrix ") + fault.what());
    }
}

/// A copy of row-major elements, in column-major order.
template <typename T>
LuFactorisation factors_of(const T* elements, std::size_t order) {
    using Borrowed =
        std::conditional_t<is_complex_element<T>, BorrowedDenseHostComplexInterleavedMatrix<T, T>,
                           BorrowedDenseHostRealMatrix<T, T>>;
    return LuFactorisation::from_host_matrix(
        Matrix(std::make_unique<Borrowed>(elements, order, order)));
}

/// A copy of a row-major matrix in the policy's compute type, in column-major order.
template <typename Policy>
LuFactorisation widened_copy(const HostArray& matrix, std::size_t order) {
    using Compute = typename Policy::Compute;
    const auto* source = static_cast<const typename Policy::Stored*>(matrix.data());
    const std::uint64_t count = checked_element_count(order, order);
    const UnlockedInterpreter unlocked;
    if constexpr (std::is_same_v<Compute, typename Policy::Stored>) {
        return factors_of(source, order);
    } else {
        const auto widened = std::make_unique_for_overwrite<Compute[]>(count);
        std::transform(source, source + count, widened.get(),
                       [](auto stored) { return static_cast<Compute>(stored); });
        return factors_of<Compute>(widened.get(), order);
    }
}

LuFactorisation lu_from_array(nb::handle array, std::string_view dtype, std::string_view compute) {
    const HostArray matrix = matrix_of(array);
    const std::size_t order = order_of(matrix);
    const ArrayPolicy policy = select_array_policy(matrix.dtype(), compute);
    if (!policy ||
        scalar_metadata(policy->storage_type()).category == ScalarCategory::real_integer) {
        throw std::invalid_argument("LUOperand - matrix requires floating point storage");
    }
    if (!dtype.empty() && dtype != word_of(policy->storage_type())) {
        throw std::invalid_argument("LUOperand - explicit dtype does not match array storage");
    }
    return visit_numeric_policy(*policy, [&](auto numeric_policy) {
        using Policy = decltype(numeric_policy);
        if (!is_aligned<typename Policy::Stored>(matrix)) {
            throw std::invalid_argument("LUOperand - input must be aligned");
        }
        return widened_copy<Policy>(matrix, order);
    });
}

[[noreturn]] void refuse_type(const std::string& text) {
    throw nb::type_error(text.c_str());
}

/// An array that takes the solution where it lies.
HostArray right_hand_side(nb::handle array) {
    try {
        HostArray rhs(array, true);
        if (!rhs.is_copy()) {
            return rhs;
        }
    } catch (const CastError& fault) {
        refuse_type(std::string("solve - right-hand side ") + fault.what());
    } catch (const std::invalid_argument& fault) {
        refuse_type(std::string("solve - ") + fault.what());
    }
    refuse_type("solve - right-hand side is not in C order");
}

/// What a Python object of the class holds. Raises TypeError for one that was never initialised.
template <typename Class>
Class& ready(nb::handle object) {
    if (!nb::inst_ready(object)) {
        refuse_type("the object was never initialised");
    }
    return nb::cast<Class&>(object);
}

using ArrayView = nb::ndarray<nb::numpy, nb::device::cpu>;

/// A writable view of an operand's elements, kept alive by the operand's Python object.
template <typename T>
ArrayView view(T* data, std::initializer_list<std::size_t> shape,
               std::initializer_list<std::int64_t> strides, nb::handle owner) {
    return {data, shape, owner, strides, dlpack_type(ElementTraits<T>::scalar_type)};
}

constexpr const char* view_name = "structured ndarray export";

/// An (n, n) column-major view of a buffer, or with `vector` one of its n elements.
template <typename Entity>
ArrayView factor_view(Entity& entity, BufferRole role, bool vector, nb::handle owner) {
    const std::uint64_t size = entity.descriptor().size();
    return visit_factor_policy(entity.descriptor().type(), [&](auto policy) {
        using Element = typename decltype(policy)::Stored;
        auto* data =
            require_buffer_data<Element>(entity, role, vector ? size : size * size, view_name);
        return vector ? view(data, {size}, {1}, owner)
                      : view(data, {size, size}, {1, static_cast<std::int64_t>(size)}, owner);
    });
}

template <typename Class>
void define_common_properties(nb::class_<Class>& type) {
    type.def_prop_ro("dtype",
                     [](const Class& self) { return word_of(self.handle().type().storage_type()); })
        .def_prop_ro("compute_dtype",
                     [](const Class& self) { return word_of(self.handle().type().compute_type()); })
        .def_prop_ro("size", [](const Class& self) { return self.handle().size(); });
}

/// Runs an operation without the interpreter lock.
void run_unlocked(const NativeContext& context, const OperationId& id,
                  const OperationBindings& bindings) {
    const UnlockedInterpreter unlocked;
    context.executor().execute(id, bindings, interruptible());
}

/// How many solutions are found before signals are looked at.
constexpr std::size_t rows_between_signals = 64;

/// Overwrites each row of an array in C order, a right-hand side of the factor's type, with its
/// solution. Each has the bits of a run of its own, for that is what it is.
void solve_rows(const LuFactorisation& factor, const NativeContext& context, nb::handle array) {
    const HostArray rows = right_hand_side(array);
    const std::uint64_t size = factor.size();
    const DataTypeDescriptor& type = factor.type();
    if (rows.rank() != 2 || rows.extent(1) != size ||
        rows.dtype() != dlpack_type(type.storage_type())) {
        refuse_type("solve - right-hand sides do not match the factor");
    }
    const OperationSpec& solve = context.context().operation(BuiltinOperations::solve);
    const std::size_t row_bytes = size * scalar_metadata(type.storage_type()).size;
    const std::array extents{static_cast<std::size_t>(size)};
    auto* const first = static_cast<std::byte*>(rows.data());
    for (std::size_t done = 0; done < rows.extent(0);) {
        const std::size_t end = std::min(rows.extent(0), done + rows_between_signals);
        {
            const UnlockedInterpreter unlocked;
            for (; done < end; ++done) {
                BorrowedOperand solution;
                BackendExecutionBindings bindings;
                bindings.operands.insert(input_role(0), ConstOperandEntityRef(factor.entity()));
                bindings.operands.insert(
                    output_role(0), solution.borrow(type, first + done * row_bytes, extents, true));
                bindings.roles = {input_role(0), output_role(0)};
                context.executor().execute(bindings, solve, interruptible());
            }
        }
        if (PyErr_CheckSignals() != 0) {
            throw nb::python_error();
        }
    }
}

template <typename Operand>
auto& swap_count(Operand& self) {
    return *require_buffer_data<unsigned long>(self.handle().entity(), BufferRole::lu_swap_count, 1,
                                               "LUOperand.swaps");
}

void define_lu_operand(nb::module_& module) {
    nb::class_<NativeLUOperand> type(module, "LUOperand",
                                     "Host storage of an LU factorisation, in compute precision.");
    type.def(nb::init<std::uint64_t, std::string_view, std::string_view>(), "size"_a, nb::kw_only(),
             "dtype"_a = "complex64", "compute_dtype"_a = "")
        .def(nb::init<nb::handle, std::string_view, std::string_view>(),
             nb::arg("values").noconvert(), nb::kw_only(), "dtype"_a = "", "compute_dtype"_a = "");
    define_common_properties(type);
    using Self = nb::handle_t<NativeLUOperand>;
    const auto entity = [](nb::handle self) -> LuDecompEntity& {
        return ready<NativeLUOperand>(self).handle().entity();
    };
    type.def_prop_ro(
            "pivots",
            [entity](Self self) {
                LuDecompEntity& lu = entity(self);
                const std::uint64_t size = lu.descriptor().size();
                return nb::ndarray<nb::numpy, long, nb::shape<-1>, nb::device::cpu>(
                    require_buffer_data<long>(lu, BufferRole::lu_pivots, size, "LUOperand.pivots"),
                    {size}, self);
            })
        .def_prop_ro("factors",
                     [entity](Self self) {
                         return factor_view(entity(self), BufferRole::lu_factors, false, self);
                     })
        .def_prop_ro("swaps", [](const NativeLUOperand& self) { return swap_count(self); })
        .def(
            "_solve_rows",
            [](const NativeLUOperand& self, const NativeContext& context, nb::handle rows) {
                solve_rows(self.handle(), context, rows);
            },
            "context"_a, "rows"_a, "Overwrite right-hand sides, one a row, with solutions.")
        .def(
            "_set_swaps",
            [](NativeLUOperand& self, unsigned long swaps) { swap_count(self) = swaps; }, "swaps"_a,
            "Complete factors that were copied into the views.");
}

void define_eigen_operand(nb::module_& module) {
    nb::class_<NativeEigenOperand> type(module, "EigenOperand",
                                        "Host storage of eigenvalues and eigenvectors.");
    type.def(nb::init<std::uint64_t, std::string_view, std::string_view>(), "size"_a, nb::kw_only(),
             "dtype"_a = "complex64", "compute_dtype"_a = "");
    define_common_properties(type);
    using Self = nb::handle_t<NativeEigenOperand>;
    const auto entity = [](nb::handle self) -> EigenValsEntity& {
        return ready<NativeEigenOperand>(self).handle().entity();
    };
    type.def_prop_ro("values",
                     [entity](Self self) {
                         return factor_view(entity(self), BufferRole::eigenvalues, true, self);
                     })
        .def_prop_ro("vectors", [entity](Self self) {
            return factor_view(entity(self), BufferRole::eigenvectors, false, self);
        });
}

void define_lu_factor(nb::module_& module) {
    nb::class_<NativeLUFactor> type(module, "LUFactor", "The LU factorisation of one matrix.");
    type.def(
        "__init__",
        [](NativeLUFactor* self, nb::handle matrix, nb::handle_t<NativeContext> context) {
            new (self) NativeLUFactor(matrix, nb::borrow(context));
        },
        "a"_a, "context"_a);
    define_common_properties(type);
    type.def("solve", &NativeLUFactor::solve, "rhs"_a,
             nb::sig("def solve(self, rhs: numpy.ndarray[order='C', device='cpu']) -> None"),
             "Overwrite a right-hand side with the solution.")
        .def(
            "logdet", [](const NativeLUFactor& self) { return nb::cast(self.logdet()); },
            "The logarithm of the determinant.");
}

} // namespace

NativeLUOperand::NativeLUOperand(std::uint64_t size, std::string_view dtype,
                                 std::string_view compute_dtype)
    : lu_(LuFactorisation::host_impl(structured_type(dtype, compute_dtype), size)) {}

NativeLUOperand::NativeLUOperand(nb::handle matrix, std::string_view dtype,
                                 std::string_view compute_dtype)
    : lu_(lu_from_array(matrix, dtype, compute_dtype)) {}

NativeEigenOperand::NativeEigenOperand(std::uint64_t size, std::string_view dtype,
                                       std::string_view compute_dtype)
    : eigen_(EigenValues::host_impl(structured_type(dtype, compute_dtype), size,
                                    DataMatrixLayout::column_major)) {}

NativeLUFactor::NativeLUFactor(nb::handle matrix, nb::object context)
    : context_(&ready<NativeContext>(context)),
      context_owner_(std::move(context)),
      operand_(std::make_shared<NativeLUOperand>(matrix, "", "")) {
    OperationBindings bindings;
    bindings.bind(output_role(0), operand_->handle());
    run_unlocked(*context_, BuiltinOperations::lu_factor, bindings);
}

void NativeLUFactor::solve(nb::handle array) const {
    const HostArray rhs = right_hand_side(array);
    if (rhs.rank() != 1 || rhs.extent(0) != handle().size()) {
        throw std::invalid_argument("solve - right-hand side size mismatch");
    }
    Vector solution = visit_factor_policy(handle().type(), [&](auto policy) {
        using Element = typename decltype(policy)::Stored;
        if (rhs.dtype() != dlpack_type(ElementTraits<Element>::scalar_type)) {
            throw std::invalid_argument("solve - right-hand side dtype does not match factor");
        }
        if (!is_aligned<Element>(rhs)) {
            throw std::invalid_argument("solve - right-hand side must be aligned");
        }
        auto* data = static_cast<Element*>(rhs.data());
        if constexpr (is_complex_element<Element>) {
            return Vector(
                std::make_unique<BorrowedDenseHostComplexInterleavedVector<Element, Element>>(
                    data, rhs.extent(0)));
        } else {
            return Vector(std::make_unique<BorrowedDenseHostRealVector<Element, Element>>(
                data, rhs.extent(0)));
        }
    });
    OperationBindings bindings;
    bindings.bind(input_role(0), handle()).bind(output_role(0), solution);
    run_unlocked(*context_, BuiltinOperations::solve, bindings);
}

std::complex<double> NativeLUFactor::logdet() const {
    return visit_factor_policy(handle().type(), [&](auto policy) -> std::complex<double> {
        using Complex = std::complex<Component<typename decltype(policy)::Stored>>;
        Scalar result = Scalar::host(Complex{});
        OperationBindings bindings;
        bindings.bind(input_role(0), handle()).bind(output_role(0), result);
        run_unlocked(*context_, BuiltinOperations::logdet, bindings);
        return std::complex<double>(value<Complex>(result));
    });
}

void define_structured_operands(nb::module_& module) {
    define_lu_operand(module);
    define_eigen_operand(module);
    define_lu_factor(module);
}

} // namespace Tessaline::Python

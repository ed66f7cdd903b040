// SPDX-License-Identifier: Apache-2.0
#include "execute_operation.h"

#include "array_policy.h"
#include "borrowed_operand.h"
#include "host_array.h"
#include "interrupts.h"
#include "native_errors.h"
#include "structured_operands.h"
#include "text.h"
#include "unlocked_interpreter.h"

#include <array>
#include <memory>
#include <stdexcept>
#include <vector>

namespace nb = nanobind;

namespace Tessaline::Python {

namespace {

[[noreturn]] void refuse(const std::string& what) {
    throw std::invalid_argument("Context.execute - " + what);
}

void require_alignment(const void* data, const DataTypeDescriptor& type) {
    const ScalarMetadata& element = scalar_metadata(type.storage_type());
    if (reinterpret_cast<std::uintptr_t>(data) % scalar_metadata(element.component).size != 0) {
        throw std::logic_error(
            "Context.execute - storage buffer type, alignment or count mismatch");
    }
}

/// The item of a dictionary, null when it has none. It is owned, since comparisons of other keys
/// run code that may clear the dictionary.
nb::object find(const nb::dict& dictionary, const nb::int_& key) {
    PyObject* item = PyDict_GetItemWithError(dictionary.ptr(), key.ptr());
    if (item == nullptr && PyErr_Occurred() != nullptr) {
        throw nb::python_error();
    }
    return nb::borrow(item);
}

/// A word of the caller's, valid as long as the object lives.
std::string_view word_of(nb::handle object, const char* what, OperandRole role) {
    const auto word = text_of(object);
    if (!word) {
        throw CastError(std::string("Context.execute - ") + what + " " + operand_role_name(role) +
                        " must be text");
    }
    return *word;
}

/// What a structured operand of the caller's holds.
template <typename Operand>
auto& structured_handle(nb::handle binding, OperandRole role) {
    if (!nb::inst_ready(binding)) {
        throw CastError("Context.execute - " + operand_role_name(role) + " was never initialised");
    }
    return nb::cast<Operand&>(binding).handle();
}

/// The state of one call: what it borrows from the caller, and what it hands back.
class Call {
  public:
    Call(const OperationDescription& operation, const nb::dict& bindings, const nb::dict& locations,
         const nb::dict& compute_dtypes);

    BackendExecutionBindings& bindings() { return bindings_; }
    /// Writes boolean results into the caller's elements. Needs no interpreter lock.
    void export_booleans() const;
    nb::object results() const;

  private:
    /// A boolean result: the caller's byte and the scalar that stands for it during the run.
    struct BooleanExport {
        std::unique_ptr<int> scalar;
        std::uint8_t* target;
    };

    static void check_compute_dtypes(const nb::dict& bindings, const nb::dict& compute_dtypes);
    void take(const OperationOperandSpec& operand, const nb::dict& bindings,
              const nb::dict& locations, const nb::dict& compute_dtypes);
    void take_operand(const OperationOperandSpec& operand, nb::handle binding, bool on_host,
                      std::string_view compute);
    template <typename Operand>
    void bind_structured(OperandRole role, bool written, nb::handle binding,
                         std::string_view compute);
    const HostArray& host_array(OperandRole role, nb::handle array, bool writable);
    void take_array(const OperationOperandSpec& operand, nb::handle array,
                    std::string_view compute);
    void take_boolean(const OperationOperandSpec& operand, OperandKind kind, void* data);
    void bind(OperandRole role, OperandBinding binding);
    /// Memory of a caller's array, or of the scalar that stands for a boolean.
    void bind_borrowed(OperandRole role, const DataTypeDescriptor& type, void* data,
                       std::span<const std::size_t> extents, bool writable);

    std::vector<HostArray> arrays_;
    std::vector<nb::object> structured_;          ///< kept alive, as the arrays keep theirs
    std::unique_ptr<BorrowedOperand[]> borrowed_; ///< a place for each operand
    BackendExecutionBindings bindings_;
    std::vector<BooleanExport> booleans_;
    std::vector<nb::object> results_;
};

Call::Call(const OperationDescription& operation, const nb::dict& bindings,
           const nb::dict& locations, const nb::dict& compute_dtypes) {
    const std::size_t count = operation.operands.size();
    if (bindings.size() != count || locations.size() != count) {
        refuse("binding count does not match operation");
    }
    if (compute_dtypes.size() != 0) {
        check_compute_dtypes(bindings, compute_dtypes);
    }
    arrays_.reserve(count);
    borrowed_ = std::make_unique<BorrowedOperand[]>(count);
    bindings_.operands.reserve(count);
    bindings_.roles.reserve(count);
    for (const OperationOperandSpec& operand : operation.operands) {
        take(operand, bindings, locations, compute_dtypes);
    }
    if (bindings_.operands.size() != count) {
        throw std::logic_error("Context.execute - failed to marshal every binding");
    }
}

void Call::check_compute_dtypes(const nb::dict& bindings, const nb::dict& compute_dtypes) {
    // A copy of the items: looking a key up runs code that may change the dictionary.
    for (const nb::handle item : compute_dtypes.items()) {
        const nb::object key = item[0];
        if (!bindings.contains(key)) {
            refuse("compute dtype role has no binding");
        }
        // Any other key stands where a binding is going to be missed.
        if (std::uint32_t role{}; nb::try_cast(key, role)) {
            word_of(nb::object(item[1]), "compute dtype of", static_cast<OperandRole>(role));
        }
    }
}

void Call::take(const OperationOperandSpec& operand, const nb::dict& bindings,
                const nb::dict& locations, const nb::dict& compute_dtypes) {
    const nb::int_ key(static_cast<std::uint32_t>(operand.role));
    const nb::object compute = find(compute_dtypes, key);
    const nb::object binding = find(bindings, key);
    if (!binding.is_valid()) {
        refuse("missing binding " + operand_role_name(operand.role));
    }
    const nb::object location = find(locations, key);
    if (!location.is_valid()) {
        refuse("missing location for " + operand_role_name(operand.role));
    }
    const std::string_view word = word_of(location, "location for", operand.role);
    if (word != "host" && word != "cuda") {
        refuse("invalid location for " + operand_role_name(operand.role));
    }
    if (operand.access != OperandAccess::read) {
        results_.push_back(binding);
    }
    take_operand(operand, binding, word == "host",
                 compute.is_valid() ? word_of(compute, "compute dtype of", operand.role)
                                    : std::string_view());
}

void Call::take_operand(const OperationOperandSpec& operand, nb::handle binding, bool on_host,
                        std::string_view compute) {
    // Asked only where the kind leaves it open: for an array each costs as much as its import.
    const auto is_lu = [&] { return nb::isinstance<NativeLUOperand>(binding); };
    const auto is_eigen = [&] { return nb::isinstance<NativeEigenOperand>(binding); };
    std::optional<OperandKind> kind = operand.kind;
    if (!kind && is_lu()) {
        kind = OperandKind::LuDecomp;
    } else if (!kind && is_eigen()) {
        kind = OperandKind::EigenVals;
    }
    const bool written = operand.access != OperandAccess::read;
    if (kind == OperandKind::LuDecomp) {
        if (!on_host) {
            refuse("LUOperand must use host residency");
        }
        if (!is_lu()) {
            refuse("LU binding requires LUOperand");
        }
        bind_structured<NativeLUOperand>(operand.role, written, binding, compute);
    } else if (kind == OperandKind::EigenVals) {
        if (!on_host) {
            refuse("CUDA eigen binding requires CudaEigenOperand");
        }
        if (!is_eigen()) {
            refuse("host eigen binding requires EigenOperand");
        }
        bind_structured<NativeEigenOperand>(operand.role, written, binding, compute);
    } else if (!on_host) {
        refuse("CUDA binding requires a device-specific Context");
    } else {
        take_array(operand, binding, compute);
    }
}

template <typename Operand>
void Call::bind_structured(OperandRole role, bool written, nb::handle binding,
                           std::string_view compute) {
    auto& handle = structured_handle<Operand>(binding, role);
    if (!compute.empty() && compute != scalar_metadata(handle.type().compute_type()).name) {
        refuse("structured operand compute dtype is fixed at construction");
    }
    structured_.push_back(nb::borrow(binding));
    bind(role, binding_of(handle.entity(), written));
}

const HostArray& Call::host_array(OperandRole role, nb::handle array, bool writable) {
    try {
        return arrays_.emplace_back(array, writable);
    } catch (const CastError& fault) {
        throw CastError("Context.execute - " + operand_role_name(role) + " " + fault.what());
    }
}

void Call::take_array(const OperationOperandSpec& operand, nb::handle array,
                      std::string_view compute) {
    const bool writable = operand.access != OperandAccess::read;
    const HostArray& taken = host_array(operand.role, array, writable);
    if (taken.rank() > 2) {
        refuse("array binding rank must be zero, one or two");
    }
    const OperandKind kind = operand.kind.value_or(static_cast<OperandKind>(taken.rank()));
    const ArrayPolicy policy = select_array_policy(taken.dtype(), compute);
    static constexpr const char* rank_words[] = {"scalar binding must have rank zero",
                                                 "vector binding must have rank one",
                                                 "matrix binding must have rank two"};
    if (static_cast<std::size_t>(kind) != taken.rank()) {
        refuse(rank_words[static_cast<std::size_t>(kind)]);
    }
    if (!policy) {
        take_boolean(operand, kind, taken.data());
        return;
    }
    require_alignment(taken.data(), *policy);
    const std::array extents{taken.extent(0), taken.extent(1)};
    bind_borrowed(operand.role, *policy, taken.data(), std::span(extents).first(taken.rank()),
                  writable);
}

void Call::take_boolean(const OperationOperandSpec& operand, OperandKind kind, void* data) {
    if (kind != OperandKind::Scalar) {
        refuse("bool arrays are supported only for scalar outputs");
    }
    if (operand.access == OperandAccess::read) {
        refuse("bool scalar bindings must be writable");
    }
    auto* const target = static_cast<std::uint8_t*>(data);
    const int content = operand.access == OperandAccess::read_write ? *target : 0;
    booleans_.push_back({std::make_unique<int>(content), target});
    bind_borrowed(operand.role, DataTypeDescriptor::real_int(), booleans_.back().scalar.get(), {},
                  true);
}

void Call::bind(OperandRole role, OperandBinding binding) {
    bindings_.operands.insert(role, binding);
    bindings_.roles.push_back(role); // in the contract's order, which is ascending
}

void Call::bind_borrowed(OperandRole role, const DataTypeDescriptor& type, void* data,
                         std::span<const std::size_t> extents, bool writable) {
    BorrowedOperand& operand = borrowed_[bindings_.roles.size()];
    bind(role, operand.borrow(type, data, extents, writable));
}

void Call::export_booleans() const {
    for (const BooleanExport& boolean : booleans_) {
        *boolean.target = *boolean.scalar != 0 ? 1 : 0;
    }
}

nb::object Call::results() const {
    if (results_.size() == 1) {
        return results_.front();
    }
    nb::list list;
    for (const nb::object& result : results_) {
        list.append(result);
    }
    return nb::tuple(list);
}

} // namespace

nb::object execute_operation(const NativeContext& context, std::string_view operation,
                             const nb::dict& bindings, const nb::dict& locations,
                             const nb::dict& compute_dtypes) {
    const OperationId id = OperationId::parse(operation);
    Call call(context.context().describe(id), bindings, locations, compute_dtypes);
    {
        const UnlockedInterpreter unlocked;
        context.executor().execute(call.bindings(), id, interruptible());
        call.export_booleans();
    }
    return call.results();
}

} // namespace Tessaline::Python

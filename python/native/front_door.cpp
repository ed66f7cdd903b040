// SPDX-License-Identifier: Apache-2.0
#include "front_door.h"

#include "borrowed_operand.h"
#include "interrupts.h"
#include "native_errors.h"
#include "number.h"
#include "numpy_api.h"
#include "numpy_types.h"
#include "unlocked_interpreter.h"

#include "result_policy.h"
#include "tessaline/storage/numeric_policy.h"

#include <nanobind/stl/string.h>

#include <algorithm>
#include <optional>
#include <stdexcept>

namespace nb = nanobind;
using namespace nb::literals;

namespace Tessaline::Python {

namespace {

constexpr std::size_t most_operands = 2; ///< that are read

/// Up to so many elements a call keeps the interpreter lock: it is over in microseconds, and a
/// thread that lets go of the lock may wait milliseconds for it to come back.
constexpr npy_intp most_elements_in_lock = 256;

constexpr std::size_t most_axes = 2;

using Shape = std::array<npy_intp, most_axes>;
using Sizes = std::array<npy_intp, 26>; ///< by letter, negative where it is open

/// One axis of a result: the product of the sizes of letters.
using Axis = std::vector<std::size_t>;

std::size_t letter_index(char letter) {
    if (letter < 'a' || letter > 'z') {
        throw std::invalid_argument("a signature's sizes are single letters");
    }
    return static_cast<std::size_t>(letter - 'a');
}

/// The letters of "m" or "m*p".
Axis parse_axis(const std::string& text) {
    Axis letters;
    for (std::size_t place = 0; place < text.size(); place += 2) {
        letters.push_back(letter_index(text[place]));
    }
    return letters;
}

std::vector<Axis> parse_axes(nb::handle dimensions) {
    std::vector<Axis> axes;
    for (const nb::handle dimension : dimensions) {
        axes.push_back(parse_axis(nb::cast<std::string>(dimension)));
    }
    if (axes.size() > most_axes) {
        throw std::invalid_argument("a signature's operands have at most two axes");
    }
    return axes;
}

/// The extents of an array, if it has as many axes as it should and its sizes agree with those of
/// the letters so far.
bool bind_sizes(PyArrayObject* array, const std::vector<Axis>& axes, Sizes& sizes) {
    if (static_cast<std::size_t>(PyArray_NDIM(array)) != axes.size()) {
        return false;
    }
    for (std::size_t axis = 0; axis < axes.size(); ++axis) {
        npy_intp& size = sizes[axes[axis].front()];
        const npy_intp extent = PyArray_DIM(array, static_cast<int>(axis));
        if (size >= 0 && size != extent) {
            return false;
        }
        size = extent;
    }
    return true;
}

/// An array as the runtime reads it in place. Subclasses have a mind of their own.
PyArrayObject* ordinary_array(nb::handle object) {
    if (!PyArray_CheckExact(object.ptr())) {
        return nullptr;
    }
    auto* const array = reinterpret_cast<PyArrayObject*>(object.ptr());
    return PyArray_ISCARRAY_RO(array) ? array : nullptr;
}

std::array<std::size_t, most_axes> extents_of(PyArrayObject* array) {
    std::array<std::size_t, most_axes> extents{};
    std::copy_n(PyArray_DIMS(array), PyArray_NDIM(array), extents.begin());
    return extents;
}

OperandBinding borrow_array(BorrowedOperand& operand, const DataTypeDescriptor& type,
                            PyArrayObject* array, bool writable) {
    const auto extents = extents_of(array);
    const auto rank = static_cast<std::size_t>(PyArray_NDIM(array));
    return operand.borrow(type, PyArray_DATA(array), std::span(extents).first(rank), writable);
}

/// The policy of a compiled element type that arrays have without further words.
DataTypeDescriptor default_policy(ScalarType element) {
    std::optional<DataTypeDescriptor> found;
    for_each_numeric_policy([&](auto policy) {
        if (policy.storage_type == element) {
            found = policy.type();
        }
    });
    return *found;
}

nb::object stolen(PyObject* object) {
    if (object == nullptr) {
        throw nb::python_error();
    }
    return nb::steal(object);
}

nb::object new_array(int number, Shape shape, std::size_t rank) {
    return stolen(
        PyArray_Empty(static_cast<int>(rank), shape.data(), PyArray_DescrFromType(number), 0));
}

nb::object copy_of(PyArrayObject* array) {
    return stolen(PyArray_NewCopy(array, NPY_CORDER));
}

/// Whether a caller's `out` takes a result as it is.
bool is_result(nb::handle out, int number, const Shape& shape, std::size_t rank) {
    PyArrayObject* const array = ordinary_array(out);
    return array != nullptr && PyArray_ISWRITEABLE(array) && PyArray_TYPE(array) == number &&
           static_cast<std::size_t>(PyArray_NDIM(array)) == rank &&
           std::equal(shape.begin(), shape.begin() + rank, PyArray_DIMS(array));
}

} // namespace

/// One function of the package.
class PackageFunction {
  public:
    PackageFunction(const FrontDoor& door, nb::object owner, nb::object signature,
                    nb::object unusual, std::size_t index, bool real_result);

    /// How many arguments stand before `out`.
    std::size_t arity() const { return inputs_.size() + open_letters_.size(); }

    nb::object call(std::span<const nb::handle> arguments, nb::handle out, nb::handle dtype,
                    nb::handle context) const;

    std::array<nb::object*, 3> held() { return {&owner_, &signature_, &unusual_}; }

  private:
    struct Operands;

    nb::object call_as_usual(std::span<const nb::handle> arguments, nb::handle out,
                             nb::handle context) const;
    bool take(std::span<const nb::handle> arguments, Operands& operands) const;
    /// Sizes of factors of the first operand's first axis.
    bool take_sizes(std::span<const nb::handle> arguments, Sizes& sizes) const;
    std::optional<Shape> result_shape(const Sizes& sizes) const;
    FunctionFacts& facts(const NativeContext& context) const;
    std::optional<ScalarType> result_element(const NativeContext& context,
                                             const DataTypeDescriptor& type) const;
    nb::object scalar_result(const NativeContext& context, Operands& operands,
                             ScalarType element) const;
    nb::object array_result(const NativeContext& context, Operands& operands, ScalarType element,
                            nb::handle out) const;
    void run(const NativeContext& context, Operands& operands, OperandBinding result) const;

    const FrontDoor& door_;
    nb::object owner_; ///< keeps the door
    nb::object signature_;
    nb::object unusual_;
    std::size_t index_; ///< of what contexts know of the function
    OperationId id_;
    std::vector<std::vector<Axis>> inputs_;
    std::vector<Axis> output_;
    std::vector<std::size_t> open_letters_; ///< whose sizes are arguments
    bool in_place_;                         ///< the last input is copied into the result
    bool real_result_;                      ///< of a complex scalar the real part is the result
};

struct PackageFunction::Operands {
    DataTypeDescriptor type = DataTypeDescriptor::real_float(); ///< of all of them
    Sizes sizes;
    std::size_t count = 0;
    bool are_few = true;                                     ///< elements of each array
    std::array<PyArrayObject*, most_operands> arrays{};      ///< null for a number
    std::array<BorrowedOperand, most_operands + 1> borrowed; ///< the last one is the result
    alignas(16) std::byte number[16];
    alignas(16) std::byte scalar[16];
    BackendExecutionBindings bindings;

    Operands() { sizes.fill(-1); }

    void bind(OperandRole role, OperandBinding binding) {
        bindings.operands.insert(role, binding);
        bindings.roles.push_back(role);
    }
};

PackageFunction::PackageFunction(const FrontDoor& door, nb::object owner, nb::object signature,
                                 nb::object unusual, std::size_t index, bool real_result)
    : door_(door),
      owner_(std::move(owner)),
      signature_(std::move(signature)),
      unusual_(std::move(unusual)),
      index_(index),
      id_(OperationId::parse(nb::cast<std::string>(signature_.attr("id")))),
      in_place_(nb::cast<bool>(signature_.attr("in_place"))),
      real_result_(real_result) {
    Sizes known;
    known.fill(-1);
    for (const nb::handle dimensions : nb::object(signature_.attr("inputs"))) {
        inputs_.push_back(parse_axes(dimensions));
        for (const Axis& axis : inputs_.back()) {
            known[axis.front()] = 1;
        }
    }
    const nb::tuple outputs(signature_.attr("outputs"));
    output_ = parse_axes(outputs[0]);
    for (const Axis& axis : output_) {
        for (const std::size_t letter : axis) {
            if (std::exchange(known[letter], 1) < 0) {
                open_letters_.push_back(letter);
            }
        }
    }
    if (outputs.size() != 1 || inputs_.empty() || arity() > most_operands) {
        throw std::invalid_argument("no function of this signature has a front door");
    }
}

nb::object PackageFunction::call(std::span<const nb::handle> arguments, nb::handle out,
                                 nb::handle dtype, nb::handle context) const {
    if (dtype.is_none()) {
        if (nb::object result = call_as_usual(arguments, out, context); result.is_valid()) {
            return result;
        }
    }
    return arguments.size() == 1 ? unusual_(arguments[0], out, dtype, context)
                                 : unusual_(arguments[0], arguments[1], out, dtype, context);
}

nb::object PackageFunction::call_as_usual(std::span<const nb::handle> arguments, nb::handle out,
                                          nb::handle context) const {
    nb::object owner;
    const NativeContext* const native = door_.context(context, owner);
    Operands operands;
    if (native == nullptr || !take(arguments.first(inputs_.size()), operands) ||
        !take_sizes(arguments.subspan(inputs_.size()), operands.sizes)) {
        return {};
    }
    const auto element = result_element(*native, operands.type);
    if (!element) {
        return {};
    }
    return output_.empty() && out.is_none() ? scalar_result(*native, operands, *element)
                                            : array_result(*native, operands, *element, out);
}

bool PackageFunction::take(std::span<const nb::handle> arguments, Operands& operands) const {
    const NumpyTypes& types = NumpyTypes::get();
    for (std::size_t index = 0; index < arguments.size(); ++index) {
        const std::vector<Axis>& axes = inputs_[index];
        const bool is_number = axes.empty();
        PyArrayObject* const array = is_number ? nullptr : ordinary_array(arguments[index]);
        if (is_number) {
            if (!store_number(arguments[index], operands.type, operands.number)) {
                return false;
            }
        } else if (array == nullptr || !bind_sizes(array, axes, operands.sizes)) {
            return false;
        } else if (index == 0) {
            const auto element = types.element(PyArray_TYPE(array));
            if (!element || *element == ScalarType::Int32) {
                return false;
            }
            operands.type = default_policy(*element);
        } else if (PyArray_TYPE(array) != PyArray_TYPE(operands.arrays[0])) {
            return false;
        }
        operands.arrays[index] = array;
        operands.are_few =
            operands.are_few && (is_number || PyArray_SIZE(array) <= most_elements_in_lock);
    }
    operands.count = arguments.size();
    return true;
}

bool PackageFunction::take_sizes(std::span<const nb::handle> arguments, Sizes& sizes) const {
    for (std::size_t index = 0; index < arguments.size(); ++index) {
        PyObject* const number = arguments[index].ptr();
        if (!PyLong_CheckExact(number)) {
            return false;
        }
        const Py_ssize_t size = PyLong_AsSsize_t(number);
        if (size < 1 || sizes[inputs_[0][0].front()] % size != 0) {
            PyErr_Clear();
            return false;
        }
        sizes[open_letters_[index]] = size;
    }
    return true;
}

std::optional<Shape> PackageFunction::result_shape(const Sizes& sizes) const {
    Shape shape{};
    for (std::size_t axis = 0; axis < output_.size(); ++axis) {
        shape[axis] = 1;
        for (const std::size_t letter : output_[axis]) {
            if (__builtin_mul_overflow(shape[axis], sizes[letter], &shape[axis])) {
                return std::nullopt;
            }
        }
    }
    return shape;
}

FunctionFacts& PackageFunction::facts(const NativeContext& context) const {
    FunctionFacts& known = context.facts(index_);
    if (known.operation == nullptr) {
        known.operation = &context.context().operation(id_);
    }
    return known;
}

std::optional<ScalarType> PackageFunction::result_element(const NativeContext& context,
                                                          const DataTypeDescriptor& type) const {
    if (in_place_) {
        return type.storage_type();
    }
    FunctionFacts& known = facts(context);
    for (const auto& [operand, result] : known.results) {
        if (operand == type.storage_type()) {
            return result;
        }
    }
    std::vector<BackendOperandKey> keys;
    for (const std::vector<Axis>& axes : inputs_) {
        keys.push_back(array_key(type.storage_type(), type.compute_type(),
                                 static_cast<OperandKind>(axes.size())));
    }
    const auto kind = static_cast<OperandKind>(output_.size());
    const ScalarType result =
        inferred_result(context, id_, keys, kind, std::nullopt).storage_type();
    known.results.emplace_back(type.storage_type(), result);
    return result;
}

nb::object PackageFunction::scalar_result(const NativeContext& context, Operands& operands,
                                          ScalarType element) const {
    const DataTypeDescriptor type = default_policy(element);
    run(context, operands, operands.borrowed.back().borrow(type, operands.scalar, {}, true));
    if (element == ScalarType::Int32) {
        return nb::bool_(*reinterpret_cast<const int*>(operands.scalar) != 0);
    }
    const ScalarType shown = real_result_ ? scalar_metadata(element).component : element;
    const auto dtype =
        stolen(reinterpret_cast<PyObject*>(PyArray_DescrFromType(NumpyTypes::get().number(shown))));
    return stolen(
        PyArray_Scalar(operands.scalar, reinterpret_cast<PyArray_Descr*>(dtype.ptr()), nullptr));
}

nb::object PackageFunction::array_result(const NativeContext& context, Operands& operands,
                                         ScalarType element, nb::handle out) const {
    const auto shape = result_shape(operands.sizes);
    if (!shape || real_result_) {
        return {};
    }
    const int number = NumpyTypes::get().number(element);
    nb::object result;
    if (out.is_none()) {
        result =
            in_place_ ? copy_of(operands.arrays[0]) : new_array(number, *shape, output_.size());
    } else if (is_result(out, number, *shape, output_.size()) && !in_place_) {
        result = nb::borrow(out);
    } else {
        return {};
    }
    run(context, operands,
        borrow_array(operands.borrowed.back(), default_policy(element),
                     reinterpret_cast<PyArrayObject*>(result.ptr()), true));
    return result;
}

void PackageFunction::run(const NativeContext& context, Operands& operands,
                          OperandBinding result) const {
    const std::size_t count = in_place_ ? operands.count - 1 : operands.count;
    operands.bindings.operands.reserve(count + 1);
    operands.bindings.roles.reserve(count + 1);
    for (std::size_t index = 0; index < count; ++index) {
        PyArrayObject* const array = operands.arrays[index];
        BorrowedOperand& borrowed = operands.borrowed[index];
        operands.bind(input_role(index),
                      array != nullptr
                          ? borrow_array(borrowed, operands.type, array, false)
                          : borrowed.borrow(operands.type, operands.number, {}, false));
    }
    operands.bind(output_role(0), result);
    const OperationSpec& operation = *facts(context).operation;
    try {
        std::optional<UnlockedInterpreter> unlocked;
        if (!operands.are_few || context.context().has_plugins()) {
            unlocked.emplace();
        }
        context.executor().execute(operands.bindings, operation, interruptible());
    } catch (const nb::python_error&) {
        throw; // of a signal's handler
    } catch (...) {
        const nb::object failure = python_exception(std::current_exception());
        const nb::object error = door_.explain_(signature_, failure);
        PyErr_SetObject(error.type().ptr(), error.ptr());
        throw nb::python_error();
    }
}

FrontDoor::FrontDoor(nb::object entered, nb::object context_class, nb::object find_default,
                     nb::object explain)
    : entered_(std::move(entered)),
      context_class_(std::move(context_class)),
      find_default_(std::move(find_default)),
      explain_(std::move(explain)),
      native_name_(nb::steal(PyUnicode_InternFromString("_native"))) {}

const NativeContext* FrontDoor::context(nb::handle given, nb::object& owner) const {
    if (!given.is_none()) {
        owner = nb::borrow(given);
    } else {
        PyObject* contexts = nullptr;
        if (PyContextVar_Get(entered_.ptr(), nullptr, &contexts) != 0 || contexts == nullptr) {
            throw nb::python_error();
        }
        const nb::object entered = nb::steal(contexts);
        const Py_ssize_t count = PyTuple_GET_SIZE(contexts);
        if (count != 0) {
            owner = nb::borrow(PyTuple_GET_ITEM(contexts, count - 1));
        } else {
            if (!default_.is_valid()) {
                default_ = find_default_();
            }
            owner = default_;
        }
    }
    // By the type alone: an object may claim any class, and have anything as its native context.
    auto* const context_type = reinterpret_cast<PyTypeObject*>(context_class_.ptr());
    if (!PyObject_TypeCheck(owner.ptr(), context_type)) {
        return nullptr;
    }
    const nb::object native(owner.attr(native_name_)); // interned: found in a sixth of the time
    return nb::isinstance<NativeContext>(native) && nb::inst_ready(native)
               ? nb::inst_ptr<NativeContext>(native)
               : nullptr;
}

namespace {

/// The native exception in hand as Python's error.
void raise_current_exception() {
    try {
        throw;
    } catch (nb::python_error& error) {
        error.restore();
    } catch (...) {
        const nb::object error = python_exception(std::current_exception());
        PyErr_SetObject(error.type().ptr(), error.ptr());
    }
}

/// By position alone, which spares a call the search for names: operands, `out`, `dtype`,
/// `context`.
PyObject* call_function(PyObject* self, PyObject* const* arguments, Py_ssize_t count) {
    const auto& function = *nb::inst_ptr<PackageFunction>(self);
    const std::size_t arity = function.arity();
    if (static_cast<std::size_t>(count) != arity + 3) {
        PyErr_SetString(PyExc_TypeError, "wrong number of arguments");
        return nullptr;
    }
    std::array<nb::handle, most_operands> operands;
    std::copy_n(arguments, arity, operands.begin());
    try {
        return function
            .call(std::span(operands).first(arity), arguments[arity], arguments[arity + 1],
                  arguments[arity + 2])
            .release()
            .ptr();
    } catch (...) {
        raise_current_exception();
        return nullptr;
    }
}

PyMethodDef call_definition = {
    "call", reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(call_function)),
    METH_FASTCALL, "Runs the operation on arguments by position."};

/// Tells the collector of cycles about the objects that an instance of `Class` holds: the package's
/// modules refer to the door, and it to their functions.
template <typename Class>
int traverse(PyObject* self, visitproc visit, void* arg) {
    Py_VISIT(Py_TYPE(self));
    if (nb::inst_ready(self)) {
        for (const nb::object* held : nb::inst_ptr<Class>(self)->held()) {
            Py_VISIT(held->ptr());
        }
    }
    return 0;
}

template <typename Class>
int clear(PyObject* self) {
    for (nb::object* held : nb::inst_ptr<Class>(self)->held()) {
        held->reset();
    }
    return 0;
}

template <typename Class>
PyType_Slot collected_slots[] = {{Py_tp_traverse, reinterpret_cast<void*>(traverse<Class>)},
                                 {Py_tp_clear, reinterpret_cast<void*>(clear<Class>)},
                                 {0, nullptr}};

} // namespace

nb::object FrontDoor::function(nb::object signature, nb::object unusual, bool real_result) {
    const nb::object made =
        nb::cast(new PackageFunction(*this, nb::find(*this), std::move(signature),
                                     std::move(unusual), function_count_++, real_result),
                 nb::rv_policy::take_ownership);
    return nb::steal(PyCFunction_New(&call_definition, made.ptr()));
}

void define_front_door(nb::module_& module) {
    nb::class_<PackageFunction>(module, "_PackageFunction", "One function of the package.",
                                nb::type_slots(collected_slots<PackageFunction>));
    nb::class_<FrontDoor>(module, "_FrontDoor", "The way of the package's functions.",
                          nb::type_slots(collected_slots<FrontDoor>))
        .def(nb::init<nb::object, nb::object, nb::object, nb::object>(), "entered"_a,
             "context_class"_a, "find_default"_a, "explain"_a)
        .def("function", &FrontDoor::function, "signature"_a, "unusual"_a, "real_result"_a = false,
             "A function of one signature, called by position.");
}

} // namespace Tessaline::Python

// SPDX-License-Identifier: Apache-2.0
#include "host_array.h"

#include "array_policy.h"

#include <array>
#include <stdexcept>

namespace nb = nanobind;

namespace Tessaline::Python {

namespace {

/// A dtype that NumPy takes from elsewhere and DLPack views cannot be asked for: it is viewed as
/// unsigned integers of its size.
struct LowPrecisionType {
    nb::object dtype;
    nb::object carrier; ///< NumPy's unsigned integer of the same size
    nb::dlpack::dtype type;
};

/// The Python objects that every array is looked at with. Made at the first array of the process
/// and kept for good: modules do not change, and three look-ups an array cost more than a small
/// kernel.
struct ArrayVocabulary {
    nb::object ndarray;
    std::array<LowPrecisionType, 2> low_precision;

    static const ArrayVocabulary& get() {
        static const ArrayVocabulary* const vocabulary = new ArrayVocabulary();
        return *vocabulary;
    }

  private:
    ArrayVocabulary() {
        const nb::module_ numpy = nb::module_::import_("numpy");
        ndarray = numpy.attr("ndarray");
        low_precision = {{{numpy.attr("dtype")(nb::module_::import_("ml_dtypes").attr("bfloat16")),
                           numpy.attr("uint16"), dlpack_type(ScalarType::BFloat16)},
                          {nb::module_::import_("tessaline._dtypes").attr("complex32"),
                           numpy.attr("uint32"), dlpack_type(ScalarType::Complex32)}}};
    }
};

bool flag(nb::handle flags, const char* name) {
    return nb::cast<bool>(flags.attr(name));
}

void require_plain_memory(nb::handle array, nb::handle dtype, bool writable) {
    const nb::object flags = array.attr("flags");
    if (!flag(flags, "c_contiguous") || !flag(flags, "aligned") ||
        !nb::cast<bool>(dtype.attr("isnative")) || (writable && !flag(flags, "writeable"))) {
        throw std::invalid_argument("low-precision binding requires aligned, native-endian "
                                    "contiguous storage and writable output");
    }
}

} // namespace

HostArray::HostArray(nb::handle array, bool writable) {
    const ArrayVocabulary& vocabulary = ArrayVocabulary::get();
    if (!nb::isinstance(array, vocabulary.ndarray)) {
        throw std::invalid_argument("host binding requires a NumPy ndarray");
    }
    const nb::object dtype = array.attr("dtype");
    for (const LowPrecisionType& low : vocabulary.low_precision) {
        if (dtype.equal(low.dtype)) {
            require_plain_memory(array, dtype, writable);
            import(array.attr("view")(low.carrier), writable);
            dtype_ = low.type;
            return;
        }
    }
    import(array, writable);
    dtype_ = array_.dtype();
}

void HostArray::import(nb::handle array, bool writable) {
    if (writable) {
        const auto imported = nb::cast<nb::ndarray<nb::c_contig, nb::device::cpu>>(array);
        data_ = imported.data();
        array_ = Imported(imported);
    } else {
        array_ = nb::cast<Imported>(array);
        data_ = const_cast<void*>(static_cast<const void*>(array_.data()));
    }
}

} // namespace Tessaline::Python

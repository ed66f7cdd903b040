// SPDX-License-Identifier: Apache-2.0
#pragma once

// The numbers that NumPy gives element types, in both directions.

#include "tessaline/catalogue/scalar_type.h"

#include <Python.h>
#include <array>
#include <optional>

namespace Tessaline::Python {

/// The element types of arrays. Two of them NumPy takes from elsewhere and numbers in each process
/// anew.
class NumpyTypes {
  public:
    /// Looked up at the first array of the process and kept for good: modules do not change, and
    /// looking them up for each array costs more than a small kernel. Raises what the imports of
    /// NumPy and ml_dtypes raise.
    static const NumpyTypes& get();

    /// The element type that NumPy knows under a number, empty for one that no operand may have.
    std::optional<ScalarType> element(int number) const {
        for (const Row& row : rows_) {
            if (row.number == number) {
                return row.element;
            }
        }
        return std::nullopt;
    }
    /// The number of an element type. Raises std::out_of_range for one that arrays cannot have.
    int number(ScalarType element) const;
    /// Whether NumPy takes the type from elsewhere: it exports such arrays to nobody.
    bool is_foreign(int number) const {
        return number == rows_[0].number || number == rows_[1].number;
    }

    /// The element type of a scalar of a type from elsewhere, empty for any other object.
    std::optional<ScalarType> foreign_scalar(const PyObject* object) const {
        for (std::size_t index = 0; index < foreign_scalars_.size(); ++index) {
            if (Py_TYPE(object) == foreign_scalars_[index]) {
                return rows_[index].element;
            }
        }
        return std::nullopt;
    }

  private:
    struct Row {
        int number;
        ScalarType element;
    };

    NumpyTypes();

    std::array<Row, 8> rows_;                            ///< the foreign types first
    std::array<const PyTypeObject*, 2> foreign_scalars_; ///< kept by their dtypes
};

} // namespace Tessaline::Python

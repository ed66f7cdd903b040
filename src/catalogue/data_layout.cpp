// SPDX-License-Identifier: Apache-2.0
#include "tessaline/catalogue/data_layout.h"

#include "catalogue/enumeration_words.h"

namespace Tessaline {

const char* data_matrix_format_name(DataMatrixFormat format) {
    static constexpr std::array words{"dense", "diagonal", "csr", "csc", "coo"};
    return enumeration_word(words, format);
}

const char* data_vector_format_name(DataVectorFormat format) {
    static constexpr std::array words{"dense", "sparse"};
    return enumeration_word(words, format);
}

const char* data_matrix_layout_name(DataMatrixLayout layout) {
    static constexpr std::array words{"row_major", "column_major"};
    return enumeration_word(words, layout);
}

const char* data_complex_layout_name(DataComplexLayout layout) {
    static constexpr std::array words{"none", "split", "interleaved"};
    return enumeration_word(words, layout);
}

} // namespace Tessaline

// SPDX-License-Identifier: Apache-2.0
#include "tessaline/storage/buffer_view.h"

#include "catalogue/enumeration_words.h"

namespace Tessaline {

const char* buffer_role_name(BufferRole role) {
    static constexpr std::array words{"data",       "real",          "imaginary",   "LU pivots",
                                      "LU factors", "LU swap count", "eigenvalues", "eigenvectors"};
    return enumeration_word(words, role);
}

} // namespace Tessaline

// SPDX-License-Identifier: Apache-2.0
#include "tessaline/storage/storage_initialiser.h"

#include <stdexcept>

namespace Tessaline {

void StorageInitialiser::validate(std::size_t count, bool split) const {
    if (!first_) {
        if (second_) {
            throw std::invalid_argument("storage initialiser - missing real buffer");
        }
        return;
    }
    const bool suits = first_->count == count && second_.has_value() == split &&
                       (split ? second_->count == count && first_->role == BufferRole::real &&
                                    second_->role == BufferRole::imaginary
                              : first_->role == BufferRole::data);
    if (!suits) {
        throw std::invalid_argument("storage initialiser - layout or element count mismatch");
    }
}

} // namespace Tessaline

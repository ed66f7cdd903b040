// SPDX-License-Identifier: Apache-2.0
#pragma once

// Keys of dense host implementations as text, so that tests can state them in one line:
// "tessaline.matvec@1: m float32/float32 row, v float32/float32 > v float32/float32". A kind has
// the letter of operand_text.h, the types are storage and compute.

#include "tessaline/storage/storage_contract.h"

#include <gtest/gtest.h>

#include <string>

namespace Tessaline::Testing {

inline std::string key_text(const BackendOperandKey& key) {
    EXPECT_TRUE(dense_storage_contract(key)) << describe_operand_key(key);
    EXPECT_EQ(key.location, DataLocation::pageable_host) << describe_operand_key(key);
    std::string text(1, "svmle"[static_cast<std::size_t>(key.kind)]);
    text += std::string(" ") + scalar_metadata(key.storage).name + "/" +
            scalar_metadata(key.compute).name;
    if (key.complex != DataComplexLayout::none) {
        text += std::string(" ") + data_complex_layout_name(key.complex);
    }
    if (key.layout) {
        text += *key.layout == DataMatrixLayout::row_major ? " row" : " column";
    }
    return text;
}

inline std::string key_text(const BackendRegistryKey& key) {
    std::string text = key.op().canonical() + ":";
    const auto add = [&text](const std::vector<BackendOperandKey>& operands) {
        for (std::size_t index = 0; index < operands.size(); ++index) {
            text += (index == 0 ? " " : ", ") + key_text(operands[index]);
        }
    };
    add(key.inputs());
    text += " >";
    add(key.outputs());
    return text;
}

} // namespace Tessaline::Testing

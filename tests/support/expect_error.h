// SPDX-License-Identifier: Apache-2.0
#pragma once

// Exact failures: the type of an exception and its whole message.

#include <gtest/gtest.h>

#include <exception>
#include <string>
#include <typeinfo>

namespace Tessaline::Testing {

/// Expects `call` to raise exactly an `Error`, no class derived from it, with this message.
template <typename Error, typename Call>
void expect_error(Call&& call, const std::string& message) {
    try {
        call();
        ADD_FAILURE() << "nothing raised, expected: " << message;
    } catch (const std::exception& error) {
        EXPECT_EQ(typeid(error), typeid(Error)) << "raised: " << error.what();
        EXPECT_EQ(error.what(), message);
    }
}

} // namespace Tessaline::Testing

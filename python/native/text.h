// SPDX-License-Identifier: Apache-2.0
#pragma once

// Text on its way between C++ and Python.

#include <nanobind/nanobind.h>

#include <optional>
#include <string_view>

namespace Tessaline::Python {

/// Text of any origin, such as a plugin or the dynamic linker. Bytes that are not UTF-8 become
/// replacement characters: a report that is hard to read is better than none.
nanobind::str decoded(std::string_view text);

/// The UTF-8 of a Python text, valid as long as the object lives. Empty for any other object and
/// for a text with lone surrogates.
std::optional<std::string_view> text_of(nanobind::handle object);

} // namespace Tessaline::Python

// SPDX-License-Identifier: Apache-2.0
#pragma once

// Which of several adaptation rules applies.

#include <algorithm>
#include <vector>

namespace Tessaline {

/// The first rule that supports a case, null when none does.
template <typename Rule, typename... Case>
const Rule* first_rule(const std::vector<Rule>& rules, const Case&... operand_case) {
    const auto found = std::ranges::find_if(
        rules, [&](const Rule& rule) { return rule.supports(operand_case...); });
    return found == rules.end() ? nullptr : &*found;
}

} // namespace Tessaline

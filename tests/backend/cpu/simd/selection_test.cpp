// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/simd/tables/x86_simd.h"
#include "support/expect_error.h"
#include "tessaline/backend/cpu/cpu_simd.h"

#include <cstdlib>
#include <gmock/gmock.h>

namespace Tessaline {
namespace {

using Testing::expect_error;

constexpr const char* unknown_request = "TESSALINE_CPU_SIMD_RUNTIME must be AUTO, AVX2 or AVX512";
constexpr const char* unsupported_request =
    "CPU SIMD selection: requested implementation is not compiled or the CPU/OS does not support "
    "its required instruction set";

constexpr X86Features none{false, false, false};
constexpr X86Features all{true, true, true};
constexpr X86Features machines[] = {none,
                                    {false, true, true}, // without AVX2
                                    {true, false, false},
                                    {true, true, false}, // parts of AVX512
                                    {true, false, true},
                                    all};

TEST(SimdSelectionTest, TakesTheWidestSupportedOrTheRequestedImplementation) {
    // For each machine the width in bytes that is taken, or zero for a refusal.
    const std::pair<std::optional<std::string_view>, std::vector<int>> rows[] = {
        {std::nullopt, {0, 0, 32, 32, 32, 64}},
        {"AUTO", {0, 0, 32, 32, 32, 64}},
        {"AVX2", {0, 0, 32, 32, 32, 32}},
        {"AVX512", {0, 0, 0, 0, 0, 64}}};
    for (const auto& [request, widths] : rows) {
        for (std::size_t i = 0; i < widths.size(); ++i) {
            SCOPED_TRACE(::testing::Message() << request.value_or("nothing") << ", machine " << i);
            const auto select = [&, &wanted = request] {
                return select_x86_simd(wanted, machines[i]);
            };
            if (widths[i] == 0) {
                expect_error<std::runtime_error>(select, unsupported_request);
            } else {
                EXPECT_EQ(select(), widths[i] == 32 ? X86Simd::avx256 : X86Simd::avx512);
            }
        }
    }
}

TEST(SimdSelectionTest, RequestsAreComparedExactly) {
    for (const char* request : {"", "avx2", "AVX-512", "AVX512 ", "auto", "SSE2"}) {
        for (const X86Features& features : {none, all}) {
            expect_error<std::invalid_argument>([&] { select_x86_simd(request, features); },
                                                unknown_request);
        }
    }
}

TEST(SimdSelectionTest, WhatIsCompiledIsEverythingThatCanBeAskedFor) {
    std::string words;
    for (const char* word : x86_simd_words) {
        words += (words.empty() ? "" : ",") + std::string(word);
    }
    EXPECT_EQ(cpu_simd_compiled(), words);
}

/// Ends a child process after the selection under a value of the variable, null for unset, with a
/// line on what came of it.
[[noreturn]] void select_and_exit(const char* value) {
    if (value == nullptr) {
        unsetenv("TESSALINE_CPU_SIMD_RUNTIME");
    } else {
        setenv("TESSALINE_CPU_SIMD_RUNTIME", value, 1);
    }
    std::string outcome;
    try {
        outcome = cpu_simd_implementation();
        setenv("TESSALINE_CPU_SIMD_RUNTIME", "nonsense", 1);
        outcome += std::string(" then ") + cpu_simd_implementation();
    } catch (const std::invalid_argument& error) {
        outcome = std::string("invalid argument: ") + error.what();
    } catch (const std::runtime_error& error) {
        outcome = std::string("runtime error: ") + error.what();
    }
    std::fprintf(stderr, "[%s]", outcome.c_str());
    std::_Exit(0);
}

/// The line that select_and_exit ends with on this machine.
std::string expected_outcome(std::optional<std::string_view> request) {
    try {
        const X86Simd selected = select_x86_simd(request, detect_x86_features());
        const std::string word = x86_simd_words[static_cast<std::size_t>(selected)];
        return "[" + word + " then " + word + "]";
    } catch (const std::runtime_error&) {
        return std::string("[runtime error: ") + unsupported_request + "]";
    }
}

// Each in a process of its own, since the choice is made once.
TEST(SimdSelectionDeathTest, TheEnvironmentDecidesOnce) {
    const auto exits_normally = ::testing::ExitedWithCode(0);
    const auto says = [](const std::string& outcome) { return ::testing::HasSubstr(outcome); };
    EXPECT_EXIT(select_and_exit(nullptr), exits_normally, says(expected_outcome(std::nullopt)));
    for (const char* request : {"AUTO", "AVX2", "AVX512"}) {
        EXPECT_EXIT(select_and_exit(request), exits_normally, says(expected_outcome(request)));
    }
    for (const char* request : {"avx2", ""}) {
        EXPECT_EXIT(select_and_exit(request), exits_normally,
                    says(std::string("[invalid argument: ") + unknown_request + "]"));
    }
}

} // namespace
} // namespace Tessaline

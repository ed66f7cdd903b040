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
constexpr X86Features avx2_only{true, false, false};
constexpr X86Features without_dq{true, true, false};
constexpr X86Features without_f{true, false, true};
constexpr X86Features without_avx2{false, true, true};
constexpr X86Features all{true, true, true};

TEST(SimdSelectionTest, TheWidestSupportedImplementationIsTheDefault) {
    for (const auto request : {std::optional<std::string_view>(), {"AUTO"}}) {
        EXPECT_EQ(select_x86_simd(request, all), X86Simd::avx512);
        for (const X86Features& features : {avx2_only, without_dq, without_f}) {
            EXPECT_EQ(select_x86_simd(request, features), X86Simd::avx256);
        }
        for (const X86Features& features : {none, without_avx2}) {
            expect_error<std::runtime_error>([&] { select_x86_simd(request, features); },
                                             unsupported_request);
        }
    }
}

TEST(SimdSelectionTest, ARequestIsMetOrRefused) {
    EXPECT_EQ(select_x86_simd("AVX2", all), X86Simd::avx256);
    EXPECT_EQ(select_x86_simd("AVX2", avx2_only), X86Simd::avx256);
    EXPECT_EQ(select_x86_simd("AVX512", all), X86Simd::avx512);
    for (const X86Features& features : {none, without_avx2}) {
        expect_error<std::runtime_error>([&] { select_x86_simd("AVX2", features); },
                                         unsupported_request);
    }
    for (const X86Features& features : {none, avx2_only, without_dq, without_f, without_avx2}) {
        expect_error<std::runtime_error>([&] { select_x86_simd("AVX512", features); },
                                         unsupported_request);
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

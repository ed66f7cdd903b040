// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/simd/tables/x86_simd.h"

#include "tessaline/backend/cpu/cpu_simd.h"

#include <cstdlib>
#include <stdexcept>

namespace Tessaline {

namespace {

/// The implementation asked for; empty where the program is to choose.
std::optional<X86Simd> parse_request(std::string_view request) {
    if (request == "AUTO") {
        return std::nullopt;
    }
    for (std::size_t value = 0; value < x86_simd_words.size(); ++value) {
        if (request == x86_simd_words[value]) {
            return static_cast<X86Simd>(value);
        }
    }
    throw std::invalid_argument("TESSALINE_CPU_SIMD_RUNTIME must be AUTO, AVX2 or AVX512");
}

} // namespace

X86Features detect_x86_features() {
    return {.avx2 = __builtin_cpu_supports("avx2") != 0,
            .avx512f = __builtin_cpu_supports("avx512f") != 0,
            .avx512dq = __builtin_cpu_supports("avx512dq") != 0};
}

X86Simd select_x86_simd(std::optional<std::string_view> request, const X86Features& features) {
    const X86Simd widest = supports(features, X86Simd::avx512) ? X86Simd::avx512 : X86Simd::avx256;
    const X86Simd selected = request ? parse_request(*request).value_or(widest) : widest;
    if (!supports(features, selected)) {
        throw std::runtime_error("CPU SIMD selection: requested implementation is not compiled or "
                                 "the CPU/OS does not support its required instruction set");
    }
    return selected;
}

X86Simd selected_x86_simd() {
    static const X86Simd selected = [] {
        const char* request = std::getenv("TESSALINE_CPU_SIMD_RUNTIME");
        return select_x86_simd(request == nullptr ? std::nullopt
                                                  : std::optional<std::string_view>(request),
                               detect_x86_features());
    }();
    return selected;
}

const char* cpu_simd_compiled() {
    return "AVX2,AVX512";
}

const char* cpu_simd_implementation() {
    return x86_simd_words[static_cast<std::size_t>(selected_x86_simd())];
}

} // namespace Tessaline

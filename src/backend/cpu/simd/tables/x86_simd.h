// SPDX-License-Identifier: Apache-2.0
#pragma once

// The implementations of the SIMD engine, and the choice among them.

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace Tessaline {

/// Indexed by the width of their vectors: 256 bits without fused operations, 512 bits with them.
enum class X86Simd : std::int32_t { avx256 = 0, avx512 = 1 };

/// What the user calls them, indexed by value.
inline constexpr std::array<const char*, 2> x86_simd_words{"AVX2", "AVX512"};

/// The instruction sets that decide, as the processor has them and the operating system saves them.
struct X86Features {
    bool avx2;
    bool avx512f;
    bool avx512dq;
};

X86Features detect_x86_features();

constexpr bool supports(const X86Features& features, X86Simd simd) {
    return features.avx2 && (simd == X86Simd::avx256 || (features.avx512f && features.avx512dq));
}

/// The implementation that `request` names; the widest supported one for "AUTO" and for none.
/// Raises std::invalid_argument for another text and std::runtime_error for one not supported.
X86Simd select_x86_simd(std::optional<std::string_view> request, const X86Features& features);

/// The choice that cpu_simd_implementation() reports. Raises what select_x86_simd() does, at each
/// call until one succeeds.
X86Simd selected_x86_simd();

/// Of two tables or functions, one for each implementation, that of the choice.
template <typename T>
const T& of_selected_simd(const T& avx256, const T& avx512) {
    return selected_x86_simd() == X86Simd::avx512 ? avx512 : avx256;
}

} // namespace Tessaline

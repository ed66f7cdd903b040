// SPDX-License-Identifier: Apache-2.0
#include "machine_limits.h"

#include "comparison.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

namespace Tessaline::Bench {

namespace {

typedef float Floats16 __attribute__((vector_size(64)));
typedef double Doubles8 __attribute__((vector_size(64)));
typedef float Floats8 __attribute__((vector_size(32)));
typedef double Doubles4 __attribute__((vector_size(32)));

constexpr int rounds = 20'000;
/// Enough chains to cover the latency of the operation on both pipes.
constexpr int chains = 12;
constexpr std::size_t streamed_bytes = std::size_t{512} << 20;

/// Chains of one operation each on registers alone. The instructions are written out, since the
/// compiler may neither fuse nor take apart what is measured.
#define TESSALINE_CHAINS(name, isa, Vector, instructions)                                          \
    __attribute__((target(isa), noinline)) void name() {                                           \
        Vector sums[chains]{};                                                                     \
        Vector factor{};                                                                           \
        for (int round = 0; round < rounds; ++round) {                                             \
            _Pragma("GCC unroll 12") for (int chain = 0; chain < chains; ++chain) {                \
                Vector product;                                                                    \
                asm volatile(instructions : "+v"(sums[chain]), "=&v"(product) : "v"(factor));      \
            }                                                                                      \
        }                                                                                          \
    }
TESSALINE_CHAINS(fused_float_512, "avx512f", Floats16, "vfmadd231ps %2, %2, %0")
TESSALINE_CHAINS(fused_double_512, "avx512f", Doubles8, "vfmadd231pd %2, %2, %0")
TESSALINE_CHAINS(unfused_float_512, "avx512f", Floats16, "vmulps %2, %2, %1\n\tvaddps %1, %0, %0")
TESSALINE_CHAINS(unfused_double_512, "avx512f", Doubles8, "vmulpd %2, %2, %1\n\tvaddpd %1, %0, %0")
TESSALINE_CHAINS(fused_float_256, "avx2,fma", Floats8, "vfmadd231ps %2, %2, %0")
TESSALINE_CHAINS(fused_double_256, "avx2,fma", Doubles4, "vfmadd231pd %2, %2, %0")
TESSALINE_CHAINS(unfused_float_256, "avx2,fma", Floats8, "vmulps %2, %2, %1\n\tvaddps %1, %0, %0")
TESSALINE_CHAINS(unfused_double_256, "avx2,fma", Doubles4, "vmulpd %2, %2, %1\n\tvaddpd %1, %0, %0")
#undef TESSALINE_CHAINS

__attribute__((target("avx2"), noinline)) void read_all(const char* memory) {
    for (std::size_t offset = 0; offset < streamed_bytes; offset += 256) {
        Floats8 parts[8];
        _Pragma("GCC unroll 8") for (std::size_t part = 0; part < 8; ++part) {
            asm volatile("vmovaps %1, %0"
                         : "=v"(parts[part])
                         : "m"(*reinterpret_cast<const Floats8*>(memory + offset + 32 * part)));
        }
    }
}

struct Release {
    void operator()(char* memory) const { std::free(memory); }
};

std::unique_ptr<char, Release> streamed_memory() {
    std::unique_ptr<char, Release> memory(
        static_cast<char*>(std::aligned_alloc(4096, streamed_bytes)));
    std::memset(memory.get(), 1, streamed_bytes);
    return memory;
}

double print_limit(const char* name, double per_second, const char* unit) {
    std::printf("%-34s%8.1f %s\n", name, per_second * 1e-9, unit);
    return per_second;
}

} // namespace

MachineLimits measure_machine_limits() {
    const bool wide = __builtin_cpu_supports("avx512f") != 0;
    const auto read_from = streamed_memory();
    const auto copy_to = streamed_memory();
    const std::vector<double> seconds = interleaved_medians({
        {wide ? fused_float_512 : fused_float_256},
        {wide ? fused_double_512 : fused_double_256},
        {wide ? unfused_float_512 : unfused_float_256},
        {wide ? unfused_double_512 : unfused_double_256},
        {[&] { read_all(read_from.get()); }},
        {[&] { std::memcpy(copy_to.get(), read_from.get(), streamed_bytes); }},
    });
    const double operations = 2.0 * rounds * chains * (wide ? 16 : 8);
    constexpr auto bytes = static_cast<double>(streamed_bytes);
    std::printf("\nLimits of one core of this machine, registers of %d bits\n", wide ? 512 : 256);
    return {
        .fused_float = print_limit("fused float32", operations / seconds[0], "GFLOP/s"),
        .fused_double = print_limit("fused float64", operations / 2 / seconds[1], "GFLOP/s"),
        .unfused_float = print_limit("unfused float32", operations / seconds[2], "GFLOP/s"),
        .unfused_double = print_limit("unfused float64", operations / 2 / seconds[3], "GFLOP/s"),
        .read = print_limit("read from memory", bytes / seconds[4], "GB/s"),
        .copy = print_limit("copy in memory, read and written", 2 * bytes / seconds[5], "GB/s"),
    };
}

} // namespace Tessaline::Bench

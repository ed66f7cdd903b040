// SPDX-License-Identifier: Apache-2.0
#pragma once

// The engines that the machine has, each beside a plain statement of its arithmetic, and operands
// between guards.

#include "backend/cpu/cpu_test_support.h"
#include "backend/cpu/engine/x86_simd_engine.h"
#include "support/counter_random.h"
#include "support/expect_error.h"
#include "tessaline/backend/cpu/cpu_process_step.h"

#include <bit>
#include <cmath>
#include <cstdio>
#include <limits>
#include <sstream>

namespace Tessaline::Testing {

using Complex = std::complex<float>;

/// The arithmetic of an engine, one operation after the other.
struct PlainArithmetic {
    bool fuses;
    std::size_t lanes;

    /// c + a b as a step of a matrix product.
    float step(float c, float a, float b) const { return fuses ? std::fma(a, b, c) : c + a * b; }
    Complex step(Complex c, Complex a, Complex b) const {
        if (!fuses) {
            return plus(c, product(a, b));
        }
        return {std::fma(-a.imag(), b.imag(), std::fma(a.real(), b.real(), c.real())),
                std::fma(a.imag(), b.real(), std::fma(a.real(), b.imag(), c.imag()))};
    }
    Complex product(Complex a, Complex b) const {
        return {two_products(a.real(), b.real(), -a.imag(), b.imag()),
                two_products(a.real(), b.imag(), a.imag(), b.real())};
    }
    /// conj(a) b.
    Complex conjugate_product(Complex a, Complex b) const {
        return {two_products(a.real(), b.real(), a.imag(), b.imag()),
                two_products(a.real(), b.imag(), -a.imag(), b.real())};
    }
    static float plus(float a, float b) { return a + b; }
    static Complex plus(Complex a, Complex b) { return {a.real() + b.real(), a.imag() + b.imag()}; }

    /// Lanes over whole vectors, halves until four are left, neighbours, then the rest in order.
    template <typename Element>
    static Element lane_sum(const std::vector<Element>& elements, std::size_t lanes) {
        std::vector<Element> sums(lanes);
        const std::size_t whole = elements.size() / lanes * lanes;
        for (std::size_t i = 0; i < whole; ++i) {
            sums[i % lanes] = plus(sums[i % lanes], elements[i]);
        }
        for (; lanes > 4; lanes /= 2) {
            for (std::size_t i = 0; i < lanes / 2; ++i) {
                sums[i] = plus(sums[i], sums[i + lanes / 2]);
            }
        }
        Element sum = plus(plus(sums[0], sums[1]), plus(sums[2], sums[3]));
        for (std::size_t i = whole; i < elements.size(); ++i) {
            sum = plus(sum, elements[i]);
        }
        return sum;
    }

  private:
    float two_products(float a, float b, float c, float d) const {
        return fuses ? std::fma(c, d, a * b) : a * b + c * d;
    }
};

template <X86Simd Simd>
struct EngineUnderTest : X86SimdEngine<Simd> {
    static constexpr X86Simd simd = Simd;
    static constexpr PlainArithmetic plain{Simd == X86Simd::avx512,
                                           Simd == X86Simd::avx512 ? 16U : 8U};
    static const char* name() { return x86_simd_words[static_cast<std::size_t>(Simd)]; }
};

/// Calls `body` with each engine that the machine can run, serially and on several threads, whose
/// number changes no bit. A machine without any engine fails the test.
template <typename Body>
void for_each_engine(const Body& body) {
    const X86Features features = detect_x86_features();
    int engines = 0;
    const auto run = [&](auto engine) {
        if (supports(features, engine.simd)) {
            SCOPED_TRACE(engine.name());
            std::printf("[ engine   ] %s\n", engine.name()); // a whole run counts these lines
            body(engine);
            ++engines;
            for (const std::size_t threads : {2, 3, 7}) {
                SCOPED_TRACE(threads);
                const auto runtime = std::make_shared<CpuRuntimeContext>(
                    Tessaline::Test::unpinned_options(threads),
                    Tessaline::Test::one_node(threads + 1), BackendKind::cpu_simd);
                CpuExecutionContext context(BackendKind::cpu_simd, runtime);
                CpuProcessStepDetail::invoke_with_current_cpu_context(context,
                                                                      [&] { body(engine); });
            }
        }
    };
    run(EngineUnderTest<X86Simd::avx256>{});
    run(EngineUnderTest<X86Simd::avx512>{});
    EXPECT_GT(engines, 0) << "no engine was tested";
}

/// 0, 1 and the neighbourhoods of whole vectors, for either vector width.
inline const std::vector<std::uint64_t> awkward_sizes{0,  1,  2,  3,  5,  7,  8,  9,   13, 15,
                                                      16, 17, 23, 31, 33, 47, 66, 127, 130};

enum class Values { ordinary, special };

inline float random_float(CounterRandom& random, Values values) {
    // Zero, the edges of the range, infinity, and NaN quiet, with a payload and of either sign.
    static const std::uint32_t specials[] = {0x00000000, 0x3f800000, 0x00000001, 0x000002ca,
                                             0x00800000, 0x0da24260, 0x69045951, 0x7149f2ca,
                                             0x7f7fffff, 0x7f800000, 0x7fc00000, 0x7fc54321};
    if (values == Values::special && random.below(3) == 0) {
        const std::uint32_t sign = random.below(2) == 0 ? 0 : 0x80000000U;
        return std::bit_cast<float>(specials[random.below(std::size(specials))] | sign);
    }
    const auto mantissa = static_cast<float>(random.below(1U << 24U)) * 0x1p-24F + 0.5F;
    const float magnitude = std::ldexp(mantissa, static_cast<int>(random.below(5)) - 2);
    return random.below(2) == 0 ? magnitude : -magnitude;
}

/// Elements that start `offset` elements into their memory, between guards that nothing may touch.
class Plane {
  public:
    explicit Plane(std::uint64_t size, std::size_t offset = 0)
        : memory_(2 * margin + offset + size, guard),
          begin_(margin + offset),
          size_(size) {}
    Plane(std::uint64_t size, std::size_t offset, CounterRandom& random,
          Values values = Values::ordinary)
        : Plane(size, offset) {
        for (std::uint64_t i = 0; i < size; ++i) {
            data()[i] = random_float(random, values);
        }
    }

    float* data() { return memory_.data() + begin_; }
    float operator[](std::uint64_t i) const { return memory_[begin_ + i]; }
    std::uint64_t size() const { return size_; }

    bool guards_hold() const {
        for (std::size_t i = 0; i < memory_.size(); ++i) {
            const bool inside = i >= begin_ && i < begin_ + size_;
            if (!inside && memory_[i] != guard) {
                return false;
            }
        }
        return true;
    }

  private:
    static constexpr std::size_t margin = 16;
    static constexpr float guard = -7654321;

    std::vector<float> memory_;
    std::size_t begin_;
    std::uint64_t size_;
};

/// A real vector or matrix.
struct RealData {
    Plane elements;

    float operator[](std::uint64_t i) const { return elements[i]; }
    DenseRealVectorView<const float> input() { return {elements.data(), elements.size()}; }
    DenseRealVectorView<float> output() { return {elements.data(), elements.size()}; }
    DenseRealMatrixView<const float> input(std::uint64_t rows, std::uint64_t cols) {
        return {elements.data(), rows, cols, DataMatrixLayout::row_major};
    }
    DenseRealMatrixView<float> output(std::uint64_t rows, std::uint64_t cols) {
        return {elements.data(), rows, cols, DataMatrixLayout::row_major};
    }
};

/// A split vector or matrix.
struct SplitData {
    Plane real;
    Plane imag;

    Complex operator[](std::uint64_t i) const { return {real[i], imag[i]}; }
    DenseComplexSplitVectorView<const float> input() {
        return {real.data(), imag.data(), real.size()};
    }
    DenseComplexSplitVectorView<float> output() { return {real.data(), imag.data(), real.size()}; }
    DenseComplexSplitMatrixView<const float>
    input(std::uint64_t rows, std::uint64_t cols,
          DataMatrixLayout layout = DataMatrixLayout::row_major) {
        return {real.data(), imag.data(), rows, cols, layout};
    }
    DenseComplexSplitMatrixView<float>
    output(std::uint64_t rows, std::uint64_t cols,
           DataMatrixLayout layout = DataMatrixLayout::row_major) {
        return {real.data(), imag.data(), rows, cols, layout};
    }
    float& part(std::uint64_t i, bool imaginary) { return (imaginary ? imag : real).data()[i]; }
};

/// Complex data with the parts of each element side by side, in row-major order.
struct InterleavedData {
    Plane parts;

    Complex operator[](std::uint64_t i) const { return {parts[2 * i], parts[2 * i + 1]}; }
    Complex* data() { return reinterpret_cast<Complex*>(parts.data()); }
    DenseComplexIntlvVectorView<const Complex> input() { return {data(), parts.size() / 2}; }
    DenseComplexIntlvVectorView<Complex> output() { return {data(), parts.size() / 2}; }
    DenseComplexIntlvMatrixView<const Complex> input(std::uint64_t rows, std::uint64_t cols) {
        return {data(), rows, cols, DataMatrixLayout::row_major};
    }
    DenseComplexIntlvMatrixView<Complex> output(std::uint64_t rows, std::uint64_t cols) {
        return {data(), rows, cols, DataMatrixLayout::row_major};
    }
    float& part(std::uint64_t i, bool imaginary) { return parts.data()[2 * i + imaginary]; }
};

inline RealData real_data(std::uint64_t size, std::size_t offset = 0) {
    return {Plane(size, offset)};
}
inline RealData real_data(std::uint64_t size, std::size_t offset, CounterRandom& random,
                          Values values = Values::ordinary) {
    return {Plane(size, offset, random, values)};
}
/// The planes start at different offsets.
inline SplitData split_data(std::uint64_t size, std::size_t offset = 0) {
    return {Plane(size, offset), Plane(size, offset + 1)};
}
inline SplitData split_data(std::uint64_t size, std::size_t offset, CounterRandom& random,
                            Values values = Values::ordinary) {
    return {Plane(size, offset, random, values), Plane(size, offset + 1, random, values)};
}

/// The forms of complex operands, for tests that hold in both.
struct SplitForm {
    static SplitData make(auto&&... what) { return split_data(what...); }
};
struct InterleavedForm {
    static InterleavedData make(std::uint64_t size, std::size_t offset = 0, auto&&... contents) {
        return {Plane(2 * size, offset, contents...)};
    }
};
using Forms = ::testing::Types<SplitForm, InterleavedForm>;

inline bool same_bits(float a, float b) {
    return std::bit_cast<std::uint32_t>(a) == std::bit_cast<std::uint32_t>(b);
}

/// How elements came to be: moved with all their bits, or computed, where every NaN is the positive
/// quiet one.
enum class Origin { moved, computed };

inline float result_of(Origin origin, float value) {
    return origin == Origin::computed && std::isnan(value) ? std::numeric_limits<float>::quiet_NaN()
                                                           : value;
}

/// Expects element i of `found` to have the bits of `expected(i)`.
template <typename Expected>
void expect_elements(const Plane& found, const Expected& expected, const char* what,
                     Origin origin = Origin::computed) {
    EXPECT_TRUE(found.guards_hold()) << what << " written outside of its elements";
    for (std::uint64_t i = 0; i < found.size(); ++i) {
        if (const float wanted = result_of(origin, expected(i)); !same_bits(found[i], wanted)) {
            std::ostringstream neighbours;
            neighbours << std::hexfloat;
            for (std::uint64_t j = i < 2 ? 0 : i - 2; j < std::min(found.size(), i + 3); ++j) {
                neighbours << ' ' << found[j];
            }
            ADD_FAILURE() << what << '[' << i << "] of " << found.size() << ": expected "
                          << std::hexfloat << wanted << ", found " << found[i] << " among"
                          << neighbours.str();
            return;
        }
    }
}

template <typename Expected>
void expect_elements(const RealData& found, const Expected& expected) {
    expect_elements(found.elements, expected, "element");
}
template <typename Expected>
void expect_elements(const SplitData& found, const Expected& expected,
                     Origin origin = Origin::computed) {
    expect_elements(
        found.real, [&](std::uint64_t i) { return expected(i).real(); }, "real part", origin);
    expect_elements(
        found.imag, [&](std::uint64_t i) { return expected(i).imag(); }, "imaginary part", origin);
}
template <typename Expected>
void expect_elements(const InterleavedData& found, const Expected& expected,
                     Origin origin = Origin::computed) {
    expect_elements(
        found.parts,
        [&](std::uint64_t i) {
            return i % 2 == 0 ? expected(i / 2).real() : expected(i / 2).imag();
        },
        "part", origin);
}

inline void expect_scalar(Complex found, Complex expected) {
    EXPECT_TRUE(same_bits(found.real(), result_of(Origin::computed, expected.real())) &&
                same_bits(found.imag(), result_of(Origin::computed, expected.imag())))
        << std::hexfloat << "expected " << expected << ", found " << found;
}

} // namespace Tessaline::Testing

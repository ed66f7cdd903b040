// SPDX-License-Identifier: Apache-2.0
#pragma once

// Exact sums and products of doubles, against which rounded results are judged: a number is an
// integer of any length times a power of two.

#include <algorithm>
#include <bit>
#include <cmath>
#include <compare>
#include <complex>
#include <cstdint>
#include <utility>
#include <vector>

namespace Tessaline::Testing {

class ExactNumber {
  public:
    ExactNumber() = default;
    /// A finite value.
    ExactNumber(double value) : negative_(std::signbit(value)) {
        const double mantissa = std::frexp(std::abs(value), &exponent_);
        exponent_ -= 53;
        const auto integer = static_cast<std::uint64_t>(std::scalbn(mantissa, 53));
        limbs_ = {static_cast<std::uint32_t>(integer), static_cast<std::uint32_t>(integer >> 32U)};
        trim(limbs_);
    }

    bool is_zero() const { return limbs_.empty(); }
    bool is_negative() const { return negative_ && !is_zero(); }
    ExactNumber absolute() const {
        ExactNumber result = *this;
        result.negative_ = false;
        return result;
    }

    ExactNumber operator-() const {
        ExactNumber result = *this;
        result.negative_ = !negative_;
        return result;
    }

    friend ExactNumber operator*(const ExactNumber& a, const ExactNumber& b) {
        ExactNumber result;
        result.negative_ = a.negative_ != b.negative_;
        result.exponent_ = a.exponent_ + b.exponent_;
        result.limbs_.assign(a.limbs_.size() + b.limbs_.size(), 0);
        for (std::size_t i = 0; i < a.limbs_.size(); ++i) {
            std::uint64_t carry = 0;
            for (std::size_t j = 0; j < b.limbs_.size() || carry != 0; ++j) {
                const std::uint64_t factor = j < b.limbs_.size() ? b.limbs_[j] : 0;
                carry += result.limbs_[i + j] + a.limbs_[i] * factor;
                result.limbs_[i + j] = static_cast<std::uint32_t>(carry);
                carry >>= 32U;
            }
        }
        trim(result.limbs_);
        return result;
    }

    friend ExactNumber operator+(const ExactNumber& a, const ExactNumber& b) {
        ExactNumber result;
        result.exponent_ = std::min(a.exponent_, b.exponent_);
        Limbs a_limbs = a.limbs_at(result.exponent_);
        Limbs b_limbs = b.limbs_at(result.exponent_);
        result.negative_ = a.negative_;
        if (a.negative_ == b.negative_) {
            result.limbs_ = sum(std::move(a_limbs), b_limbs);
        } else if (compare(a_limbs, b_limbs) >= 0) {
            result.limbs_ = difference(std::move(a_limbs), b_limbs);
        } else {
            result.negative_ = b.negative_;
            result.limbs_ = difference(std::move(b_limbs), a_limbs);
        }
        return result;
    }
    friend ExactNumber operator-(const ExactNumber& a, const ExactNumber& b) { return a + -b; }

    friend bool operator<=(const ExactNumber& a, const ExactNumber& b) {
        const ExactNumber excess = a - b;
        return excess.is_zero() || excess.is_negative();
    }
    friend bool operator==(const ExactNumber& a, const ExactNumber& b) { return (a - b).is_zero(); }

    /// The natural logarithm of the magnitude, which must not be zero.
    long double log_magnitude() const {
        long double leading = 0;
        for (auto limb = limbs_.rbegin(); limb != limbs_.rend(); ++limb) {
            leading = leading * 0x1p32L + static_cast<long double>(*limb);
            if (limb - limbs_.rbegin() == 3) {
                const auto rest = static_cast<int>(limbs_.size()) - 4;
                return std::log(leading) + ln2 * static_cast<long double>(exponent_ + 32 * rest);
            }
        }
        return std::log(leading) + ln2 * static_cast<long double>(exponent_);
    }

  private:
    using Limbs = std::vector<std::uint32_t>;
    static constexpr long double ln2 = 0.693147180559945309417232121458176568L;

    static void trim(Limbs& limbs) {
        while (!limbs.empty() && limbs.back() == 0) {
            limbs.pop_back();
        }
    }

    Limbs limbs_at(int exponent) const {
        const auto shift = static_cast<unsigned>(exponent_ - exponent);
        if (is_zero()) {
            return {};
        }
        Limbs result(shift / 32, 0);
        std::uint64_t carry = 0;
        for (const std::uint32_t limb : limbs_) {
            carry |= static_cast<std::uint64_t>(limb) << shift % 32;
            result.push_back(static_cast<std::uint32_t>(carry));
            carry >>= 32U;
        }
        result.push_back(static_cast<std::uint32_t>(carry));
        trim(result);
        return result;
    }

    static std::strong_ordering compare(const Limbs& a, const Limbs& b) {
        if (a.size() != b.size()) {
            return a.size() <=> b.size();
        }
        return std::lexicographical_compare_three_way(a.rbegin(), a.rend(), b.rbegin(), b.rend());
    }

    static Limbs sum(Limbs a, const Limbs& b) {
        a.resize(std::max(a.size(), b.size()) + 1, 0);
        std::uint64_t carry = 0;
        for (std::size_t i = 0; i < a.size(); ++i) {
            carry += static_cast<std::uint64_t>(a[i]) + (i < b.size() ? b[i] : 0);
            a[i] = static_cast<std::uint32_t>(carry);
            carry >>= 32U;
        }
        trim(a);
        return a;
    }

    /// a - b for a >= b.
    static Limbs difference(Limbs a, const Limbs& b) {
        std::int64_t borrow = 0;
        for (std::size_t i = 0; i < a.size(); ++i) {
            borrow += static_cast<std::int64_t>(a[i]) - (i < b.size() ? b[i] : 0);
            a[i] = static_cast<std::uint32_t>(borrow);
            borrow >>= 32;
        }
        trim(a);
        return a;
    }

    bool negative_ = false;
    Limbs limbs_; ///< least significant first, no leading zeros
    int exponent_ = 0;
};

struct ExactComplex {
    ExactComplex() = default;
    ExactComplex(std::complex<double> value) : real(value.real()), imag(value.imag()) {}
    ExactComplex(ExactNumber real_part, ExactNumber imaginary_part)
        : real(std::move(real_part)),
          imag(std::move(imaginary_part)) {}

    bool is_zero() const { return real.is_zero() && imag.is_zero(); }

    ExactComplex operator-() const { return {-real, -imag}; }
    friend ExactComplex operator+(const ExactComplex& a, const ExactComplex& b) {
        return {a.real + b.real, a.imag + b.imag};
    }
    friend ExactComplex operator*(const ExactComplex& a, const ExactComplex& b) {
        return {a.real * b.real - a.imag * b.imag, a.real * b.imag + a.imag * b.real};
    }

    ExactNumber real;
    ExactNumber imag;
};

/// The exact determinant of a row-major matrix of order up to 10, row by row over all sets of
/// columns: entry S is the determinant of the first |S| rows in the columns of S.
template <typename Exact, typename Element>
Exact exact_determinant(const std::vector<Element>& matrix, std::size_t order) {
    std::vector<Exact> determinants(std::size_t{1} << order);
    determinants[0] = Exact(Element(1));
    for (std::size_t columns = 1; columns < determinants.size(); ++columns) {
        const auto row = static_cast<std::size_t>(std::popcount(columns)) - 1;
        for (std::size_t column = 0; column < order; ++column) {
            const std::size_t bit = std::size_t{1} << column;
            if ((columns & bit) != 0) {
                const Exact term =
                    Exact(matrix[row * order + column]) * determinants[columns & ~bit];
                const bool odd = std::popcount(columns & ~(2 * bit - 1)) % 2 != 0;
                determinants[columns] = determinants[columns] + (odd ? -term : term);
            }
        }
    }
    return determinants.back();
}

} // namespace Tessaline::Testing

// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/eigen_qr_step.h"

#include <algorithm>
#include <stdexcept>

namespace Tessaline::CpuFallback {

namespace {

/// The leading columns of a set that are orthonormal already.
class OrthonormalBasis {
  public:
    OrthonormalBasis(const Complex* columns, std::size_t m, std::size_t count)
        : columns_(columns),
          m_(m),
          count_(count) {}

    /// Takes from `v` its parts along the basis, twice: the first pass leaves parts of the size of
    /// the rounding errors of what it took.
    void project_out(std::span<Complex> v) const {
        for (int pass = 0; pass < 2; ++pass) {
            for (std::size_t k = 0; k < count_; ++k) {
                const Complex* q = columns_ + k * m_;
                Complex part = 0;
                for (std::size_t i = 0; i < m_; ++i) {
                    part += std::conj(q[i]) * v[i];
                }
                for (std::size_t i = 0; i < m_; ++i) {
                    v[i] -= q[i] * part;
                }
            }
        }
    }

    /// The unit vector that the basis contains least of, the first of several.
    std::size_t least_covered_direction() const {
        std::size_t least = 0;
        double least_sum = 0;
        for (std::size_t i = 0; i < m_; ++i) {
            double sum = 0;
            for (std::size_t k = 0; k < count_; ++k) {
                sum += std::norm(columns_[k * m_ + i]);
            }
            if (i == 0 || sum < least_sum) {
                least = i;
                least_sum = sum;
            }
        }
        return least;
    }

  private:
    const Complex* columns_;
    std::size_t m_;
    std::size_t count_;
};

void add_multiple(Complex* sum, Complex factor, const Complex* terms, std::size_t count) {
    for (std::size_t j = 0; j < count; ++j) {
        sum[j] += factor * terms[j];
    }
}

} // namespace

void orthonormalise_columns(std::span<Complex> columns, std::size_t m, double epsilon) {
    for (std::size_t j = 0; j < m; ++j) {
        const OrthonormalBasis basis(columns.data(), m, j);
        const auto v = columns.subspan(j * m, m);
        const double before = chain_norm(v);
        basis.project_out(v);
        const double after = chain_norm(v);
        if (after > static_cast<double>(m) * epsilon * before && normalise(v)) {
            continue;
        }
        std::ranges::fill(v, Complex(0));
        v[basis.least_covered_direction()] = 1;
        basis.project_out(v);
        if (!normalise(v)) {
            throw std::runtime_error("SimdEngine::eigen - failed to complete orthonormal basis");
        }
    }
}

void QrStep::iterate(SchurForm& schur, std::size_t active, Complex shift, double epsilon) {
    copy_shifted_block(schur, active, shift);
    const auto columns = std::span(columns_).first(active * active);
    orthonormalise_columns(columns, active, epsilon);
    transform(schur, columns, active);
}

// Block and shift are scaled together by a power of two that both survive, so that the subtraction
// alone rounds.
void QrStep::copy_shifted_block(const SchurForm& schur, std::size_t active, Complex shift) {
    const auto block = std::span(columns_).first(active * active);
    for (std::size_t i = 0; i < active; ++i) {
        for (std::size_t j = 0; j < active; ++j) {
            block[j * active + i] = schur.H[i * schur.n + j];
        }
    }
    const int exponent = exact_scaling_exponent(block, std::span(&shift, 1));
    scale(block, -exponent);
    const Complex scaled_shift = scaled(shift, -exponent);
    for (std::size_t i = 0; i < active; ++i) {
        block[i * active + i] -= scaled_shift;
    }
}

// What G leaves alone is left out of the products: products of finite numbers with its zeros and
// ones change no bit of a sum but the sign of a zero, which is positive in every sum from zero.
void QrStep::transform(SchurForm& schur, std::span<const Complex> columns, std::size_t active) {
    const std::size_t n = schur.n;
    for (std::size_t k = 0; k < active; ++k) {
        for (std::size_t j = 0; j < active; ++j) {
            G_[k * active + j] = columns[j * active + k];
        }
    }
    // H G, in place; rows below the block have nothing in its columns.
    multiply_rows(schur.H, active, n, active);
    // G* times that.
    for (std::size_t i = 0; i < active; ++i) {
        Complex* row = &next_[i * n];
        std::fill_n(row, n, Complex(0));
        for (std::size_t k = 0; k < active; ++k) {
            add_multiple(row, std::conj(columns[i * active + k]), &schur.H[k * n], n);
        }
    }
    for (std::size_t index = active * n; index < n * n; ++index) {
        next_[index] = schur.H[index] + Complex(0);
    }
    schur.H.swap(next_);
    multiply_rows(schur.Z, n, n, active);
}

/// The leading rows of a matrix times G.
void QrStep::multiply_rows(std::vector<Complex>& matrix, std::size_t rows, std::size_t n,
                           std::size_t active) {
    for (std::size_t i = 0; i < rows; ++i) {
        Complex* row = &matrix[i * n];
        std::fill_n(row_.begin(), active, Complex(0));
        for (std::size_t k = 0; k < active; ++k) {
            add_multiple(row_.data(), row[k], &G_[k * active], active);
        }
        std::copy_n(row_.begin(), active, row);
        for (std::size_t j = active; j < n; ++j) {
            row[j] += Complex(0);
        }
    }
}

} // namespace Tessaline::CpuFallback

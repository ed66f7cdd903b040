// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/eigen_general/gram_schmidt.h"

#include "backend/cpu/runtime/stop_point.h"

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

// Columns of small matrices take about as long as some stop points.
void stop_at_group(std::size_t column) {
    if (column % column_group == 0) {
        stop_point();
    }
}

/// No chain of hypotenuses over these values is larger than their sum.
double chain_norm_bound(std::span<const Complex> values) {
    const double room_for_roundings = 1 + 0x1p-20;
    return sum_of_magnitudes(values) * room_for_roundings;
}

std::size_t whole_groups(std::size_t columns) {
    return (columns + column_group - 1) / column_group * column_group;
}

} // namespace

void plain_orthonormalise_columns(std::span<Complex> columns, std::size_t m, double epsilon) {
    for (std::size_t j = 0; j < m; ++j) {
        stop_at_group(j);
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

GramSchmidt::GramSchmidt(std::size_t n, const SimdKernels::GramSchmidtKernels& kernels)
    : kernels_(kernels),
      set_(n, n),
      basis_(n, n),
      terms_(1, n),
      magnitudes_(whole_groups(n)),
      column_(n) {}

void GramSchmidt::orthonormalise(std::span<Complex> columns, std::size_t m, double epsilon) {
    if (!orthonormalise_in_vectors(columns, m, epsilon)) {
        plain_orthonormalise_columns(columns, m, epsilon);
    }
}

/// False, with the columns as they were, where infinities may have to be recovered or no basis can
/// be found.
bool GramSchmidt::orthonormalise_in_vectors(std::span<Complex> columns, std::size_t m,
                                            double epsilon) {
    for (std::size_t j = 0; j < m; ++j) {
        for (std::size_t i = 0; i < m; ++i) {
            set_.set(i, j, columns[j * m + i]);
        }
    }
    for (std::size_t j = 0; j < m; ++j) {
        stop_at_group(j);
        for (std::size_t i = 0; i < m; ++i) {
            basis_.set(j, i, set_.get(i, j));
        }
        project_out(j, m);
        const double after = chain_norm_of(j, m);
        const auto given = columns.subspan(j * m, m);
        const double bound = chain_norm_bound(given);
        if (!std::isfinite(bound) || !std::isfinite(after)) {
            return false;
        }
        const double share = static_cast<double>(m) * epsilon;
        // Seldom is the norm itself needed, of which the bound is a small multiple.
        const bool stands = (after > share * bound || after > share * chain_norm(given)) &&
                            (divide_in_range(j, m, after) || normalise_column(j, m));
        if (!stands) {
            const std::size_t direction = least_covered_direction(j, m);
            for (std::size_t i = 0; i < m; ++i) {
                basis_.set(j, i, i == direction ? 1 : 0);
            }
            project_out(j, m);
            project_out(j, m);
            if (!normalise_column(j, m)) {
                return false;
            }
        }
        project_set(j, m);
    }
    for (std::size_t j = 0; j < m; ++j) {
        for (std::size_t i = 0; i < m; ++i) {
            columns[j * m + i] = basis_.get(j, i);
        }
    }
    return true;
}

/// Takes the parts along column j from the columns of its group, and with the last of a group those
/// along all of that from the columns to come: few of these at a time, which stay in the cache.
void GramSchmidt::project_set(std::size_t j, std::size_t m) const {
    const auto project = [&](std::size_t k, std::size_t begin, std::size_t end) {
        kernels_.project_set(basis_.at(k, 0), basis_.shape().imaginary, set_.at(0, 0), set_.shape(),
                             m, begin, end);
    };
    const std::size_t group = j / column_group * column_group;
    if (j + 1 < group + column_group) {
        project(j, group, group + column_group);
        return;
    }
    const std::size_t end = whole_groups(m);
    for (std::size_t begin = j + 1; begin < end; begin += projected_columns) {
        for (std::size_t k = group; k <= j; ++k) {
            project(k, begin, std::min(begin + projected_columns, end));
        }
    }
}

/// One pass: takes from column j its parts along those before it.
void GramSchmidt::project_out(std::size_t j, std::size_t m) const {
    kernels_.project_column(basis_.at(0, 0), basis_.shape(), j, basis_.at(j, 0), terms_.at(0, 0),
                            m);
}

double GramSchmidt::chain_norm_of(std::size_t j, std::size_t m) {
    kernels_.magnitudes(basis_.at(j, 0), basis_.shape().imaginary, m, magnitudes_.data());
    return kernels_.chain_norm(magnitudes_.data(), m);
}

/// Scaling by a power of two before the norm is taken again, as normalise() does, changes no bit of
/// the quotients where nothing comes near the ends of the range.
bool GramSchmidt::divide_in_range(std::size_t j, std::size_t m, double norm) const {
    return norm != 0 &&
           kernels_.divide_ordinary(basis_.at(j, 0), basis_.shape().imaginary, m, norm);
}

bool GramSchmidt::normalise_column(std::size_t j, std::size_t m) {
    const auto column = std::span(column_).first(m);
    for (std::size_t i = 0; i < m; ++i) {
        column[i] = basis_.get(j, i);
    }
    const bool is_normal = normalise(column);
    for (std::size_t i = 0; i < m; ++i) {
        basis_.set(j, i, column[i]);
    }
    return is_normal;
}

/// The unit vector that the first columns contain least of, the first of several.
std::size_t GramSchmidt::least_covered_direction(std::size_t count, std::size_t m) const {
    std::size_t least = 0;
    double least_sum = 0;
    for (std::size_t i = 0; i < m; ++i) {
        double sum = 0;
        for (std::size_t k = 0; k < count; ++k) {
            sum += std::norm(basis_.get(k, i));
        }
        if (i == 0 || sum < least_sum) {
            least = i;
            least_sum = sum;
        }
    }
    return least;
}

} // namespace Tessaline::CpuFallback

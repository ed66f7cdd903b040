// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/eigen_general/scaling.h"

#include "backend/cpu/numbers/hypotenuse.h"
#include "backend/cpu/runtime/stop_point.h"

namespace Tessaline::CpuFallback {

namespace {

std::span<const double> parts_of(std::span<const Complex> values) {
    return {reinterpret_cast<const double*>(values.data()), 2 * values.size()};
}

/// `combine(sum, part)` for every part, in a few sums side by side that vectors can hold.
template <typename Combine>
double combined(std::span<const double> parts, double sum, const Combine& combine) {
    constexpr std::size_t width = 8;
    double sums[width];
    std::fill_n(sums, width, sum);
    const std::size_t whole = parts.size() / width * width;
    for (std::size_t i = 0; i < whole; i += width) {
        for (std::size_t k = 0; k < width; ++k) {
            sums[k] = combine(sums[k], parts[i + k]);
        }
    }
    for (const double part : parts.subspan(whole)) {
        sum = combine(sum, part);
    }
    for (const double each : sums) {
        sum = combine(sum, each);
    }
    return sum;
}

void include_part(std::optional<int>& largest, double part) {
    if (part != 0 && std::isfinite(part)) {
        const int exponent = NumberParts::binary_exponent(part);
        largest = largest ? std::max(*largest, exponent) : exponent;
    }
}

bool part_survives(double part, int exponent) {
    const double moved = scaled(part, exponent);
    return std::isfinite(moved) && scaled(moved, -exponent) == part;
}

} // namespace

bool are_finite(std::span<const Complex> values) {
    // NaN from the first part that is not.
    return combined(parts_of(values), 0, [](double sum, double part) { return sum + part * 0; }) ==
           0;
}

void scale(std::span<Complex> values, int exponent) {
    for (Complex& value : values) {
        value = scaled(value, exponent);
    }
}

double largest_part(std::span<const Complex> values) {
    return combined(parts_of(values), 0, [](double largest, double part) {
        const double magnitude = std::abs(part);
        return largest < magnitude ? magnitude : largest;
    });
}

double sum_of_magnitudes(std::span<const Complex> values) {
    return combined(parts_of(values), 0,
                    [](double sum, double part) { return sum + std::abs(part); });
}

void include_magnitude(double& largest, Complex value) {
    // Few come near the largest so far, and only these need a root. The bound has room for the
    // roundings of both.
    const double bound = std::abs(value.real()) + std::abs(value.imag());
    if (bound * (1 + 0x1p-50) >= largest) {
        largest = std::max(largest, hypotenuse(value));
    }
}

std::optional<int> largest_exponent(std::span<const Complex> values) {
    const double magnitude = largest_part(values);
    if (magnitude == 0) {
        return {};
    }
    if (std::isfinite(magnitude)) {
        return NumberParts::binary_exponent(magnitude);
    }
    std::optional<int> largest;
    for (const Complex value : values) {
        include_exponent(largest, value);
    }
    return largest;
}

void include_exponent(std::optional<int>& largest, Complex value) {
    include_part(largest, value.real());
    include_part(largest, value.imag());
}

bool survives_scaling(Complex value, int exponent) {
    return part_survives(value.real(), exponent) && part_survives(value.imag(), exponent);
}

bool survive_scaling(std::span<const Complex> values, int exponent) {
    using Limits = std::numeric_limits<double>;
    const double smallest =
        combined(parts_of(values), Limits::max(), [](double least, double part) {
            const double magnitude = std::abs(part);
            return part != 0 && magnitude < least ? magnitude : least;
        });
    // No bit is lost where the results are normal numbers. NaN is not among them.
    if (exponent <= 0 && scaled(smallest, exponent) >= Limits::min() && are_finite(values)) {
        return true;
    }
    return std::ranges::all_of(values,
                               [=](Complex value) { return survives_scaling(value, exponent); });
}

int exact_scaling_exponent(std::span<const Complex> values, std::span<const Complex> companions) {
    const auto largest = largest_exponent(values);
    if (!largest) {
        return 0;
    }
    int exponent = *largest + 1;
    while (exponent > 0 &&
           !(survive_scaling(values, -exponent) && survive_scaling(companions, -exponent))) {
        stop_point();
        --exponent;
    }
    // Scaling up cannot lose a bit of the values: the largest of them stays below 1.
    while (exponent < 0 && !survive_scaling(companions, -exponent)) {
        stop_point();
        ++exponent;
    }
    return exponent;
}

double chain_norm(std::span<const Complex> values) {
    constexpr std::size_t piece = 65536; // a millisecond or two
    double norm = 0;
    while (!values.empty()) {
        for (const Complex value : values.first(std::min(piece, values.size()))) {
            norm = hypotenuse(norm, hypotenuse(value));
        }
        values = values.subspan(std::min(piece, values.size()));
        stop_point();
    }
    return norm;
}

bool normalise(std::span<Complex> values) {
    if (const auto largest = largest_exponent(values)) {
        scale(values, -(*largest + 1));
    }
    const double norm = chain_norm(values);
    if (norm == 0) {
        return false;
    }
    for (Complex& value : values) {
        value /= norm;
    }
    return true;
}

} // namespace Tessaline::CpuFallback

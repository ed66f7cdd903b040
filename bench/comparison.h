// SPDX-License-Identifier: Apache-2.0
#pragma once

// Comparisons of speed in one process: contenders run in turn, so that what disturbs the machine
// disturbs them alike, and their medians are set against each other.

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace Tessaline::Bench {

/// One of those that are compared. `prepare`, where there is one, runs before each call and is not
/// timed.
struct Contender {
    std::function<void()> run;
    std::function<void()> prepare = {};
};

/// To be called first in main(). Binds the thread to one CPU of its mask, the last, and the peer to
/// one thread, and prints which kernels the peer chose. OPENBLAS_CORETYPE forces others on it.
void start_comparison();

/// The median of each contender's seconds a call. Contenders take turns of calls that last a few
/// milliseconds together.
std::vector<double> interleaved_medians(const std::vector<Contender>& contenders);

/// What one comparison is about.
struct Subject {
    std::string_view operation;
    std::string_view type;
    std::size_t order;
    double work;                  ///< floating-point operations, or bytes moved, of one call
    double target = 0;            ///< ratio to reach; 0 for none
    double limit = 0;             ///< of `work` a second, as measured on this machine; 0 for none
    std::string_view unit = "GF"; ///< thousand millions of `work` a second: "GF" or "GB"
};

/// The head of the table that compare() adds rows to.
void print_head(std::string_view title);

/// Times both, and prints a row: the speed of each, the ratio of ours to the peer's beside its
/// target, and the share of the machine's limit. Returns the ratio.
double compare(const Subject& subject, const Contender& ours, const Contender& peer);

/// Times one alone and prints a row without a peer. Returns the share of the limit.
double measure(const Subject& subject, const Contender& ours);

} // namespace Tessaline::Bench

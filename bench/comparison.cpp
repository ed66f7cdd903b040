// SPDX-License-Identifier: Apache-2.0
#include "comparison.h"

#include <algorithm>
#include <cblas.h>
#include <chrono>
#include <cstdio>
#include <sched.h>
#include <stdexcept>

namespace Tessaline::Bench {

namespace {

using Clock = std::chrono::steady_clock;

/// Long beside the clock's own 30 ns, short beside a disturbance.
constexpr double turn_seconds = 2e-3;
constexpr double total_seconds = 0.5;
constexpr std::size_t least_turns = 7;
constexpr std::size_t most_turns = 101;

double seconds_of(const std::function<void()>& run) {
    const auto start = Clock::now();
    run();
    return std::chrono::duration<double>(Clock::now() - start).count();
}

/// How many calls make a turn. What needs preparation takes one call.
std::size_t calls_of(const Contender& contender) {
    if (contender.prepare) {
        return 1;
    }
    const double once = std::max(seconds_of(contender.run), 1e-8);
    return std::max<std::size_t>(1, static_cast<std::size_t>(turn_seconds / once));
}

double turn(const Contender& contender, std::size_t calls) {
    if (contender.prepare) {
        contender.prepare();
    }
    return seconds_of([&] {
               for (std::size_t i = 0; i < calls; ++i) {
                   contender.run();
               }
           }) /
           static_cast<double>(calls);
}

double median(std::vector<double>& values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

void print_start(const Subject& subject, double seconds) {
    std::printf("%-26.*s %-11.*s %6zu %9.2f %.*s", static_cast<int>(subject.operation.size()),
                subject.operation.data(), static_cast<int>(subject.type.size()),
                subject.type.data(), subject.order, subject.work / seconds * 1e-9,
                static_cast<int>(subject.unit.size()), subject.unit.data());
}

double print_share(const Subject& subject, double seconds) {
    if (subject.limit == 0) {
        return 0;
    }
    const double share = subject.work / seconds / subject.limit;
    std::printf("  %3.0f %% of limit", 100 * share);
    return share;
}

} // namespace

void start_comparison() {
    cpu_set_t mask;
    if (sched_getaffinity(0, sizeof mask, &mask) != 0) {
        throw std::runtime_error("the affinity of this thread cannot be read");
    }
    int last = CPU_SETSIZE - 1;
    while (!CPU_ISSET(last, &mask)) {
        --last;
    }
    CPU_ZERO(&mask);
    CPU_SET(last, &mask);
    if (sched_setaffinity(0, sizeof mask, &mask) != 0) {
        throw std::runtime_error("this thread cannot be bound to a CPU");
    }
    openblas_set_num_threads(1);
    std::printf("Medians of interleaved calls, one thread; the peer is OpenBLAS, kernels for %s\n",
                openblas_get_corename());
}

std::vector<double> interleaved_medians(const std::vector<Contender>& contenders) {
    std::vector<std::size_t> calls;
    double round = 0;
    for (const Contender& contender : contenders) {
        turn(contender, 1); // the first call meets cold caches, and selects what it will use
        calls.push_back(calls_of(contender));
        round += turn(contender, calls.back()) * static_cast<double>(calls.back());
    }
    const auto turns =
        std::clamp(static_cast<std::size_t>(total_seconds / round), least_turns, most_turns);
    std::vector<std::vector<double>> times(contenders.size());
    for (std::size_t i = 0; i < turns; ++i) {
        for (std::size_t c = 0; c < contenders.size(); ++c) {
            times[c].push_back(turn(contenders[c], calls[c]));
        }
    }
    std::vector<double> medians;
    std::ranges::transform(times, std::back_inserter(medians), median);
    return medians;
}

void print_head(std::string_view title) {
    std::printf("\n%.*s\n%-26s %-11s %6s %12s %12s %s\n", static_cast<int>(title.size()),
                title.data(), "operation", "type", "order", "ours", "peer", " ratio");
}

double compare(const Subject& subject, const Contender& ours, const Contender& peer) {
    const std::vector<double> seconds = interleaved_medians({ours, peer});
    const double ratio = seconds[1] / seconds[0];
    print_start(subject, seconds[0]);
    std::printf(" %9.2f %.*s  %5.2f", subject.work / seconds[1] * 1e-9,
                static_cast<int>(subject.unit.size()), subject.unit.data(), ratio);
    if (subject.target > 0) {
        std::printf("  (at least %.2f%s)", subject.target,
                    ratio < subject.target ? ", MISSED" : "");
    }
    print_share(subject, seconds[0]);
    std::printf("\n");
    std::fflush(stdout);
    return ratio;
}

double measure(const Subject& subject, const Contender& ours) {
    const double seconds = interleaved_medians({ours}).front();
    print_start(subject, seconds);
    const double share = print_share(subject, seconds);
    if (subject.target > 0) {
        std::printf("  (at least %.0f %%%s)", 100 * subject.target,
                    share < subject.target ? ", MISSED" : "");
    }
    std::printf("\n");
    std::fflush(stdout);
    return share;
}

} // namespace Tessaline::Bench

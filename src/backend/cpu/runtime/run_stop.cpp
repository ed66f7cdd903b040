// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/runtime/run_stop.h"

#include "backend/cpu/runtime/stop_point.h"
#include "execution/default_floating_environment.h"
#include "tessaline/catalogue/errors.h"

#include <algorithm>
#include <ctime>
#include <utility>

namespace Tessaline {

namespace {

constinit thread_local RunStop* current_stop = nullptr;

// Good to a few milliseconds, for a quarter of the cost of the precise clock.
std::int64_t coarse_nanoseconds() {
    std::timespec time{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

} // namespace

void stop_point() {
    if (RunStop* const stop = current_stop) {
        stop->check();
    }
}

RunStop* RunStop::current() {
    return current_stop;
}

RunStop::Scope::Scope(RunStop* stop) : outer_(std::exchange(current_stop, stop)) {}

RunStop::Scope::~Scope() {
    current_stop = outer_;
}

void RunStop::check() {
    if (stopped_.load(std::memory_order_relaxed) || token_.stop_requested()) {
        throw OperationStopped();
    }
    if (outer_ != nullptr) {
        outer_->check();
    }
    if (interrupt_ && std::this_thread::get_id() == caller_) {
        ask_caller();
    }
}

// The interrupt function may wait for a lock that other threads hold most of the time, so the next
// question comes the later the longer one takes.
void RunStop::ask_caller() {
    // A small run has two stop points, at its head and at that of its loop.
    if (stop_points_without_clock_ != 0) {
        --stop_points_without_clock_;
        return;
    }
    const std::int64_t shortest = std::chrono::nanoseconds(interval_).count();
    const std::int64_t longest = 4 * shortest;
    constexpr std::int64_t times_away = 40;
    const std::int64_t start = coarse_nanoseconds();
    if (next_question_ == 0) {
        next_question_ = start + shortest;
    }
    if (start < next_question_) {
        return;
    }
    {
        const Scope none(nullptr); // for the operations that it may run
        interrupt_();
        // It may have set modes of its own, and the step goes on.
        DefaultFloatingEnvironment::restored_within_scope();
    }
    const std::int64_t end = coarse_nanoseconds();
    next_question_ = end + std::clamp(times_away * (end - start), shortest, longest);
}

} // namespace Tessaline

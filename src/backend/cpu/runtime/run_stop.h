// SPDX-License-Identifier: Apache-2.0
#pragma once

// How a run learns that its caller wants it to end.

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <stop_token>
#include <thread>

namespace Tessaline {

/// What may end one run: a stop token, and a function that is asked on the calling thread. While it
/// is the current one of a thread, that thread's stop points look at it. Workers have it as the
/// current one while they work for the run.
class RunStop {
  public:
    /// How long the calling thread may leave the function unasked.
    using Interval = std::chrono::milliseconds;

    /// Refers to token and function. The calling thread is the one that constructs.
    RunStop(const std::stop_token& token, const std::function<void()>& interrupt,
            Interval interval = Interval(50))
        : token_(token),
          interrupt_(interrupt),
          interval_(interval) {}
    RunStop(const RunStop&) = delete;
    RunStop& operator=(const RunStop&) = delete;

    /// The thread's current one, null for none.
    static RunStop* current();

    /// Makes one, or none, the thread's current one for a while.
    class Scope {
      public:
        explicit Scope(RunStop* stop);
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;
        ~Scope();

      private:
        RunStop* const outer_;
    };

    /// Raises OperationStopped where the run, or one that it is nested in, is to end. On the
    /// calling thread it also asks the interrupt function when its time has come, and raises what
    /// that raises.
    void check();

    /// Whether the calling thread must come by from time to time, also while it waits.
    bool asks_caller() const { return static_cast<bool>(interrupt_); }
    Interval interval() const { return interval_; }

    /// Ends the run at the next stop point of every thread.
    void stop() { stopped_.store(true, std::memory_order_relaxed); }

  private:
    void ask_caller();

    const std::stop_token& token_;
    const std::function<void()>& interrupt_;
    const Interval interval_;
    RunStop* const outer_ = current(); ///< of the run that this one is nested in
    const std::thread::id caller_ = std::this_thread::get_id();
    std::atomic<bool> stopped_{false};
    int stop_points_without_clock_ = 2; ///< that are still to come
    std::int64_t next_question_ = 0;    ///< coarse time in nanoseconds; the calling thread's own
};

} // namespace Tessaline

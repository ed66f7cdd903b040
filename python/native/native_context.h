// SPDX-License-Identifier: Apache-2.0
#pragma once

// The execution context of Python callers.

#include "native_catalogue.h"

#include "tessaline/frontend/tessaline_executor.h"

#include <nanobind/nanobind.h>
#include <nanobind/ndarray.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Tessaline::Python {

/// An array on a device that is read, in C order.
using DeviceArray = nanobind::ndarray<nanobind::ro, nanobind::c_contig, nanobind::device::cuda>;

/// What a sealed catalogue once said of a function of the package, and so will always say.
struct FunctionFacts {
    const OperationSpec* operation = nullptr; ///< null until it was asked for
    /// The element type of the result for an element type of the operands.
    std::vector<std::pair<ScalarType, ScalarType>> results;
};

/// Constructed once and never changed; several Python threads may use one.
class NativeContext {
  public:
    /// What Python passes, in the order of its arguments.
    struct Arguments {
        std::size_t thread_count;
        std::size_t min_parallel_work;
        std::int32_t cuda_device; ///< negative for the CPU alone
        std::size_t stream_pool_size;
        std::optional<std::uint64_t> external_stream;
        std::string numa_policy;
        std::string pinning_policy;
        std::string scheduling;
        std::string cross_device;
        const NativeCatalogue* catalogue; ///< null for a fresh one of the built-in operations
    };

    /// Raises std::invalid_argument for an unknown policy word and for options that the machine
    /// cannot meet, std::runtime_error for a device where there is none.
    explicit NativeContext(const Arguments& arguments);

    std::size_t thread_count() const { return thread_count_; }
    /// The threads of a parallel loop: `thread_count`, or what 0 stands for on this machine.
    std::size_t worker_count() const { return worker_count_; }
    std::size_t min_parallel_work() const { return min_parallel_work_; }
    std::int32_t cuda_device() const { return cuda_device_; }

    /// Makes the context's device the calling thread's current one, and leaves it so. Raises
    /// BackendLibraryError, without a device that of no device.
    void activate_cuda() const;
    /// Raises std::invalid_argument unless the array lies on the context's device. Waits for
    /// nothing.
    void await_binding(const DeviceArray& binding) const;

    const TessalineContext& context() const { return *context_; }
    const TessalineExecutor& executor() const { return executor_; }

    /// By the function's number. Guarded by the interpreter lock.
    FunctionFacts& facts(std::size_t function) const {
        if (function >= facts_.size()) {
            facts_.resize(function + 1);
        }
        return facts_[function];
    }

  private:
    NativeContext(const Arguments& arguments, BackendExecutor&& executor);

    std::shared_ptr<TessalineContext> context_;
    std::size_t worker_count_;
    TessalineExecutor executor_;
    std::size_t thread_count_;
    std::size_t min_parallel_work_;
    std::int32_t cuda_device_;
    mutable std::vector<FunctionFacts> facts_;
};

void define_context(nanobind::module_& module);

} // namespace Tessaline::Python

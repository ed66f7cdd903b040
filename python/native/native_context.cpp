// SPDX-License-Identifier: Apache-2.0
#include "native_context.h"

#include "execute_operation.h"
#include "result_policy.h"

#include "tessaline/backend/cuda/cuda_device.h"
#include "tessaline/frontend/tessaline_context_builder.h"

#include <nanobind/stl/optional.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/string_view.h>

#include <stdexcept>

namespace nb = nanobind;
using namespace nb::literals;

namespace Tessaline::Python {

namespace {

template <typename Policy>
Policy parse_policy(const std::string& word, const char* failure) {
    if (const auto policy = parse_cpu_policy<Policy>(word)) {
        return *policy;
    }
    throw std::invalid_argument(failure);
}

CpuRuntimeOptions runtime_options(const NativeContext::Arguments& arguments) {
    CpuRuntimeOptions options;
    options.thread_count = arguments.thread_count;
    options.min_parallel_work = arguments.min_parallel_work;
    options.numa_policy =
        parse_policy<CpuNumaPolicy>(arguments.numa_policy, "Context - invalid NUMA policy");
    options.pinning_policy = parse_policy<CpuPinningPolicy>(
        arguments.pinning_policy, "Context - invalid thread-pinning policy");
    return options;
}

BackendExecutor backend_executor(const NativeContext::Arguments& arguments) {
    CpuRuntimeOptions options = runtime_options(arguments);
    if (arguments.cuda_device >= 0) {
        // The first thing that a context on a device makes is the device's memory pool.
        validate_cuda_device_id(arguments.cuda_device, "GpuMemoryPool");
        throw std::runtime_error("Context - this build has no CUDA backend");
    }
    return BackendExecutor::cpu_only(std::move(options));
}

std::shared_ptr<TessalineContext> catalogue_of(const NativeContext::Arguments& arguments) {
    return arguments.catalogue != nullptr
               ? arguments.catalogue->context
               : std::make_shared<TessalineContext>(TessalineContextBuilder().build());
}

} // namespace

NativeContext::NativeContext(const Arguments& arguments)
    : NativeContext(arguments, backend_executor(arguments)) {}

NativeContext::NativeContext(const Arguments& arguments, BackendExecutor&& executor)
    : context_(catalogue_of(arguments)),
      worker_count_(executor.cpu_runtime()->thread_count()),
      executor_(*context_, std::move(executor)),
      thread_count_(arguments.thread_count),
      min_parallel_work_(arguments.min_parallel_work),
      cuda_device_(arguments.cuda_device) {}

void NativeContext::activate_cuda() const {
    set_current_cuda_device(cuda_device_, "activate Python CUDA kernel device");
}

void NativeContext::await_binding(const DeviceArray& binding) const {
    if (cuda_device_ < 0) {
        throw std::invalid_argument("CUDA array requires a device-specific Context");
    }
    if (binding.device_id() != cuda_device_) {
        throw std::invalid_argument("CUDA array device does not match the execution Context");
    }
}

void define_context(nb::module_& module) {
    nb::class_<NativeContext>(module, "Context", "An execution context.")
        .def(
            "__init__",
            [](NativeContext* self, std::size_t thread_count, std::size_t min_parallel_work,
               std::int32_t cuda_device, std::size_t stream_pool_size,
               std::optional<std::uint64_t> external_stream, std::string numa_policy,
               std::string pinning_policy, std::string scheduling, std::string cross_device,
               const NativeCatalogue* catalogue) {
                new (self) NativeContext({thread_count, min_parallel_work, cuda_device,
                                          stream_pool_size, external_stream, std::move(numa_policy),
                                          std::move(pinning_policy), std::move(scheduling),
                                          std::move(cross_device), catalogue});
            },
            "thread_count"_a = default_cpu_thread_count(),
            "min_parallel_work"_a = default_cpu_min_parallel_work(), "cuda_device"_a = -1,
            "stream_pool_size"_a = 32, "external_stream"_a = nb::none(), "numa_policy"_a = "auto",
            "pinning_policy"_a = "auto", "scheduling"_a = "auto", "cross_device"_a = "reject",
            "catalogue"_a = nb::none())
        .def_prop_ro("thread_count", &NativeContext::thread_count)
        .def_prop_ro("min_parallel_work", &NativeContext::min_parallel_work)
        .def_prop_ro("cuda_device", &NativeContext::cuda_device)
        .def_prop_ro("_worker_count", &NativeContext::worker_count)
        .def(
            "synchronise", [](const NativeContext&) {}, "Wait for the context's device work.")
        .def_prop_ro(
            "cuda_stream",
            [](const NativeContext&) -> std::uint64_t {
                throw std::invalid_argument("CUDA operation requires a device-specific Context");
            },
            "The stream of the context's device work.")
        .def("activate_cuda", &NativeContext::activate_cuda,
             "Make the context's device the current one of this thread.")
        .def("await_binding", &NativeContext::await_binding, "binding"_a,
             "Check that an array lies on the context's device.")
        .def(
            "execute",
            [](const NativeContext& self, std::string_view operation, const nb::dict& bindings,
               const nb::dict& locations, const nb::dict& compute_dtypes) {
                return execute_operation(self, operation, bindings, locations, compute_dtypes);
            },
            "operation"_a, "bindings"_a, "locations"_a, "compute_dtypes"_a = nb::dict())
        .def("_result_policy", &result_policy, "operation"_a, "inputs"_a, "output_shape"_a,
             "output_dtype"_a = "");
}

} // namespace Tessaline::Python

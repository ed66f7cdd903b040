// SPDX-License-Identifier: Apache-2.0
#pragma once

// A device without hardware, for tests of what is asked of devices and in which order.

#include "tessaline/execution/gpu_device_runtime.h"

#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace Tessaline::Testing {

using CallLog = std::vector<std::string>;

/// Logs each call with the device's id, as in "record 1", and fails those that it is told to, as in
/// "record 1 failed". Its work never ends until somebody waits for it.
class FakeDevice final : public GpuDeviceRuntime {
  public:
    FakeDevice(CallLog& log, std::int32_t device, int streams = 2)
        : log_(log),
          device_(device),
          free_streams_(streams) {}
    ~FakeDevice() override { log_.push_back("end of " + std::to_string(device_)); }

    std::set<std::string> failing;
    std::optional<std::int32_t> device_of_streams; ///< where it is not the device's own
    int live_events = 0;
    bool is_idle = false;

    int free_streams() const { return free_streams_; }
    CUstream_st* stream() { return reinterpret_cast<CUstream_st*>(&free_streams_); }

    BackendKind backend() const override { return BackendKind::cuda; }
    std::int32_t device_id() const override { return device_; }
    CudaStreamRef acquire_stream() override {
        call("acquire");
        if (free_streams_ == 0) {
            throw std::logic_error("waits");
        }
        return checkout();
    }
    std::optional<CudaStreamRef> try_acquire_stream() override {
        call("try");
        return free_streams_ == 0 ? std::nullopt : std::optional(checkout());
    }
    std::int32_t stream_device(CUstream_st*) override {
        if (failing.contains("ask")) {
            throw std::runtime_error("no answer");
        }
        return device_of_streams.value_or(device_);
    }
    CUevent_st* record_event(CUstream_st*) override {
        call("record");
        ++live_events;
        return reinterpret_cast<CUevent_st*>(&live_events);
    }
    bool is_reached(CUevent_st*) override {
        call("query");
        return is_idle;
    }
    void synchronise_event(CUevent_st*) override { call("await event"); }
    void destroy_event(CUevent_st*) override {
        --live_events;
        call("destroy");
    }
    void synchronise_stream(CUstream_st*) override { call("await stream"); }

  private:
    void call(const std::string& name) {
        const std::string entry = name + " " + std::to_string(device_);
        log_.push_back(entry);
        if (failing.contains(name)) {
            throw std::runtime_error(entry + " failed");
        }
    }
    CudaStreamRef checkout() {
        --free_streams_;
        return {stream(), device_,
                std::shared_ptr<const void>(this, [this](const void*) { ++free_streams_; })};
    }

    CallLog& log_;
    std::int32_t device_;
    int free_streams_;
};

/// Devices 0 to 3.
struct FakeMachine {
    CallLog log;
    std::vector<std::shared_ptr<FakeDevice>> devices;

    explicit FakeMachine(int streams = 2) {
        for (const std::int32_t id : {0, 1, 2, 3}) {
            devices.push_back(std::make_shared<FakeDevice>(log, id, streams));
        }
    }
    std::shared_ptr<const GpuRuntimeMap> runtimes() const {
        GpuRuntimeMap map;
        for (const auto& device : devices) {
            map.emplace(device->device_id(), device);
        }
        return std::make_shared<const GpuRuntimeMap>(std::move(map));
    }
};

} // namespace Tessaline::Testing

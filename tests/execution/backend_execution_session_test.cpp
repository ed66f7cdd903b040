// SPDX-License-Identifier: Apache-2.0
#include "support/expect_error.h"
#include "support/fake_device.h"
#include "tessaline/execution/backend_execution_session.h"

#include <gmock/gmock.h>

namespace Tessaline {
namespace {

using ::testing::ElementsAre;
using Testing::expect_error;
using Testing::FakeDevice;
using Testing::FakeMachine;
using ::testing::IsEmpty;

const std::shared_ptr<CpuRuntimeContext> no_cpu;

struct MachineSession : BackendExecutionSession {
    explicit MachineSession(const FakeMachine& machine, std::int32_t selected = 0,
                            std::optional<CudaStreamRef> stream = {})
        : BackendExecutionSession(TrustedGpuRuntimeCatalogue{}, no_cpu, machine.runtimes(),
                                  selected, std::move(stream), CrossDevicePolicy::StagedHostCopy) {}
};

TEST(BackendExecutionSession, CpuSessionHasNoDevice) {
    BackendExecutionSession session;
    EXPECT_EQ(session.cpu(BackendKind::cpu_scalar).backend(), BackendKind::cpu_scalar);
    EXPECT_EQ(session.cpu(BackendKind::cpu_simd).backend(), BackendKind::cpu_simd);
    EXPECT_EQ(session.selected_gpu_runtime(), nullptr);
    EXPECT_THAT(session.gpu_runtimes(), IsEmpty());
    EXPECT_EQ(session.gpu_runtime(0), nullptr);
    EXPECT_EQ(session.cross_device_policy(), CrossDevicePolicy::Reject);
    EXPECT_EQ(session.synchronize_process_gpu(), nullptr);
    session.synchronize_active_gpu();
    session.prepare_gpu_contexts({});
    expect_error<std::logic_error>([&] { session.cpu(BackendKind::cuda); },
                                   "BackendExecutionSession::cpu - non-CPU backend requested");
    expect_error<std::logic_error>(
        [&] { session.gpu(0); },
        "BackendExecutionSession::gpu - CUDA runtime context unavailable for device 0");
    expect_error<std::logic_error>(
        [&] { static_cast<void>(session.selected_gpu_device_id()); },
        "BackendExecutionSession::selected_gpu_device_id - CUDA device not selected");
    const std::int32_t negative[] = {3, -1};
    expect_error<std::invalid_argument>(
        [&] { session.prepare_gpu_contexts(negative); },
        "BackendExecutionSession::prepare_gpu_contexts - CUDA device id must be non-negative");
    const std::int32_t absent[] = {3, 1};
    expect_error<std::logic_error>(
        [&] { session.prepare_gpu_contexts(absent); },
        "BackendExecutionSession::prepare_gpu_contexts - CUDA runtime context unavailable for "
        "device 1");
    EXPECT_FALSE(session.has_active_gpu());
}

TEST(BackendExecutionSession, RefusesContradictoryDevices) {
    Testing::CallLog log;
    const auto zero = std::make_shared<FakeDevice>(log, 0);
    const auto on_one = CudaStreamRef::external(nullptr, 1);
    const struct {
        GpuRuntimeMap runtimes;
        std::optional<std::int32_t> selected;
        std::optional<CudaStreamRef> stream;
        const char* message;
    } refused[] = {
        {{{-2, zero}}, {}, {}, "CUDA runtime map device id must be non-negative, got -2"},
        {{{1, nullptr}}, {}, {}, "CUDA runtime context must not be null for map key 1"},
        {{{1, zero}}, {}, {}, "CUDA runtime context device 0 does not match map key 1"},
        {{{0, zero}}, -1, on_one, "selected CUDA device id must be non-negative"},
        {{{0, zero}}, 1, on_one, "CUDA runtime context unavailable for selected device 1"},
        {{{0, zero}}, {}, on_one, "borrowed CUDA stream requires a selected CUDA device"},
        {{{0, zero}}, 0, on_one, "borrowed CUDA stream device does not match selected CUDA device"},
    };
    for (const auto& [runtimes, selected, stream, message] : refused) {
        expect_error<std::invalid_argument>(
            [&] {
                BackendExecutionSession(no_cpu, runtimes, selected, stream,
                                        CrossDevicePolicy::Reject);
            },
            std::string("BackendExecutionSession - ") + message);
    }
    expect_error<std::invalid_argument>(
        [] {
            BackendExecutionSession(BackendExecutionSession::TrustedGpuRuntimeCatalogue{}, no_cpu,
                                    nullptr, 0, {}, CrossDevicePolicy::Reject);
        },
        "BackendExecutionSession - trusted CUDA runtime catalogue must not be null");
    BackendExecutionSession one{std::shared_ptr<GpuDeviceRuntime>(zero)};
    EXPECT_EQ(one.selected_gpu_runtime(), zero.get());
    BackendExecutionSession none{std::shared_ptr<GpuDeviceRuntime>()};
    EXPECT_EQ(none.selected_gpu_runtime(), nullptr);
}

TEST(BackendExecutionSession, AcquiresInAscendingOrderAndWaitsOnlyUpwards) {
    FakeMachine machine(1);
    {
        MachineSession session(machine);
        const std::int32_t unordered[] = {2, 0, 2};
        session.prepare_gpu_contexts(unordered);
        session.prepare_gpu_contexts(unordered);
        EXPECT_THAT(machine.log, ElementsAre("acquire 0", "acquire 2"));
        EXPECT_EQ(session.gpu(0).stream(), machine.devices[0]->stream());
        machine.log.clear();
        session.gpu(1); // below the highest: there is one, so nothing waits
        {
            MachineSession other(machine);
            machine.devices[3]->failing = {"acquire"};
            expect_error<std::runtime_error>([&] { other.gpu(3); }, "acquire 3 failed");
            expect_error<std::logic_error>([&] { other.gpu(2); }, "waits");
            EXPECT_FALSE(other.has_active_gpu());
            machine.devices[3]->failing = {};
            other.gpu(3);
            expect_error<std::runtime_error>(
                [&] { other.gpu(1); },
                "BackendExecutionSession::gpu - CUDA stream unavailable for non-blocking device "
                "acquisition");
        }
        EXPECT_THAT(machine.log,
                    ElementsAre("try 1", "acquire 3", "acquire 2", "acquire 3", "try 1"));
    }
    for (const auto& device : machine.devices) {
        EXPECT_EQ(device->free_streams(), 1) << "streams go back with their session";
    }
}

TEST(BackendExecutionSession, SelectedDeviceUsesTheCallersStream) {
    FakeMachine machine;
    FakeDevice& one = *machine.devices[1];
    for (CUstream_st* const stream : {one.stream(), static_cast<CUstream_st*>(nullptr)}) {
        MachineSession session(machine, 1, CudaStreamRef::external(stream, 1));
        EXPECT_EQ(session.gpu(1).stream(), stream);
        session.gpu(0);
        session.gpu(2);
    }
    EXPECT_THAT(machine.log, ElementsAre("acquire 0", "acquire 2", "acquire 0", "acquire 2"));
    machine.log.clear();
    {
        // A stream from a pool is held already, so that waiting for another could close a circle.
        MachineSession session(machine, 1, one.acquire_stream());
        session.gpu(1);
        session.gpu(2);
    }
    EXPECT_THAT(machine.log, ElementsAre("acquire 1", "try 2"));
    one.device_of_streams = 5;
    MachineSession session(machine, 1, CudaStreamRef::external(one.stream(), 1));
    expect_error<std::invalid_argument>(
        [&] { session.gpu(1); },
        "GpuExecutionContext - CUDA stream declared for device 1 belongs to device 5");
    one.failing = {"ask"};
    expect_error<std::invalid_argument>(
        [&] { session.gpu(1); },
        "GpuExecutionContext - failed to query CUDA stream device: no answer");
    using Null = GpuExecutionContext::NullStream;
    const struct {
        std::shared_ptr<GpuDeviceRuntime> runtime;
        std::int32_t device;
        Null null;
        const char* message;
    } refused[] = {
        {nullptr, 0, Null::refused, "runtime context must not be null"},
        {machine.devices[0], 1, Null::refused, "CUDA stream must not be null"},
        {machine.devices[0], 1, Null::is_default_stream,
         "CUDA stream device 1 does not match runtime device 0"},
    };
    for (const auto& [runtime, device, null, message] : refused) {
        expect_error<std::invalid_argument>(
            [&] { GpuExecutionContext(runtime, CudaStreamRef::external(nullptr, device), null); },
            std::string("GpuExecutionContext - ") + message);
    }
}

TEST(BackendExecutionSession, RecordsEachStreamOnceBetweenBeginAndEnd) {
    FakeMachine machine;
    MachineSession session(machine);
    session.gpu(2);
    EXPECT_THAT(session.process_gpu_submissions(), IsEmpty());
    session.begin_process_gpu_submission();
    expect_error<std::logic_error>(
        [&] { session.begin_process_gpu_submission(); },
        "BackendExecutionSession - nested process execution is unsupported");
    for (const std::int32_t device : {2, 1, 2}) {
        session.gpu(device);
    }
    session.end_process_gpu_submission();
    session.gpu(0);
    const GpuSubmission on_two{2, machine.devices[2]->stream()};
    const GpuSubmission on_one{1, machine.devices[1]->stream()};
    EXPECT_THAT(session.process_gpu_submissions(), ElementsAre(on_two, on_one));
    EXPECT_TRUE(session.process_gpu_submission_stream(on_one).is_pool_managed());
    expect_error<std::out_of_range>(
        [&] {
            static_cast<void>(session.process_gpu_submission_stream({3, nullptr}));
        },
        "BackendExecutionSession::process_gpu_submission_stream - no context of device 3");
    session.begin_process_gpu_submission();
    EXPECT_THAT(session.process_gpu_submissions(), IsEmpty());
}

// What fails on which device, the failure that counts, and whether the end of the work is certain.
TEST(BackendExecutionSession, SynchronisationReportsTheFirstFailureAndWhetherWorkEnded) {
    const struct {
        std::set<std::string> on_zero;
        std::set<std::string> on_one;
        std::string failure;
        bool confirmed;
    } cases[] = {
        {{}, {}, "", true},
        {{"destroy"}, {"destroy"}, "destroy 0 failed", true},
        {{}, {"record"}, "record 1 failed", true},
        {{"await event"}, {"destroy"}, "await event 0 failed", false},
        {{"destroy"}, {"await event"}, "await event 1 failed", false},
        {{"record", "await stream"}, {"await event"}, "record 0 failed", false},
    };
    for (const auto& [on_zero, on_one, failure, confirmed] : cases) {
        SCOPED_TRACE(failure);
        FakeMachine machine;
        MachineSession session(machine);
        session.begin_process_gpu_submission();
        session.gpu(0);
        session.gpu(1);
        session.end_process_gpu_submission();
        machine.devices[0]->failing = on_zero;
        machine.devices[1]->failing = on_one;
        std::exception_ptr returned;
        const auto synchronise = [&] { returned = session.synchronize_process_gpu(); };
        const auto rethrow = [&] { std::rethrow_exception(returned); };
        if (!confirmed) {
            expect_error<std::runtime_error>(synchronise, failure);
        } else {
            synchronise();
            EXPECT_EQ(returned == nullptr, failure.empty());
            if (returned) {
                expect_error<std::runtime_error>(rethrow, failure);
            }
        }
        EXPECT_EQ(machine.devices[0]->live_events + machine.devices[1]->live_events, 0);
        EXPECT_EQ(std::ranges::count(machine.log, "await event 1"), !on_one.contains("record"))
            << "one failure keeps nobody from waiting for the others";
        machine.devices[0]->failing = machine.devices[1]->failing = {"await stream"};
        machine.log.clear();
        expect_error<std::runtime_error>([&] { session.synchronize_active_gpu(); },
                                         "await stream 0 failed");
        EXPECT_THAT(machine.log, ElementsAre("await stream 0", "await stream 1"));
    }
}

} // namespace
} // namespace Tessaline

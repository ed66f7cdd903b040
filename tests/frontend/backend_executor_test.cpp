// SPDX-License-Identifier: Apache-2.0
#include "support/expect_error.h"
#include "support/fake_device.h"
#include "support/function_step.h"
#include "tessaline/frontend/backend_executor.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <new>

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
using LeaksOnPurpose = __lsan::ScopedDisabler;
#else
struct LeaksOnPurpose {};
#endif

namespace Tessaline {
namespace {

using Testing::bindings_of;
using Testing::bound_vector;
using Testing::DescribedVector;
using ::testing::ElementsAre;
using Testing::expect_error;
using Testing::FakeDevice;
using Testing::FakeMachine;
using Testing::FunctionStep;
using ::testing::IsEmpty;
using Testing::process_of;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

const auto host = DataTopologyDescriptor::pageable_host(-1);
const OperandRole out0 = output_role(0);

BackendProcess failing_process() {
    return process_of([](auto&, auto&) { throw std::domain_error("no good"); });
}

TEST(BackendExecutor, SubmittedRunsAreFinishedAndRepeatTheirFailure) {
    const auto executor = BackendExecutor::cpu_only();
    auto finished = executor.submit(BackendProcess(), {});
    EXPECT_TRUE(finished.completed());
    finished.wait();
    auto failed = executor.submit(failing_process(), {});
    EXPECT_TRUE(failed.completed());
    for (int attempt = 0; attempt < 2; ++attempt) {
        expect_error<std::domain_error>([&] { failed.wait(); }, "no good");
    }
    finished = std::move(failed);
    expect_error<std::domain_error>([&] { finished.wait(); }, "no good");
    failed.wait(); // NOLINT(bugprone-use-after-move): an empty handle has nothing to wait for
    BackendExecutor::Execution empty;
    empty.wait();
    EXPECT_TRUE(empty.completed());
}

TEST(BackendExecutor, GivesTheCallersBindingsBackAlsoOnFailure) {
    const auto executor = BackendExecutor::cpu_only();
    DescribedVector mine(host);
    DescribedVector temporary(host);
    for (const bool fails : {false, true}) {
        auto bindings = bindings_of(mine);
        const auto process = process_of([&](auto&, BackendExecutionBindings& table) {
            table.push_adapted(out0, std::ref<VectorEntity>(temporary));
            if (fails) {
                throw std::domain_error("no good");
            }
        });
        auto execution = executor.submit_borrowed(process, bindings);
        EXPECT_EQ(bound_vector(bindings), &mine);
        EXPECT_TRUE(bindings.adapted.empty());
        if (fails) {
            expect_error<std::domain_error>([&] { execution.wait(); }, "no good");
            expect_error<std::domain_error>([&] { executor.execute(process, bindings); },
                                            "no good");
        }
    }
}

BackendProcess::ExecutionPlan cuda_plan(std::optional<std::int32_t> device = std::nullopt,
                                        CrossDevicePolicy policy = CrossDevicePolicy::Reject) {
    return {BackendKind::cuda, device, policy, {}};
}

TEST(BackendExecutor, RefusesWhatItCannotRunBeforeAnythingRuns) {
    const auto executor = BackendExecutor::cpu_only();
    bool ran = false;
    auto process = process_of([&](auto&, auto&) { ran = true; });
    DescribedVector mine(host);
    auto adapted = bindings_of(mine);
    adapted.push_adapted(out0, std::ref<VectorEntity>(mine));
    expect_error<std::invalid_argument>(
        [&] { executor.submit(BackendProcess(), adapted); },
        "BackendExecutor::submit - pre-adapted bindings are unsupported");
    process.set_execution_plan(cuda_plan());
    BackendExecutionBindings bindings;
    expect_error<std::runtime_error>(
        [&] { executor.execute(process, bindings); },
        "BackendExecutor::execute - CUDA execution is unavailable in a CPU-only executor");
    EXPECT_FALSE(ran);
    BackendExecutor::mark_process_completion_unconfirmed(process);
    expect_error<std::logic_error>(
        [&] { process.ensure_usable("here"); },
        "here - process is unusable after CUDA completion could not be confirmed");
}

BackendExecutor executor_on(const FakeMachine& machine, std::vector<std::size_t> scope,
                            std::optional<CudaStreamRef> stream = {},
                            CrossDevicePolicy policy = CrossDevicePolicy::Reject) {
    std::vector<std::shared_ptr<GpuDeviceRuntime>> devices;
    for (const std::size_t device : scope) {
        devices.push_back(machine.devices[device]);
    }
    return {{}, devices, std::move(stream), policy, {}};
}

TEST(BackendExecutor, RunsOnTheDeviceThatPlanOperandsOrScopeName) {
    FakeMachine machine;
    const auto executor = executor_on(machine, {2, 0});
    const auto peer = CrossDevicePolicy::PeerCopyIfAvailable;
    const auto on = [](std::int32_t device) { return DataTopologyDescriptor::gpu(device); };
    const struct {
        std::optional<BackendProcess::ExecutionPlan> plan;
        DataTopologyDescriptor operand;
        std::int32_t device;
        const char* refusal;
    } cases[] = {
        {{}, host, 2, ""},
        {{}, on(0), 0, ""},
        {cuda_plan(), on(2), 2, ""},
        {cuda_plan(0), host, 0, ""},
        {cuda_plan(0, peer), on(2), 0, ""},
        {cuda_plan(0), on(2), 0,
         "GPU operand Output0 is on device 2 but selected execution "
         "device is 0"},
        {cuda_plan(0, peer), on(1), 0,
         "GPU operand Output0 is on device 1 but that device is not "
         "in the CUDA execution scope"},
        {cuda_plan(0, peer), on(-1), 0, "GPU operand Output0 has invalid CUDA device placement -1"},
        {cuda_plan(1), on(2), 0, "selected CUDA device 1 is not in the CUDA execution scope"},
        {cuda_plan(), on(3), 0, "selected CUDA device 3 is not in the CUDA execution scope"},
    };
    for (const auto& [plan, topology, device, refusal] : cases) {
        SCOPED_TRACE(refusal);
        std::optional<std::int32_t> selected;
        auto process =
            process_of([&](auto& session, auto&) { selected = session.selected_gpu_device_id(); });
        if (plan) {
            process.set_execution_plan(*plan);
        }
        DescribedVector operand(topology);
        auto bindings = bindings_of(operand);
        const auto run = [&] { executor.execute(process, bindings); };
        if (*refusal == '\0') {
            run();
            EXPECT_EQ(selected, device);
        } else {
            expect_error<std::invalid_argument>(run, std::string("BackendExecutor::execute - ") +
                                                         refusal);
            EXPECT_FALSE(selected);
        }
    }
    expect_error<std::invalid_argument>(
        [&] {
            executor_on(machine, {1, 1});
        },
        "BackendExecutor - device runtimes must not be null, and one a device");
}

TEST(BackendExecutor, RunsUseTheirOwnStreamBeforeTheExecutors) {
    FakeMachine machine;
    int own = 0;
    int executors = 0;
    const auto stream = [](int& place) {
        return CudaStreamRef::external(reinterpret_cast<CUstream_st*>(&place), 1);
    };
    const auto executor = executor_on(machine, {1}, stream(executors));
    const CUstream_st* used = nullptr;
    const auto process = process_of([&](auto& session, auto&) { used = session.gpu(1).stream(); });
    BackendExecutionBindings bindings;
    executor.execute(process, bindings);
    EXPECT_EQ(used, stream(executors).get());
    const BackendExecutor::ExecutionOptions options{stream(own), {}, {}};
    executor.execute(process, bindings, options);
    EXPECT_EQ(used, stream(own).get());
    auto on_cpu =
        process_of([](auto& session, auto&) { EXPECT_THAT(session.gpu_runtimes(), IsEmpty()); });
    on_cpu.set_execution_plan({BackendKind::cpu_simd, {}, CrossDevicePolicy::Reject, {}});
    executor.execute(on_cpu, bindings, options);
}

/// A run on device 0 that leaves work under way, with a temporary in place of the caller's operand.
struct RunUnderWay {
    FakeMachine machine;
    DescribedVector mine{host};
    DescribedVector temporary{host};
    BackendExecutionBindings bindings = bindings_of(mine);
    BackendProcess process = make_process();

    BackendProcess make_process() {
        BackendProcess made;
        made.push_back(std::make_unique<FunctionStep>(
            [this](auto& session, auto& table) {
                session.gpu(0);
                table.push_adapted(out0, std::ref<VectorEntity>(temporary));
            },
            [this] { machine.log.push_back("end of step"); }));
        return made;
    }
    FakeDevice& device() { return *machine.devices[0]; }
    BackendExecutor::Execution submit_borrowed() {
        return executor_on(machine, {0}).submit_borrowed(process, bindings);
    }
};

TEST(BackendExecutor, WaitSettlesARunThatIsUnderWay) {
    RunUnderWay run;
    auto execution = run.submit_borrowed();
    EXPECT_EQ(run.device().free_streams(), 2) << "the event stands for the stream";
    EXPECT_FALSE(execution.completed());
    run.device().is_idle = true;
    EXPECT_TRUE(execution.completed());
    EXPECT_EQ(bound_vector(run.bindings), &run.temporary) << "to be complete is not to be settled";
    run.process = BackendProcess(); // whose steps the run retains
    auto moved = std::move(execution);
    moved.wait();
    moved.wait();
    EXPECT_THAT(run.machine.log, ElementsAre("acquire 0", "record 0", "query 0", "query 0",
                                             "await event 0", "destroy 0", "end of step"));
    EXPECT_EQ(bound_vector(run.bindings), &run.mine);
    EXPECT_TRUE(moved.completed());
}

TEST(BackendExecutor, DroppedAndReplacedHandlesWaitAndFreeStepsBeforeDevices) {
    for (const bool assigned : {false, true}) {
        RunUnderWay run;
        {
            BackendExecutor::Execution execution =
                executor_on(run.machine, {0})
                    .submit(std::move(run.process), std::move(run.bindings));
            run.machine.devices.clear(); // the run keeps what it needs
            run.machine.log.clear();
            if (assigned) {
                execution = BackendExecutor::cpu_only().submit(failing_process(), {});
                EXPECT_FALSE(run.machine.log.empty());
            }
            CaptureStderr();
        }
        EXPECT_EQ(GetCapturedStderr(), "") << "nor does a failure that nobody asked for on the CPU";
        EXPECT_THAT(run.machine.log,
                    ElementsAre("await event 0", "destroy 0", "end of step", "end of 0"));
    }
}

// What fails in the device, and the failure that wait tells.
TEST(BackendExecutor, FailuresOfConfirmedRunsAreKept) {
    const struct {
        std::set<std::string> failing;
        bool step_fails;
        bool settled_at_once;
        std::string failure;
    } cases[] = {
        {{"destroy"}, false, false, "destroy 0 failed"},
        {{"record"}, false, true, "record 0 failed"},
        {{"destroy"}, true, true, "broken"},
        {{"record"}, true, true, "broken"},
    };
    for (const auto& [failing, step_fails, settled_at_once, failure] : cases) {
        SCOPED_TRACE(failure);
        RunUnderWay run;
        run.device().failing = failing;
        if (step_fails) {
            run.process.push_back(std::make_unique<FunctionStep>(
                [](auto&, auto&) { throw std::runtime_error("broken"); }));
        }
        auto execution = run.submit_borrowed();
        EXPECT_EQ(bound_vector(run.bindings) == &run.mine, settled_at_once);
        EXPECT_EQ(execution.completed(), settled_at_once);
        for (int attempt = 0; attempt < 2; ++attempt) {
            expect_error<std::runtime_error>([&] { execution.wait(); }, failure);
        }
        EXPECT_EQ(bound_vector(run.bindings), &run.mine);
        EXPECT_EQ(run.device().live_events, 0);
        run.process.ensure_usable("after a confirmed end");
    }
}

// What fails, the failure that wait tells, and the streams that stay checked out.
TEST(BackendExecutor, UnconfirmedRunsAreTriedAgainAndNeverFreed) {
    const struct {
        std::set<std::string> failing;
        bool recovers;
        std::string failure;
        int kept_streams;
    } cases[] = {
        {{"await event"}, false, "await event 0 failed", 0},
        {{"await event"}, true, "await event 0 failed", 0},
        {{"record", "await stream"}, false, "record 0 failed", 1},
        {{"record", "await stream"}, true, "record 0 failed", 1},
    };
    for (const auto& [failing, recovers, failure, kept_streams] : cases) {
        SCOPED_TRACE(failure);
        [[maybe_unused]] const LeaksOnPurpose unless_it_recovers;
        RunUnderWay run;
        run.device().failing = failing;
        const auto freed_steps = [&] { return std::ranges::count(run.machine.log, "end of step"); };
        {
            auto execution = run.submit_borrowed();
            const auto wait = [&execution] { execution.wait(); };
            expect_error<std::runtime_error>(wait, failure);
            EXPECT_FALSE(execution.completed());
            EXPECT_EQ(bound_vector(run.bindings), &run.temporary);
            EXPECT_EQ(run.device().free_streams(), 2 - kept_streams);
            expect_error<std::logic_error>(
                [&] { run.process.ensure_usable("here"); },
                "here - process is unusable after CUDA completion could not be confirmed");
            run.process = BackendProcess();
            if (recovers) {
                run.device().failing = {};
                expect_error<std::runtime_error>(wait, failure);
                EXPECT_EQ(bound_vector(run.bindings), &run.mine);
                EXPECT_EQ(run.device().free_streams(), 2);
            }
            EXPECT_EQ(freed_steps(), recovers);
            CaptureStderr();
        }
        EXPECT_EQ(GetCapturedStderr(),
                  recovers ? "" : "Tessaline execution cleanup failed: " + failure + "\n");
        EXPECT_EQ(freed_steps(), recovers) << "a device may still use what a step owns";
        EXPECT_EQ(run.machine.devices[0].use_count(), recovers ? 1 : 2);
    }
}

} // namespace
} // namespace Tessaline

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

namespace {

thread_local bool memory_is_exhausted = false;

} // namespace

// Replaced in the whole program, where no sanitizer does so; the other forms call these. Where the
// compiler sees through them it takes the two halves for a mismatch.
[[gnu::noinline]] void* operator new(std::size_t size) {
    if (void* memory = memory_is_exhausted ? nullptr : std::malloc(size)) {
        return memory;
    }
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace Tessaline {
namespace {

TEST(BackendExecutor, RestoringThatFailsIsAFailureOfTheRun) {
    RunUnderWay run;
    run.process.push_back(std::make_unique<FunctionStep>(
        [](auto&, auto& table) { table.operands = {}; })); // so that a restore needs memory
    auto execution = run.submit_borrowed();
    memory_is_exhausted = true;
    try {
        execution.wait();
    } catch (const std::bad_alloc&) {
    }
    memory_is_exhausted = false;
    EXPECT_THROW(execution.wait(), std::bad_alloc);
    EXPECT_TRUE(execution.completed());
    EXPECT_EQ(run.device().live_events, 0);
}

} // namespace
} // namespace Tessaline

#endif

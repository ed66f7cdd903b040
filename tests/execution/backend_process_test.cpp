// SPDX-License-Identifier: Apache-2.0
#include "support/expect_error.h"
#include "support/fake_device.h"
#include "support/function_step.h"

#include <gmock/gmock.h>

#include <cfenv>

namespace Tessaline {
namespace {

using Log = Testing::CallLog;
using Testing::bindings_of;
using Testing::bound_vector;
using Testing::DescribedVector;
using ::testing::ElementsAre;
using Testing::expect_error;
using Testing::FakeMachine;
using Testing::FunctionStep;
using Testing::process_of;

std::unique_ptr<BackendProcessStep> logging(Log& log, std::string name) {
    return std::make_unique<FunctionStep>(
        [&log, name = std::move(name)](auto&, auto&) { log.push_back(name); });
}

std::unique_ptr<BackendProcessStep> failing(std::string what) {
    return std::make_unique<FunctionStep>(
        [what = std::move(what)](auto&, auto&) { throw std::runtime_error(what); });
}

struct DeviceSession : FakeMachine {
    explicit DeviceSession(std::int32_t selected = 0)
        : session(BackendExecutionSession::TrustedGpuRuntimeCatalogue{}, nullptr, runtimes(),
                  selected, std::nullopt, CrossDevicePolicy::StagedHostCopy) {}

    BackendExecutionSession session;
};

BackendProcess::ExecutionPlan cuda_plan(std::optional<std::int32_t> device = std::nullopt) {
    return {BackendKind::cuda, device, CrossDevicePolicy::StagedHostCopy, {}};
}

const auto host = DataTopologyDescriptor::pageable_host(-1);
const OperandRole out0 = output_role(0);

TEST(BackendProcess, RunsStepsInOrderAndRepeatedly) {
    Log log;
    BackendProcess process;
    process.push_back(logging(log, "kernel"));
    process.push_front(logging(log, "before"));
    process.push_back(logging(log, "after"));
    BackendExecutionSession session;
    BackendExecutionBindings bindings;
    process.execute(session, bindings);
    process.execute_deferred(session, bindings);
    EXPECT_THAT(log, ElementsAre("before", "kernel", "after", "before", "kernel", "after"));

    BackendProcess moved = std::move(process);
    EXPECT_EQ(moved.size(), 3U);
    EXPECT_TRUE(process.empty()); // NOLINT(bugprone-use-after-move): its state is specified
    process.execute(session, bindings);
    process.push_back(logging(log, "again"));
    EXPECT_EQ(process.size(), 1U);

    const auto retained = moved.retain_steps();
    moved = BackendProcess();
    EXPECT_EQ(retained->size(), 3U);
}

TEST(BackendProcess, EachStepFindsTheDefaultFloatingPointEnvironment) {
    int rounding_to_nearest = 0;
    BackendProcess process;
    for (int step = 0; step < 2; ++step) {
        process.push_back(std::make_unique<FunctionStep>([&](auto&, auto&) {
            rounding_to_nearest += std::fegetround() == FE_TONEAREST;
            std::fesetround(FE_DOWNWARD);
        }));
    }
    process.push_back(failing("late"));
    BackendExecutionSession session;
    BackendExecutionBindings bindings;
    for (const int callers : {FE_UPWARD, FE_TONEAREST}) {
        std::fesetround(callers);
        std::feclearexcept(FE_ALL_EXCEPT);
        EXPECT_THROW(process.execute(session, bindings), std::runtime_error);
        EXPECT_EQ(std::fegetround(), callers);
    }
    EXPECT_EQ(rounding_to_nearest, 4);
}

TEST(BackendProcess, RefusesNullStepsAndContradictoryPlans) {
    BackendProcess process;
    expect_error<std::invalid_argument>([&] { process.push_front(nullptr); },
                                        "BackendProcess::push_front - null step");
    expect_error<std::invalid_argument>([&] { process.push_back(nullptr); },
                                        "BackendProcess::push_back - null step");
    const std::string cpu = "BackendProcess::set_execution_plan - CPU plan cannot specify CUDA "
                            "execution options";
    const std::pair<BackendProcess::ExecutionPlan, std::string> refused[] = {
        {cuda_plan(-1), "BackendProcess::set_execution_plan - CUDA device id must be non-negative"},
        {{BackendKind::cpu_simd, std::nullopt, CrossDevicePolicy::StagedHostCopy, {}}, cpu},
        {{BackendKind::cpu_scalar, 0, CrossDevicePolicy::Reject, {}}, cpu},
    };
    for (const auto& [plan, message] : refused) {
        expect_error<std::invalid_argument>([&] { process.set_execution_plan(plan); }, message);
    }
    EXPECT_FALSE(process.execution_plan());
}

TEST(BackendProcess, FailedStepStopsTheWalkAndClearsTheMark) {
    Log log;
    BackendProcess process;
    process.push_back(logging(log, "first"));
    process.push_back(failing("broken"));
    process.push_back(logging(log, "third"));
    BackendExecutionSession session;
    BackendExecutionBindings bindings;
    for (int run = 0; run < 2; ++run) {
        expect_error<std::runtime_error>([&] { process.execute(session, bindings); }, "broken");
        expect_error<std::runtime_error>([&] { process.execute_deferred(session, bindings); },
                                         "broken");
    }
    EXPECT_THAT(log, ElementsAre("first", "first", "first", "first"));
}

TEST(BackendProcess, NestedRunsInOneSessionAreRefused) {
    BackendProcess inner;
    BackendProcess outer;
    outer.push_back(std::make_unique<FunctionStep>(
        [&inner](BackendExecutionSession& session, BackendExecutionBindings& bindings) {
            inner.execute(session, bindings);
        }));
    BackendExecutionSession session;
    BackendExecutionBindings bindings;
    expect_error<std::logic_error>(
        [&] { outer.execute(session, bindings); },
        "BackendExecutionSession - nested process execution is unsupported");
    inner.execute(session, bindings);
}

TEST(BackendProcess, ImmediateFormGivesTheCallersBindingsBack) {
    DescribedVector mine(host);
    DescribedVector first(host);
    DescribedVector second(host);
    for (const bool fails : {false, true}) {
        BackendProcess process;
        process.push_back(std::make_unique<FunctionStep>([&](auto&, auto& bindings) {
            bindings.push_adapted(out0, std::ref<VectorEntity>(first));
            bindings.push_adapted(out0, std::ref<VectorEntity>(second));
        }));
        if (fails) {
            process.push_back(failing("broken"));
        }
        auto bindings = bindings_of(mine);
        BackendExecutionSession session;
        if (fails) {
            expect_error<std::runtime_error>([&] { process.execute(session, bindings); }, "broken");
        } else {
            process.execute(session, bindings);
        }
        EXPECT_EQ(bound_vector(bindings), &mine);
        EXPECT_TRUE(bindings.adapted.empty());
        // The deferred form leaves completion, and with it the bindings, to its caller.
        try {
            process.execute_deferred(session, bindings);
        } catch (const std::runtime_error&) {
            EXPECT_TRUE(fails);
        }
        EXPECT_EQ(bound_vector(bindings), &second);
        EXPECT_EQ(bindings.adapted_origins(out0).size(), 2U);
    }
}

TEST(BackendExecutionBindings, DisplacedBindingsNest) {
    DescribedVector mine(host);
    DescribedVector first(host);
    DescribedVector second(host);
    auto bindings = bindings_of(mine);
    bindings.push_adapted(out0, std::ref<VectorEntity>(first));
    bindings.push_adapted(out0, std::ref<VectorEntity>(second));
    bindings.pop_adapted(out0);
    EXPECT_EQ(bound_vector(bindings), &first);
    bindings.pop_adapted(out0);
    EXPECT_EQ(bound_vector(bindings), &mine);
    EXPECT_TRUE(bindings.adapted.empty());
    EXPECT_TRUE(bindings.adapted_origins(input_role(0)).empty());
    expect_error<std::out_of_range>(
        [&] { bindings.push_adapted(input_role(0), std::ref<VectorEntity>(first)); },
        "unordered_map::at");
    EXPECT_TRUE(bindings.adapted.empty());
    expect_error<std::out_of_range>([&] { gpu_binding_device_id(bindings, input_role(0)); },
                                    "unordered_map::at");
}

TEST(BackendProcess, FillsTheOutputTableFromItsPlan) {
    DescribedVector mine(host);
    auto bindings = bindings_of(mine);
    bindings.outputs.insert(output_role(7), true);
    BackendExecutionSession session;
    BackendProcess process;
    process.execute(session, bindings);
    EXPECT_TRUE(bindings.outputs.contains(output_role(7)));
    process.set_execution_plan({BackendKind::cpu_simd,
                                std::nullopt,
                                CrossDevicePolicy::Reject,
                                {{out0, true}, {out0, false}, {output_role(1), false}}});
    process.execute(session, bindings);
    EXPECT_EQ(bindings.outputs.size(), 2U);
    EXPECT_TRUE(bindings.outputs.at(out0));
    EXPECT_FALSE(bindings.outputs.at(output_role(1)));
}

TEST(BackendProcess, CudaPlanMustAgreeWithTheSession) {
    BackendProcess process;
    Log log;
    process.push_back(logging(log, "step"));
    process.set_execution_plan(cuda_plan(1));
    BackendExecutionBindings bindings;
    BackendExecutionSession cpu;
    expect_error<std::invalid_argument>([&] { process.execute(cpu, bindings); },
                                        "BackendProcess::execute - CUDA plan requires a session "
                                        "with a selected CUDA device");
    DeviceSession device(0);
    expect_error<std::invalid_argument>(
        [&] { process.execute_deferred(device.session, bindings); },
        "BackendProcess::execute - selected CUDA device mismatch: process requires 1, session "
        "selected 0");
    process.set_execution_plan({BackendKind::cuda, 0, CrossDevicePolicy::PeerCopyIfAvailable, {}});
    expect_error<std::invalid_argument>(
        [&] { process.execute(device.session, bindings); },
        "BackendProcess::execute - cross-device policy mismatch: process requires "
        "PeerCopyIfAvailable, session uses StagedHostCopy");
    EXPECT_TRUE(log.empty());
    EXPECT_TRUE(device.log.empty());
    BackendProcess planless;
    planless.execute(device.session, bindings);
    EXPECT_TRUE(device.log.empty());
}

TEST(BackendProcess, AcquiresEveryReachableDeviceBeforeTheFirstStep) {
    DescribedVector on_two(DataTopologyDescriptor::gpu(2));
    DescribedVector on_one(DataTopologyDescriptor::gpu(1));
    auto bindings = bindings_of(on_two);
    bindings.push_adapted(out0, std::ref<VectorEntity>(on_one));
    DeviceSession device(1);
    BackendProcess process;
    process.set_execution_plan(cuda_plan());
    process.push_back(logging(device.log, "step"));
    process.execute_deferred(device.session, bindings);
    EXPECT_THAT(device.log, ElementsAre("acquire 1", "acquire 2", "step"));

    DescribedVector on_nine(DataTopologyDescriptor::gpu(9));
    auto unreachable = bindings_of(on_nine);
    device.log.clear();
    expect_error<std::logic_error>(
        [&] { process.execute(device.session, unreachable); },
        "BackendExecutionSession::prepare_gpu_contexts - CUDA runtime context unavailable for "
        "device 9");
    EXPECT_TRUE(device.log.empty());
}

TEST(BackendProcess, StepFailurePrecedesLaterErrors) {
    DescribedVector mine(host);
    DescribedVector temporary(host);
    for (const bool step_fails : {false, true}) {
        DeviceSession device;
        device.devices[0]->failing = {"destroy"};
        BackendProcess process = process_of([&](auto& session, auto& bindings) {
            session.gpu(0);
            bindings.push_adapted(out0, std::ref<VectorEntity>(temporary));
        });
        process.set_execution_plan(cuda_plan());
        if (step_fails) {
            process.push_back(failing("broken"));
        }
        auto bindings = bindings_of(mine);
        expect_error<std::runtime_error>([&] { process.execute(device.session, bindings); },
                                         step_fails ? "broken" : "destroy 0 failed");
        EXPECT_EQ(bound_vector(bindings), &mine);
        EXPECT_THAT(device.log, ElementsAre("acquire 0", "record 0", "await event 0", "destroy 0"));
        process.ensure_usable("after a confirmed end");
    }
}

TEST(BackendProcess, UnconfirmedCompletionQuarantinesTheSteps) {
    DescribedVector mine(host);
    DescribedVector temporary(host);
    bool destroyed = false;
    const FunctionStep::Function adapt = [&](auto& session, auto& bindings) {
        session.gpu(0);
        bindings.push_adapted(out0, std::ref<VectorEntity>(temporary));
    };
    auto step = std::make_unique<FunctionStep>(adapt, [&destroyed] { destroyed = true; });
    FunctionStep* const leaked = step.get();
    {
        DeviceSession device;
        device.devices[0]->failing = {"await event"};
        BackendProcess process;
        process.set_execution_plan(cuda_plan());
        process.push_back(std::move(step));
        auto bindings = bindings_of(mine);
        expect_error<std::runtime_error>([&] { process.execute(device.session, bindings); },
                                         "await event 0 failed");
        EXPECT_EQ(bound_vector(bindings), &temporary) << "a device may still use the temporary";
        EXPECT_EQ(process.size(), 1U);
        const std::string unusable =
            " - process is unusable after CUDA completion could not be confirmed";
        expect_error<std::logic_error>([&] { process.execute(device.session, bindings); },
                                       "BackendProcess::execute" + unusable);
        expect_error<std::logic_error>([&] { process.push_back(nullptr); },
                                       "BackendProcess::push_back" + unusable);
        expect_error<std::logic_error>([&] { process.push_front(nullptr); },
                                       "BackendProcess::push_front" + unusable);
        expect_error<std::logic_error>([&] { process.set_execution_plan(cuda_plan()); },
                                       "BackendProcess::set_execution_plan" + unusable);
    }
    EXPECT_FALSE(destroyed) << "the end of the process must not free what a device may touch";
    delete leaked;
    EXPECT_TRUE(destroyed);
}

TEST(OperandReadiness, IsWhatTheEntityTells) {
    const auto* const told = reinterpret_cast<const GpuResidentEntity*>(this);
    DescribedVector device(DataTopologyDescriptor::gpu(0, -1), 1, told);
    EXPECT_EQ(operand_readiness(std::ref<VectorEntity>(device)), told);
    EXPECT_EQ(operand_readiness(ConstOperandEntityRef<VectorEntity>(device)), told);
    const DescribedVector on_host(DataTopologyDescriptor::pageable_host(-1));
    EXPECT_EQ(operand_readiness(ConstOperandEntityRef<VectorEntity>(on_host)), nullptr);
}

} // namespace
} // namespace Tessaline

// SPDX-License-Identifier: Apache-2.0
#include "support/expect_error.h"
#include "support/plain_entities.h"
#include "tessaline/execution/backend_process.h"

#include <gmock/gmock.h>

#include <cfenv>
#include <functional>

namespace Tessaline {
namespace {

using Testing::DescribedVector;
using ::testing::ElementsAre;
using Testing::expect_error;

using Log = std::vector<std::string>;

/// A step that does what a function does, and logs its end.
class FunctionStep final : public BackendProcessStep {
  public:
    using Function = std::function<void(BackendExecutionSession&, BackendExecutionBindings&)>;

    explicit FunctionStep(Function function, bool* destroyed = nullptr)
        : function_(std::move(function)),
          destroyed_(destroyed) {}
    ~FunctionStep() override {
        if (destroyed_ != nullptr) {
            *destroyed_ = true;
        }
    }
    void execute(BackendExecutionSession& session, BackendExecutionBindings& bindings) override {
        function_(session, bindings);
    }

  private:
    Function function_;
    bool* destroyed_;
};

std::unique_ptr<BackendProcessStep> logging(Log& log, std::string name) {
    return std::make_unique<FunctionStep>(
        [&log, name = std::move(name)](auto&, auto&) { log.push_back(name); });
}

std::unique_ptr<BackendProcessStep> failing(std::string what) {
    return std::make_unique<FunctionStep>(
        [what = std::move(what)](auto&, auto&) { throw std::runtime_error(what); });
}

class DeviceRuntime final : public BackendRuntimeContext {
  public:
    BackendKind backend() const override { return BackendKind::cuda; }
};

/// A device half with two devices that logs what is asked of it.
class LoggingGpuSide final : public GpuSessionSide {
  public:
    LoggingGpuSide(Log& log, std::int32_t selected) : log_(log), selected_(selected) {}

    std::optional<std::int32_t> selected_device() const override { return selected_; }
    BackendRuntimeContext* runtime(std::int32_t device) const override {
        return device <= 2 ? &runtime_ : nullptr;
    }
    CrossDevicePolicy cross_device_policy() const override {
        return CrossDevicePolicy::StagedHostCopy;
    }
    void acquire_contexts(std::span<const std::int32_t> devices) override {
        for (const std::int32_t device : devices) {
            log_.push_back("acquire " + std::to_string(device));
        }
    }
    void begin_submission() override { log_.push_back("begin"); }
    void end_submission() noexcept override { log_.push_back("end"); }
    std::exception_ptr synchronise_submission() override {
        log_.push_back("synchronise");
        if (unconfirmed) {
            throw std::runtime_error("completion unknown");
        }
        return failed ? std::make_exception_ptr(std::runtime_error("late failure")) : nullptr;
    }

    bool unconfirmed = false;
    bool failed = false;

  private:
    Log& log_;
    std::int32_t selected_;
    mutable DeviceRuntime runtime_;
};

struct DeviceSession {
    explicit DeviceSession(std::int32_t selected = 0)
        : side(new LoggingGpuSide(log, selected)),
          session(nullptr, std::unique_ptr<GpuSessionSide>(side)) {}

    Log log;
    LoggingGpuSide* side;
    BackendExecutionSession session;
};

BackendProcess::ExecutionPlan cuda_plan(std::optional<std::int32_t> device = std::nullopt) {
    return {BackendKind::cuda, device, CrossDevicePolicy::StagedHostCopy, {}};
}

const auto host = DataTopologyDescriptor::pageable_host(-1);
const OperandRole out0 = output_role(0);

BackendExecutionBindings bindings_of(DescribedVector& entity) {
    BackendExecutionBindings bindings;
    bindings.operands.insert(out0, std::ref<VectorEntity>(entity));
    bindings.roles = {out0};
    return bindings;
}

const VectorEntity* current(const BackendExecutionBindings& bindings) {
    return &bound_entity<VectorEntity>(bindings.operands.at(out0));
}

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
        EXPECT_EQ(current(bindings), &mine);
        EXPECT_TRUE(bindings.adapted.empty());
        // The deferred form leaves completion, and with it the bindings, to its caller.
        try {
            process.execute_deferred(session, bindings);
        } catch (const std::runtime_error&) {
            EXPECT_TRUE(fails);
        }
        EXPECT_EQ(current(bindings), &second);
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
    EXPECT_EQ(current(bindings), &first);
    bindings.pop_adapted(out0);
    EXPECT_EQ(current(bindings), &mine);
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
    EXPECT_THAT(device.log, ElementsAre("begin", "end"));
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
    EXPECT_THAT(device.log, ElementsAre("acquire 1", "acquire 2", "begin", "step", "end"));

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
        device.side->failed = true;
        BackendProcess process;
        process.set_execution_plan(cuda_plan());
        process.push_back(std::make_unique<FunctionStep>([&](auto&, auto& bindings) {
            bindings.push_adapted(out0, std::ref<VectorEntity>(temporary));
        }));
        if (step_fails) {
            process.push_back(failing("broken"));
        }
        auto bindings = bindings_of(mine);
        expect_error<std::runtime_error>([&] { process.execute(device.session, bindings); },
                                         step_fails ? "broken" : "late failure");
        EXPECT_EQ(current(bindings), &mine);
        EXPECT_THAT(device.log, ElementsAre("acquire 0", "begin", "end", "synchronise"));
        process.ensure_usable("after a confirmed end");
    }
}

TEST(BackendProcess, UnconfirmedCompletionQuarantinesTheSteps) {
    DescribedVector mine(host);
    DescribedVector temporary(host);
    bool destroyed = false;
    const FunctionStep::Function adapt = [&](auto&, auto& bindings) {
        bindings.push_adapted(out0, std::ref<VectorEntity>(temporary));
    };
    auto step = std::make_unique<FunctionStep>(adapt, &destroyed);
    FunctionStep* const leaked = step.get();
    {
        DeviceSession device;
        device.side->unconfirmed = true;
        BackendProcess process;
        process.set_execution_plan(cuda_plan());
        process.push_back(std::move(step));
        auto bindings = bindings_of(mine);
        expect_error<std::runtime_error>([&] { process.execute(device.session, bindings); },
                                         "completion unknown");
        EXPECT_EQ(current(bindings), &temporary) << "a device may still use the temporary";
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

TEST(BackendExecutionSession, CpuSessionHasNoDevice) {
    BackendExecutionSession session;
    EXPECT_EQ(session.cpu(BackendKind::cpu_scalar).backend(), BackendKind::cpu_scalar);
    EXPECT_EQ(session.cpu(BackendKind::cpu_simd).backend(), BackendKind::cpu_simd);
    EXPECT_EQ(session.selected_gpu_runtime(), nullptr);
    EXPECT_EQ(session.cross_device_policy(), CrossDevicePolicy::Reject);
    EXPECT_EQ(session.synchronize_process_gpu(), nullptr);
    session.prepare_gpu_contexts({});
    expect_error<std::logic_error>([&] { session.cpu(BackendKind::cuda); },
                                   "BackendExecutionSession::cpu - non-CPU backend requested");
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
}

} // namespace
} // namespace Tessaline

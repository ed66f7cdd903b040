// SPDX-License-Identifier: Apache-2.0
#include "support/expect_error.h"
#include "support/plain_entities.h"
#include "tessaline/frontend/backend_executor.h"

namespace Tessaline {
namespace {

using Testing::DescribedVector;
using Testing::expect_error;

class CallStep final : public BackendProcessStep {
  public:
    explicit CallStep(std::function<void(BackendExecutionBindings&)> call)
        : call_(std::move(call)) {}
    void execute(BackendExecutionSession&, BackendExecutionBindings& bindings) override {
        call_(bindings);
    }

  private:
    std::function<void(BackendExecutionBindings&)> call_;
};

BackendProcess process_of(std::function<void(BackendExecutionBindings&)> call) {
    BackendProcess process;
    process.push_back(std::make_unique<CallStep>(std::move(call)));
    return process;
}

const auto host = DataTopologyDescriptor::pageable_host(-1);
const OperandRole out0 = output_role(0);

TEST(BackendExecutor, SubmittedRunsAreFinishedAndRepeatTheirFailure) {
    const auto executor = BackendExecutor::cpu_only();
    auto finished = executor.submit(BackendProcess(), {});
    EXPECT_TRUE(finished.completed());
    finished.wait();
    auto failed =
        executor.submit(process_of([](auto&) { throw std::domain_error("no good"); }), {});
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
        BackendExecutionBindings bindings;
        bindings.operands.insert(out0, std::ref<VectorEntity>(mine));
        const auto process = process_of([&](BackendExecutionBindings& table) {
            table.push_adapted(out0, std::ref<VectorEntity>(temporary));
            if (fails) {
                throw std::domain_error("no good");
            }
        });
        auto execution = executor.submit_borrowed(process, bindings);
        EXPECT_EQ(&bound_entity<VectorEntity>(bindings.operands.at(out0)), &mine);
        EXPECT_TRUE(bindings.adapted.empty());
        if (fails) {
            expect_error<std::domain_error>([&] { execution.wait(); }, "no good");
            expect_error<std::domain_error>([&] { executor.execute(process, bindings); },
                                            "no good");
        }
    }
}

TEST(BackendExecutor, RefusesWhatItCannotRunBeforeAnythingRuns) {
    const auto executor = BackendExecutor::cpu_only();
    bool ran = false;
    auto process = process_of([&](auto&) { ran = true; });
    DescribedVector mine(host);
    BackendExecutionBindings adapted;
    adapted.operands.insert(out0, std::ref<VectorEntity>(mine));
    adapted.push_adapted(out0, std::ref<VectorEntity>(mine));
    expect_error<std::invalid_argument>(
        [&] { executor.submit(BackendProcess(), adapted); },
        "BackendExecutor::submit - pre-adapted bindings are unsupported");
    process.set_execution_plan({BackendKind::cuda, std::nullopt, CrossDevicePolicy::Reject, {}});
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

} // namespace
} // namespace Tessaline

// SPDX-License-Identifier: Apache-2.0
#pragma once

// Operations and registry rows for tests of dispatch, whose processes only say which row they are.

#include "support/expect_error.h"
#include "support/operands.h"
#include "tessaline/catalogue/errors.h"
#include "tessaline/dispatch/backend_dispatcher.h"

#include <string>
#include <utility>

namespace Tessaline::Testing {

/// The names of executed steps, in order.
using StepLog = std::vector<std::string>;

class NamedStep final : public BackendProcessStep {
  public:
    NamedStep(StepLog& log, std::string name) : log_(log), name_(std::move(name)) {}
    void execute(BackendExecutionSession&, BackendExecutionBindings&) override {
        log_.push_back(name_);
    }

  private:
    StepLog& log_;
    std::string name_;
};

inline BackendAdaptationRegistry::Step named_step(StepLog& log, std::string name) {
    return std::make_unique<NamedStep>(log, std::move(name));
}

inline BackendEntry named_entry(StepLog& log, const std::string& name) {
    return BackendEntry([&log, name] {
        BackendProcess process;
        process.push_back(named_step(log, name));
        return process;
    });
}

/// The names of a process's steps, found by running it.
inline StepLog run(const BackendProcess& process, StepLog& log) {
    log.clear();
    BackendExecutionSession session;
    BackendExecutionBindings bindings;
    for (const auto& step : *process.retain_steps()) {
        step->execute(session, bindings);
    }
    return log;
}

inline BackendOperandKey vector_key(ScalarType storage = ScalarType::Float32,
                                    DataLocation location = DataLocation::pageable_host) {
    BackendOperandKey key;
    key.kind = OperandKind::Vector;
    key.location = location;
    key.format = OperandFormat::of(DataVectorFormat::dense);
    key.storage = storage;
    key.compute = storage;
    return key;
}

/// An operation "test.op" of this many inputs and outputs, the last output read and written.
inline OperationSpec test_operation(std::size_t inputs, std::size_t outputs,
                                    const char* name = "test.op") {
    std::vector<OperationOperandSpec> operands;
    for (std::size_t index = 0; index < inputs; ++index) {
        operands.push_back({input_role(index), OperandAccess::read, std::nullopt});
    }
    for (std::size_t index = 0; index < outputs; ++index) {
        operands.push_back(
            {output_role(index),
             index + 1 == outputs && outputs > 1 ? OperandAccess::read_write : OperandAccess::write,
             std::nullopt});
    }
    return {OperationId(name, 1), std::move(operands), {}, std::nullopt};
}

/// Expects `call` to raise exactly this DispatchError.
template <typename Call>
void expect_dispatch_error(const Call& call, const std::string& operation, ErrorReason reason,
                           const std::string& message) {
    const auto checked = [&] {
        try {
            call();
        } catch (const DispatchError& error) {
            EXPECT_EQ(error.operation(), operation);
            EXPECT_EQ(error.reason(), reason);
            throw;
        }
    };
    expect_error<DispatchError>(checked, message);
}

} // namespace Tessaline::Testing

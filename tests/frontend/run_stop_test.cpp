// SPDX-License-Identifier: Apache-2.0
// Runs that end early, and runs that might have.

#include "backend/cpu/rows/cpu_capabilities.h"
#include "backend/cpu/runtime/run_stop.h"
#include "support/counter_random.h"
#include "support/key_storage.h"
#include "tessaline/catalogue/builtin_operation_ids.h"
#include "tessaline/catalogue/errors.h"
#include "tessaline/frontend/tessaline_executor.h"

#include <gtest/gtest.h>

#include <cfenv>
#include <string>
#include <thread>

namespace Tessaline {
namespace {

using namespace std::chrono_literals;
using namespace Testing;
using Bytes = std::string;

CpuRuntimeOptions unpinned() {
    CpuRuntimeOptions options;
    options.pinning_policy = CpuPinningPolicy::disabled;
    return options;
}

const TessalineExecutor& executor() {
    static const TessalineContext context;
    static const TessalineExecutor instance(context, BackendExecutor::cpu_only(unpinned()));
    return instance;
}

enum class Kind { general, symmetric, identity };

/// A long operation on interleaved square operands of an order where it is short, and the least
/// number of its stop points.
struct Operation {
    const OperationId& id;
    DataTypeDescriptor type;
    std::uint64_t n;
    int least = 0;
    Kind kind = Kind::general;

    /// What it writes.
    Bytes run(const BackendExecutor::ExecutionOptions& options = {}) const {
        const auto rows = cpu_floating_capabilities(type);
        const auto row =
            std::ranges::find(rows, id, [](const auto& each) { return each.key.op(); });
        OperandsOfKeys operands(
            row->key, n, n, [this](OperandRole, ErasedBufferAccess& buffers) { fill(buffers); });
        executor().execute(operands.bindings(), id, options);
        Bytes bytes;
        operands.for_each_output([&bytes](const MutableBufferView& view) {
            bytes.append(static_cast<const char*>(view.data), view.count * view.element_size);
        });
        return bytes;
    }

  private:
    /// Matrices whose symmetric kind has a heavy diagonal, and an exponent of 1000.
    void fill(ErasedBufferAccess& buffers) const {
        for (std::size_t index = 0; index < buffers.buffer_count(); ++index) {
            const MutableBufferView view = buffers.buffer(index);
            if (view.scalar_type == ScalarType::Int32) {
                *static_cast<int*>(view.data) = 1000;
            }
            visit_parts(view, [this](auto* parts, std::uint64_t count, std::uint64_t step) {
                for (std::uint64_t i = 0; i < count; ++i) {
                    parts[i] = static_cast<std::decay_t<decltype(*parts)>>(
                        part(i / step / n, i / step % n, i % step));
                }
            });
        }
    }
    float part(std::uint64_t row, std::uint64_t col, std::uint64_t imaginary) const {
        if (kind == Kind::identity || (kind == Kind::symmetric && row == col)) {
            const float diagonal = kind == Kind::identity ? 1.0F : static_cast<float>(2 * n);
            return row == col && imaginary == 0 ? diagonal : 0;
        }
        const auto [low, high] = std::minmax(row, col);
        const bool is_mirrored = kind == Kind::symmetric;
        CounterRandom random(2 * (is_mirrored ? low * n + high : row * n + col) + imaginary);
        return static_cast<float>(random.below(2001)) / 1000 - 1;
    }
};

constexpr auto float64 = DataTypeDescriptor::real_double;
constexpr auto float32 = DataTypeDescriptor::real_float;
constexpr auto complex64 = DataTypeDescriptor::complex_float;

using namespace BuiltinOperations;
const Operation operations[] = {
    {matmul, float64(), 600, 2},
    {matmul, DataTypeDescriptor::real_float16(), 600, 2},
    {matmul, complex64(), 600, 2},
    {matrix_power, float64(), 20, 10, Kind::identity},
    {matrix_power, complex64(), 20, 10, Kind::identity},
    {lu_factor, float32(), 200, 20},
    {lu_factor, complex64(), 200, 20},
    {eigvalsh, float64(), 80, 40, Kind::symmetric},
    {eigvalsh, float32(), 80, 40, Kind::symmetric},
    {eig, float32(), 40, 100},
    {eig, DataTypeDescriptor::complex_double(), 40, 100},
    // Ten a row: the copy, the scalings, the balance, the searches for small rows, the vectors.
    {eig, float64(), 40, 10 * 40, Kind::identity},
    {principal_eigenvector, complex64(), 40, 100},
    {logdet_positive_definite, float64(), 200, 20, Kind::symmetric},
    {is_unitary, float64(), 40, 30, Kind::identity},
    {is_unitary, complex64(), 40, 30, Kind::identity},
};

// Asked at every stop point, it counts, disturbs the operation by a product in its middle and by
// another rounding mode if it `computes`, and raises at the one that `ends` counts to.
struct Interruption {
    int count = 0;
    int ends = -1;
    bool computes = false;

    void operator()() {
        if (computes && count % 50 == 0) {
            Operation{matmul, float64(), 300}.run(); // packs a factor into the thread's memory
        }
        if (computes) {
            std::fesetround(FE_UPWARD); // which the run does not go on with
        }
        if (++count == ends) {
            throw std::domain_error("interrupted");
        }
    }
};

Bytes run_interrupted(const Operation& operation, Interruption& interruption) {
    const std::stop_token token;
    const std::function<void()> interrupt = std::ref(interruption);
    RunStop stop(token, interrupt, 0ms);
    const RunStop::Scope scope(&stop);
    return operation.run();
}

TEST(RunStop, LongOperationsStopBetweenTheirPartsAndLeaveNoTrace) {
    for (const Operation& operation : operations) {
        SCOPED_TRACE(operation.id.name() + scalar_metadata(operation.type.storage_type()).name);
        const Bytes undisturbed = operation.run();
        Interruption busy{.computes = true};
        EXPECT_TRUE(run_interrupted(operation, busy) == undisturbed);
        std::fesetround(FE_TONEAREST);
        EXPECT_GE(busy.count, operation.least);
        for (const int end : {1, (busy.count + 1) / 2, busy.count}) {
            Interruption raising{.ends = end};
            EXPECT_THROW(run_interrupted(operation, raising), std::domain_error);
            EXPECT_EQ(raising.count, end) << "nothing is asked once the run has been ended";
        }
        EXPECT_TRUE(operation.run() == undisturbed);
    }
}

TEST(RunStop, OptionsEndARunFromOutside) {
    BackendExecutor::ExecutionOptions options;
    const auto run = [&options] { Operation{eig, float64(), 300}.run(options); };
    std::stop_source source;
    options.stop = source.get_token();
    const auto start = std::chrono::steady_clock::now();
    std::thread other([&source] {
        std::this_thread::sleep_for(50ms);
        source.request_stop();
    });
    EXPECT_THROW(run(), OperationStopped);
    other.join();
    EXPECT_THROW(run(), OperationStopped) << "asked before the run";

    int asked = 0;
    options.stop = {};
    options.interrupt = [&asked] {
        if (++asked == 2) {
            throw std::domain_error("interrupted");
        }
    };
    EXPECT_THROW(run(), std::domain_error);
    // The whole takes seconds at the least, and a stop some tens of milliseconds.
    EXPECT_LT(std::chrono::steady_clock::now() - start, 2s);
    EXPECT_NO_THROW((Operation{matmul, float64(), 20}.run()));

    std::stop_source own;
    options = {};
    options.stop = own.get_token();
    const std::stop_token requested = source.get_token();
    const std::function<void()> no_interrupt;
    RunStop outer(requested, no_interrupt);
    const RunStop::Scope scope(&outer);
    EXPECT_THROW(run(), OperationStopped) << "nested in a run that is to end";
}

} // namespace
} // namespace Tessaline

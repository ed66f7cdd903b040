// SPDX-License-Identifier: Apache-2.0
// Runs that end early, and runs that might have.

#include "backend/cpu/runtime/run_stop.h"
#include "support/counter_random.h"
#include "tessaline/catalogue/builtin_operation_ids.h"
#include "tessaline/catalogue/errors.h"
#include "tessaline/frontend/elements.h"
#include "tessaline/frontend/tessaline_executor.h"

#include <gtest/gtest.h>

#include <cfenv>
#include <complex>
#include <string>
#include <thread>

namespace Tessaline {
namespace {

using namespace std::chrono_literals;
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

template <typename T>
T random_element(Testing::CounterRandom& random) {
    const auto part = [&random] {
        return static_cast<Component<T>>(static_cast<float>(random.below(2001)) / 1000 - 1);
    };
    if constexpr (is_complex_element<T>) {
        const auto real = part();
        return {real, part()};
    } else {
        return part();
    }
}

enum class Kind { general, symmetric, identity };

template <typename T>
Matrix square(std::uint64_t n, Kind kind = Kind::general) {
    Testing::CounterRandom random(n);
    auto matrix = Matrix::host_zeros<T>(n, n);
    const auto all = elements<T>(matrix);
    for (std::uint64_t i = 0; i < n; ++i) {
        for (std::uint64_t j = 0; j < n && kind != Kind::identity; ++j) {
            const bool is_mirrored = kind == Kind::symmetric && j < i;
            all[i * n + j] = is_mirrored ? all[j * n + i] : random_element<T>(random);
        }
        if (kind != Kind::general) {
            all[i * n + i] = kind == Kind::identity ? T(1) : T(static_cast<float>(2 * n));
        }
    }
    return matrix;
}

template <typename T>
Bytes bytes_of(std::span<const T> values) {
    return {reinterpret_cast<const char*>(values.data()), values.size_bytes()};
}

Bytes run(const OperationId& id, const Matrix& input, auto& output, auto bytes_in) {
    OperationBindings bindings;
    bindings.bind(input_role(0), input).bind(output_role(0), output);
    executor().execute(id, bindings);
    return bytes_in(output);
}

template <typename T>
Bytes product(std::uint64_t n) {
    const auto A = square<T>(n);
    auto C = Matrix::host_zeros<T>(n, n);
    OperationBindings bindings;
    bindings.bind(input_role(0), A).bind(input_role(1), A).bind(output_role(0), C);
    executor().execute(BuiltinOperations::matmul, bindings);
    return bytes_of(elements<T>(std::as_const(C)));
}

template <typename T>
Bytes power(std::uint64_t n) {
    const auto A = square<T>(n, Kind::identity);
    const auto exponent = Scalar::host(1000);
    auto C = Matrix::host_zeros<T>(n, n);
    OperationBindings bindings;
    bindings.bind(input_role(0), A).bind(input_role(1), exponent).bind(output_role(0), C);
    executor().execute(BuiltinOperations::matrix_power, bindings);
    return bytes_of(elements<T>(std::as_const(C)));
}

template <typename T>
Bytes factorisation(std::uint64_t n) {
    const auto A = square<T>(n);
    auto lu = LuFactorisation::host_impl(PolicyOf<T>::type(), n);
    std::ranges::copy(elements<T>(A), const_cast<T*>(factors<T>(lu).data()));
    OperationBindings bindings;
    bindings.bind(output_role(0), lu);
    executor().execute(BuiltinOperations::lu_factor, bindings);
    return bytes_of(factors<T>(std::as_const(lu)));
}

template <typename T>
Bytes pairs(std::uint64_t n, Kind kind = Kind{}) {
    const auto A = square<T>(n, kind);
    auto eigen = EigenValues::host_zeros<std::complex<Component<T>>>(n);
    return run(BuiltinOperations::eig, A, eigen, [](const EigenValues& set) {
        return bytes_of(eigenvalues<std::complex<Component<T>>>(set)) +
               bytes_of(eigenvectors<std::complex<Component<T>>>(set));
    });
}

template <typename T>
Bytes hermitian_values(std::uint64_t n) {
    const auto A = square<T>(n, Kind::symmetric);
    auto values = Vector::host_zeros<Component<T>>(n);
    return run(BuiltinOperations::eigvalsh, A, values,
               [](const Vector& vector) { return bytes_of(elements<Component<T>>(vector)); });
}

template <typename T>
Bytes principal(std::uint64_t n) {
    const auto A = square<T>(n);
    auto vector = Vector::host_zeros<T>(n);
    return run(BuiltinOperations::principal_eigenvector, A, vector,
               [](const Vector& found) { return bytes_of(elements<T>(found)); });
}

template <typename Result, typename T>
Bytes scalar(const OperationId& id, std::uint64_t n, Kind kind) {
    const auto A = square<T>(n, kind);
    auto out = Scalar::host(Result{});
    return run(id, A, out, [](const Scalar& found) {
        const Result result = value<Result>(found);
        return bytes_of(std::span(&result, 1));
    });
}

using Complex64 = std::complex<float>;
using Complex128 = std::complex<double>;

// Long operations at an order where they are short, and the least number of their stop points.
const struct {
    const char* name;
    Bytes (*run)();
    int least;
} operations[] = {
    {"matmul float64", [] { return product<double>(600); }, 2},
    {"matmul float16", [] { return product<Float16>(600); }, 2},
    {"matmul complex64", [] { return product<Complex64>(600); }, 2},
    {"matrix_power float64", [] { return power<double>(20); }, 10},
    {"matrix_power complex64", [] { return power<Complex64>(20); }, 10},
    {"lu_factor float32", [] { return factorisation<float>(200); }, 20},
    {"lu_factor complex64", [] { return factorisation<Complex64>(200); }, 20},
    {"eigvalsh float64", [] { return hermitian_values<double>(80); }, 40},
    {"eigvalsh float32", [] { return hermitian_values<float>(80); }, 40},
    {"eig float32", [] { return pairs<float>(40); }, 100},
    {"eig complex128", [] { return pairs<Complex128>(40); }, 100},
    // The copy, the balance, the first search for small rows and the vectors have one a row each.
    {"eig without iterations", [] { return pairs<double>(40, Kind::identity); }, 150},
    {"principal_eigenvector complex64", [] { return principal<Complex64>(40); }, 100},
    {"logdet_positive_definite float64",
     [] {
         return scalar<double, double>(BuiltinOperations::logdet_positive_definite, 200,
                                       Kind::symmetric);
     },
     20},
    {"is_unitary float64",
     [] { return scalar<int, double>(BuiltinOperations::is_unitary, 40, Kind::identity); }, 30},
    {"is_unitary complex64",
     [] { return scalar<int, Complex64>(BuiltinOperations::is_unitary, 40, Kind::identity); }, 30},
};

// Asked at every stop point, it counts, disturbs the operation by a product in its middle and by
// another rounding mode if it `computes`, and raises at the one that `ends` counts to.
struct Interruption {
    int count = 0;
    int ends = -1;
    bool computes = false;

    void operator()() {
        if (computes && count % 50 == 0) {
            product<double>(300); // packs a factor into the thread's memory
        }
        if (computes) {
            std::fesetround(FE_UPWARD); // which the run does not go on with
        }
        if (++count == ends) {
            throw std::domain_error("interrupted");
        }
    }
};

Bytes run_interrupted(Bytes (*operation)(), Interruption& interruption) {
    const std::stop_token token;
    const std::function<void()> interrupt = std::ref(interruption);
    RunStop stop(token, interrupt, 0ms);
    const RunStop::Scope scope(&stop);
    return operation();
}

TEST(RunStop, LongOperationsStopBetweenTheirPartsAndLeaveNoTrace) {
    for (const auto& [name, operation, least] : operations) {
        SCOPED_TRACE(name);
        const Bytes undisturbed = operation();
        Interruption busy{.computes = true};
        EXPECT_TRUE(run_interrupted(operation, busy) == undisturbed);
        std::fesetround(FE_TONEAREST);
        EXPECT_GE(busy.count, least);
        for (const int end : {1, (busy.count + 1) / 2, busy.count}) {
            Interruption raising{.ends = end};
            EXPECT_THROW(run_interrupted(operation, raising), std::domain_error);
            EXPECT_EQ(raising.count, end) << "nothing is asked once the run has been ended";
        }
        EXPECT_TRUE(operation() == undisturbed);
    }
}

struct EigenRun {
    Matrix A = square<double>(300);
    EigenValues eigen = EigenValues::host_zeros<Complex128>(300);

    void operator()(const BackendExecutor::ExecutionOptions& options) {
        OperationBindings bindings;
        bindings.bind(input_role(0), A).bind(output_role(0), eigen);
        executor().execute(BuiltinOperations::eig, bindings, options);
    }
};

TEST(RunStop, OptionsEndARunFromOutside) {
    EigenRun run;
    BackendExecutor::ExecutionOptions options;
    std::stop_source source;
    options.stop = source.get_token();
    const auto start = std::chrono::steady_clock::now();
    std::thread other([&source] {
        std::this_thread::sleep_for(50ms);
        source.request_stop();
    });
    EXPECT_THROW(run(options), OperationStopped);
    other.join();
    EXPECT_THROW(run(options), OperationStopped) << "asked before the run";

    int asked = 0;
    options.stop = {};
    options.interrupt = [&asked] {
        if (++asked == 2) {
            throw std::domain_error("interrupted");
        }
    };
    EXPECT_THROW(run(options), std::domain_error);
    // The whole takes seconds at the least, and a stop some tens of milliseconds.
    EXPECT_LT(std::chrono::steady_clock::now() - start, 2s);
    EXPECT_NO_THROW(product<double>(20));

    std::stop_source own;
    options = {};
    options.stop = own.get_token();
    const std::stop_token requested = source.get_token();
    const std::function<void()> no_interrupt;
    RunStop outer(requested, no_interrupt);
    const RunStop::Scope scope(&outer);
    EXPECT_THROW(run(options), OperationStopped) << "nested in a run that is to end";
}

} // namespace
} // namespace Tessaline

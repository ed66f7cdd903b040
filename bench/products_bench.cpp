// SPDX-License-Identifier: Apache-2.0

// Products of matrices beside OpenBLAS's, each as its kernel is called: the floating kernels of
// every policy, whose results are those of plain loops of unfused operations, and the SIMD
// engine's. The 16-bit policies stand beside the peer's float32.

#include "backend/cpu/engine/x86_simd_engine.h"
#include "backend/cpu/floating/floating_dispatcher.h"
#include "comparison.h"
#include "machine_limits.h"
#include "tessaline/storage/buffer_access.h"
#include "tessaline/storage/numeric_policy.h"
#include "tessaline/storage/storage_factory.h"

#include <cblas.h>
#include <random>

namespace Tessaline::Bench {

namespace {

constexpr auto row_major = DataMatrixLayout::row_major;

template <typename T>
using ComputeOf = typename PolicyOf<T>::Compute;

template <typename T>
std::vector<T> random_elements(std::size_t count) {
    static std::mt19937_64 random(1);
    std::uniform_real_distribution<float> parts(-1, 1);
    std::vector<T> elements(count);
    for (T& element : elements) {
        if constexpr (is_complex_element<T>) {
            element = static_cast<T>(ComputeOf<T>(parts(random), parts(random)));
        } else {
            element = static_cast<T>(ComputeOf<T>(parts(random)));
        }
    }
    return elements;
}

/// A host matrix or vector.
template <typename Entity>
class Operand {
  public:
    template <typename T>
    Operand(std::unique_ptr<Entity> entity, const std::vector<T>& elements)
        : entity_(std::move(entity)) {
        void* data = erased_buffers(*entity_, "operand").buffer(0).data;
        std::ranges::copy(elements, static_cast<T*>(data));
    }
    OperandBinding binding() { return std::ref(*entity_); }

  private:
    std::unique_ptr<Entity> entity_;
};

template <typename T>
constexpr DataComplexLayout complex_layout =
    is_complex_element<T> ? DataComplexLayout::interleaved : DataComplexLayout::none;

template <typename T>
Operand<MatrixEntity> matrix(std::size_t rows, std::size_t cols) {
    return {
        StorageFactory::host_matrix(PolicyOf<T>::type(), rows, cols, row_major, complex_layout<T>),
        random_elements<T>(rows * cols)};
}
template <typename T>
Operand<VectorEntity> vector(std::size_t size) {
    return {StorageFactory::host_vector(PolicyOf<T>::type(), size, complex_layout<T>),
            random_elements<T>(size)};
}

/// A kernel on operands of its own.
template <typename T, typename... Inputs, typename Output>
Contender kernel(FloatingOperation operation, Output output, Inputs... inputs) {
    auto operands =
        std::make_shared<std::tuple<Output, Inputs...>>(std::move(output), std::move(inputs)...);
    auto bindings = std::make_shared<BackendExecutionBindings>();
    const auto bind = [&](OperandRole role, auto& operand) {
        bindings->operands.insert(role, operand.binding());
        bindings->roles.push_back(role);
    };
    std::apply(
        [&](auto& result, auto&... read) {
            std::size_t index = 0;
            (bind(input_role(index++), read), ...);
            bind(output_role(0), result);
        },
        *operands);
    return {[operation, operands, bindings] { run_floating_kernel<T>(operation, *bindings); }};
}

/// The peer's product of matrices of elements T, or of a matrix and a vector.
template <typename T>
Contender peer_product(std::size_t rows, std::size_t cols) {
    auto a = std::make_shared<std::vector<T>>(random_elements<T>(rows * rows));
    auto b = std::make_shared<std::vector<T>>(random_elements<T>(rows * cols));
    auto c = std::make_shared<std::vector<T>>(rows * cols);
    const auto m = static_cast<int>(rows);
    const auto n = static_cast<int>(cols);
    return {[=] {
        const T one = 1;
        const T zero = 0;
        const auto product = [&](auto gemm, auto gemv, auto factor, auto keep) {
            if (n == 1) {
                gemv(CblasRowMajor, CblasNoTrans, m, m, factor, a->data(), m, b->data(), 1, keep,
                     c->data(), 1);
            } else {
                gemm(CblasRowMajor, CblasNoTrans, CblasNoTrans, m, n, m, factor, a->data(), m,
                     b->data(), n, keep, c->data(), n);
            }
        };
        if constexpr (std::is_same_v<T, float>) {
            product(cblas_sgemm, cblas_sgemv, one, zero);
        } else if constexpr (std::is_same_v<T, double>) {
            product(cblas_dgemm, cblas_dgemv, one, zero);
        } else if constexpr (std::is_same_v<T, std::complex<float>>) {
            product(cblas_cgemm, cblas_cgemv, &one, &zero);
        } else {
            product(cblas_zgemm, cblas_zgemv, &one, &zero);
        }
    }};
}

/// What a policy is called, the peer's type for it, and the ratios to reach by order.
template <typename T>
struct Policy {
    const char* name;
    std::vector<double> matmul_targets;
    std::vector<double> matvec_targets = {};
    static constexpr double operations = is_complex_element<T> ? 8 : 2; ///< of one term
};

double target_of(const std::vector<double>& targets, std::size_t index) {
    return index < targets.size() ? targets[index] : 0;
}

template <typename T>
double unfused_limit(const MachineLimits& limits) {
    return sizeof(Component<ComputeOf<T>>) == sizeof(double) ? limits.unfused_double
                                                             : limits.unfused_float;
}

constexpr std::size_t matmul_orders[] = {64, 256, 1024};
constexpr std::size_t matvec_orders[] = {64, 256, 1024, 4096};

template <typename T>
void compare_matmul(const Policy<T>& policy, const MachineLimits& limits) {
    std::size_t index = 0;
    for (const std::size_t n : matmul_orders) {
        const double work = policy.operations * static_cast<double>(n * n * n);
        compare(
            {"matmul", policy.name, n, work, target_of(policy.matmul_targets, index++),
             unfused_limit<T>(limits)},
            kernel<T>(FloatingOperation::matmul, matrix<T>(n, n), matrix<T>(n, n), matrix<T>(n, n)),
            peer_product<ComputeOf<T>>(n, n));
    }
}

template <typename T>
void compare_matvec(const Policy<T>& policy) {
    std::size_t index = 0;
    for (const std::size_t n : matvec_orders) {
        compare({"matvec", policy.name, n, static_cast<double>(n * n * sizeof(T)),
                 target_of(policy.matvec_targets, index++), 0, "GB"},
                kernel<T>(FloatingOperation::matvec, vector<T>(n), matrix<T>(n, n), vector<T>(n)),
                peer_product<ComputeOf<T>>(n, 1));
    }
}

/// The engine's own matrix products, where elements are complex of planes and of pairs.
void compare_engine(const MachineLimits& limits) {
    const bool fuses = selected_x86_simd() == X86Simd::avx512;
    const std::vector<double> real_targets =
        fuses ? std::vector{1.0, 1.05, 1.03} : std::vector{1.1, 0.9, 0.85};
    const std::vector<double> split_targets =
        fuses ? std::vector{1.2, 1.08, 1.02} : std::vector<double>{};
    std::size_t index = 0;
    for (const std::size_t n : matmul_orders) {
        const auto planes = random_elements<float>(6 * n * n);
        std::vector<float> memory = planes;
        const auto plane = [&](std::size_t i) { return memory.data() + i * n * n; };
        using Matrix = DenseRealMatrixView<float>;
        using Input = DenseRealMatrixView<const float>;
        const double work = 2 * static_cast<double>(n * n * n);
        const double limit = fuses ? limits.fused_float : limits.unfused_float;
        compare({"matmul, engine", "float32", n, work, target_of(real_targets, index), limit},
                {[&] {
                    SimdEngine::matmul(Input{plane(0), n, n, row_major},
                                       Input{plane(1), n, n, row_major},
                                       Matrix{plane(2), n, n, row_major});
                }},
                peer_product<float>(n, n));
        using Split = DenseComplexSplitMatrixView<float>;
        using SplitInput = DenseComplexSplitMatrixView<const float>;
        compare(
            {"matmul, engine", "complex64", n, 4 * work, target_of(split_targets, index), limit},
            {[&] {
                SimdEngine::matmul(SplitInput{plane(0), plane(1), n, n, row_major},
                                   SplitInput{plane(2), plane(3), n, n, row_major},
                                   Split{plane(4), plane(5), n, n, row_major});
            }},
            peer_product<std::complex<float>>(n, n));
        using Pairs = DenseComplexIntlvMatrixView<std::complex<float>>;
        using PairsInput = DenseComplexIntlvMatrixView<const std::complex<float>>;
        const auto pairs = [&](std::size_t i) {
            return reinterpret_cast<std::complex<float>*>(plane(2 * i));
        };
        compare({"matmul, engine", "complex64 interleaved", n, 4 * work,
                 target_of(split_targets, index), limit},
                {[&] {
                    SimdEngine::matmul(PairsInput{pairs(0), n, n, row_major},
                                       PairsInput{pairs(1), n, n, row_major},
                                       Pairs{pairs(2), n, n, row_major});
                }},
                peer_product<std::complex<float>>(n, n));
        ++index;
    }
}

/// The eighth power: three squares, and the product with the identity that the others start from.
template <typename T>
void compare_power(const Policy<T>& policy) {
    for (const std::size_t n : {64, 256}) {
        auto exponent = StorageFactory::host_scalar(PolicyOf<int>::type());
        Operand<ScalarEntity> eight(std::move(exponent), std::vector<int>{8});
        const Contender product = peer_product<ComputeOf<T>>(n, n);
        compare({"matrix_power 8", policy.name, n,
                 4 * policy.operations * static_cast<double>(n * n * n),
                 0.9 * target_of(policy.matmul_targets, n == 64 ? 0 : 1)},
                kernel<T>(FloatingOperation::matrix_power, matrix<T>(n, n), matrix<T>(n, n),
                          std::move(eight)),
                {[=] {
                    for (int i = 0; i < 4; ++i) {
                        product.run();
                    }
                }});
    }
}

/// What is limited by memory: the lines that are written count twice, as they are read first.
template <typename T>
void measure_memory(const Policy<T>& policy, const MachineLimits& limits) {
    const auto bytes = [](std::size_t count) { return static_cast<double>(count * sizeof(T)); };
    const std::size_t n = 4096;
    measure({"outer", policy.name, n, 2 * bytes(n * n), 0.9, limits.copy, "GB"},
            kernel<T>(FloatingOperation::outer, matrix<T>(n, n), vector<T>(n), vector<T>(n)));
    for (const std::size_t side : {4, 64}) {
        measure({side == 4 ? "kron with order 4" : "kron with order 64", policy.name, n,
                 2 * bytes(n * n), 0.9, limits.copy, "GB"},
                kernel<T>(FloatingOperation::kron, matrix<T>(n, n), matrix<T>(n / side, n / side),
                          matrix<T>(side, side)));
    }
    for (const std::size_t kept : {2048, 64}) {
        // Of each block that is summed over, the diagonal is read, or of each row a run.
        const std::size_t traced = n / kept;
        const std::size_t line = 64 / sizeof(T);
        measure({kept == 64 ? "partial_trace_left to 64" : "partial_trace_left to 2048",
                 policy.name, n, bytes((traced + 2) * kept * kept), 0.9, limits.read, "GB"},
                kernel<T>(FloatingOperation::partial_trace_left, matrix<T>(kept, kept),
                          matrix<T>(n, n)));
        measure({kept == 64 ? "partial_trace_right to 64" : "partial_trace_right to 2048",
                 policy.name, n, bytes(n * kept * std::min(line, traced) + 2 * kept * kept), 0.9,
                 limits.read, "GB"},
                kernel<T>(FloatingOperation::partial_trace_right, matrix<T>(kept, kept),
                          matrix<T>(n, n)));
    }
}

/// The ratios to reach are those of the 512-bit engine.
std::vector<double> ratios(std::vector<double> targets) {
    return selected_x86_simd() == X86Simd::avx512 ? targets : std::vector<double>{};
}

void compare_products() {
    const MachineLimits limits = measure_machine_limits();
    const Policy<double> float64{"float64", ratios({0.95, 1.05, 1.0}),
                                 ratios({0.7, 0.6, 0.8, 1.0})};
    const Policy<std::complex<double>> complex128{"complex128", ratios({1.2, 1.08, 1.02})};
    const Policy<float> float32{"float32", ratios({1.0, 1.05, 1.03}),
                                ratios({0.75, 0.65, 0.5, 0.9})};
    const Policy<std::complex<float>> complex64{"complex64", ratios({1.2, 1.08, 1.02})};
    const Policy<Float16> float16{"float16", ratios({0.8, 1.0, 0.95})};
    const Policy<BFloat16> bfloat16{"bfloat16", ratios({0.8, 1.0, 0.95})};
    const Policy<Complex32> complex32{"complex32", {}};
    const auto for_each = [&](const auto& body) {
        body(float64);
        body(complex128);
        body(float32);
        body(complex64);
        body(float16);
        body(bfloat16);
        body(complex32);
    };
    print_head("Matrix products");
    compare_engine(limits);
    for_each([&](const auto& policy) { compare_matmul(policy, limits); });
    print_head("Products of a matrix and a vector");
    for_each([](const auto& policy) { compare_matvec(policy); });
    print_head("Powers");
    for_each([](const auto& policy) { compare_power(policy); });
    print_head("Limited by memory");
    for_each([&](const auto& policy) { measure_memory(policy, limits); });
}

} // namespace

} // namespace Tessaline::Bench

int main() {
    Tessaline::Bench::start_comparison();
    Tessaline::Bench::compare_products();
}

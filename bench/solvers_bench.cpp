// SPDX-License-Identifier: Apache-2.0

// Solvers beside OpenBLAS's LAPACK. The solvers give the bits of plain loops; the peer's eigenvalue
// methods differ from ours in kind, so no ratio is asked of those.

#include "backend/cpu/determinants/determinant_scaling.h"
#include "backend/cpu/determinants/positive_definite_logdet.h"
#include "backend/cpu/determinants/signed_logdet.h"
#include "backend/cpu/eigen_general/fallback_complex_eigen_solver.h"
#include "backend/cpu/eigen_hermitian/structured_solver.h"
#include "backend/cpu/engine/x86_simd_engine.h"
#include "backend/cpu/lu/factor.h"
#include "backend/cpu/lu/solve.h"
#include "backend/cpu/numbers/floating_policies.h"
#include "comparison.h"
#include "machine_limits.h"

#include <algorithm>
#include <cblas.h>
#include <lapacke.h>
#include <memory>
#include <new>
#include <random>

namespace Tessaline::Bench {

namespace {

constexpr DataMatrixLayout column_major = DataMatrixLayout::column_major;

template <typename T>
std::vector<T> random_elements(std::size_t count) {
    static std::mt19937_64 random(1);
    std::uniform_real_distribution<Component<T>> parts(-1, 1);
    std::vector<T> elements(count);
    for (T& element : elements) {
        if constexpr (is_complex_element<T>) {
            element = T(parts(random), parts(random));
        } else {
            element = parts(random);
        }
    }
    return elements;
}

template <typename T>
const char* type_name() {
    return scalar_metadata(ElementTraits<T>::scalar_type).name;
}

/// Calls the routine of T's precision and kind.
template <typename T, typename S, typename D, typename C, typename Z, typename... Arguments>
void call_peer(S single, D real, C complex_single, Z complex_double, Arguments... arguments) {
    if constexpr (std::is_same_v<T, float>) {
        single(arguments...);
    } else if constexpr (std::is_same_v<T, double>) {
        real(arguments...);
    } else if constexpr (std::is_same_v<T, std::complex<float>>) {
        complex_single(arguments...);
    } else {
        complex_double(arguments...);
    }
}

template <typename T, typename Allocator>
auto peer_data(std::vector<T, Allocator>& elements) {
    if constexpr (std::is_same_v<T, std::complex<float>>) {
        return reinterpret_cast<lapack_complex_float*>(elements.data());
    } else if constexpr (std::is_same_v<T, std::complex<double>>) {
        return reinterpret_cast<lapack_complex_double*>(elements.data());
    } else {
        return elements.data();
    }
}

template <typename T>
constexpr double operations = is_complex_element<T> ? 8 : 2; ///< of one term

/// Memory that starts on a cache line, as that of the library's own factors does.
template <typename T>
struct OnCacheLines {
    using value_type = T;
    OnCacheLines() = default;
    template <typename Other>
    OnCacheLines(const OnCacheLines<Other>&) {}
    T* allocate(std::size_t count) {
        return static_cast<T*>(::operator new(count * sizeof(T), alignment));
    }
    void deallocate(T* elements, std::size_t) { ::operator delete(elements, alignment); }
    bool operator==(const OnCacheLines&) const { return true; }

    static constexpr std::align_val_t alignment{64};
};

/// Matrices, the factors of one of them, and a right-hand side. Every call meets another matrix, or
/// the processor would learn by heart where the pivots of a small one lie.
template <typename T>
struct System {
    explicit System(std::size_t order)
        : n(order),
          matrices(std::max<std::size_t>(1, most_elements / (n * n))),
          factors(n * n),
          pivots(n),
          peer_pivots(n),
          b(random_elements<T>(n)),
          x(b) {
        std::ranges::generate(matrices, [&] { return random_elements<T>(n * n); });
        restore();
    }

    LuDecompView<long, T> lu() { return {pivots.data(), factors.data(), &swaps, n}; }
    void restore() {
        const std::vector<T>& matrix = matrices[next++ % matrices.size()];
        factors.assign(matrix.begin(), matrix.end());
    }

    static constexpr std::size_t most_elements = std::size_t{1} << 20U;

    std::size_t n;
    std::vector<std::vector<T>> matrices;
    std::size_t next = 0;
    std::vector<T, OnCacheLines<T>> factors;
    std::vector<long> pivots;
    std::vector<lapack_int> peer_pivots;
    std::uint64_t swaps = 0;
    std::vector<T> b;
    std::vector<T> x;
};

/// `factor` takes an LuDecompView of T. `kind` names it.
template <typename T, typename Factor>
void compare_factorisations(const char* kind, const Factor& factor,
                            const std::vector<double>& targets, const MachineLimits& limits) {
    std::size_t index = 0;
    for (const std::size_t n : {64, 256, 1024}) {
        const auto system = std::make_shared<System<T>>(n);
        const auto order = static_cast<lapack_int>(n);
        const auto cubed = static_cast<double>(n * n * n);
        const double limit =
            sizeof(Component<T>) == 8 ? limits.unfused_double : limits.unfused_float;
        const auto restore = [system] { system->restore(); };
        compare({kind, type_name<T>(), n, operations<T> / 3 * cubed,
                 index < targets.size() ? targets[index] : 0, limit},
                {[=] { factor(system->lu()); }, restore},
                {[=] {
                     call_peer<T>(LAPACKE_sgetrf, LAPACKE_dgetrf, LAPACKE_cgetrf, LAPACKE_zgetrf,
                                  LAPACK_COL_MAJOR, order, order, peer_data(system->factors), order,
                                  system->peer_pivots.data());
                 },
                 restore});
        ++index;
    }
}

void compare_all_factorisations(const MachineLimits& limits) {
    const auto factor = [](auto lu) { CpuFallback::lu_factor(lu, column_major); };
    compare_factorisations<double>("lu_factor", factor, {1.8, 1.4, 1.15}, limits);
    compare_factorisations<float>("lu_factor", factor, {1.6, 1.4, 1.1}, limits);
    compare_factorisations<std::complex<double>>("lu_factor", factor, {1.2, 1.1, 1.0}, limits);
    compare_factorisations<std::complex<float>>("lu_factor", factor, {}, limits);
    compare_factorisations<std::complex<float>>(
        "lu_factor, engine", [](auto lu) { SimdEngine::lu_decomp(lu); }, {}, limits);
}

template <typename T>
void compare_substitutions() {
    for (const std::size_t n : {64, 256, 1024}) {
        const auto system = std::make_shared<System<T>>(n);
        CpuFallback::lu_factor(system->lu(), column_major);
        const auto order = static_cast<int>(n);
        const double work = operations<T> / 2 * static_cast<double>(n * n);
        const auto restore = [system] { system->x = system->b; };
        const auto peer = [=](CBLAS_UPLO triangle, CBLAS_DIAG diagonal) -> Contender {
            return {[=] {
                        call_peer<T>(cblas_strsv, cblas_dtrsv, cblas_ctrsv, cblas_ztrsv,
                                     CblasColMajor, triangle, CblasNoTrans, diagonal, order,
                                     system->factors.data(), order, system->x.data(), 1);
                    },
                    restore};
        };
        const CpuFallback::FactorMatrix<T, column_major> factors{system->factors.data(), n};
        compare({"forward substitution", type_name<T>(), n, work, n == 1024 ? 1.1 : 0},
                {[=] { CpuFallback::substitute_forward(factors, system->x.data()); }, restore},
                peer(CblasLower, CblasUnit));
        compare({"backward substitution", type_name<T>(), n, work},
                {[=] { CpuFallback::substitute_backward(factors, system->x.data()); }, restore},
                peer(CblasUpper, CblasNonUnit));
    }
}

/// Slower than addition after addition the backward substitution cannot be.
void measure_backward_chain() {
    const auto sum = std::make_shared<double>(0);
    constexpr std::size_t links = 1024 * 1023 / 2;
    const double seconds = interleaved_medians({{[=] {
                               double value = *sum;
                               for (std::size_t i = 0; i < links; ++i) {
                                   value -= 1e-9;
                                   asm volatile("" : "+x"(value));
                               }
                               *sum = value;
                           }}}).front();
    const auto system = std::make_shared<System<double>>(1024);
    CpuFallback::lu_factor(system->lu(), column_major);
    const CpuFallback::FactorMatrix<double, column_major> factors{system->factors.data(), 1024};
    measure({"backward beside its chain", "float64", 1024, 2.0 * links, 0.6, 2.0 * links / seconds},
            {[=] { CpuFallback::substitute_backward(factors, system->x.data()); },
             [system] { system->x = system->b; }});
}

template <typename T>
void compare_determinants() {
    for (const std::size_t n : {64, 256, 1024}) {
        const auto system = std::make_shared<System<T>>(n);
        const auto cubed = static_cast<double>(n * n * n);
        const auto restore = [system] { system->restore(); };
        const Contender lu{[=] { CpuFallback::lu_factor(system->lu(), column_major); }, restore};
        compare({"slogdet beside lu_factor", type_name<T>(), n, operations<T> / 3 * cubed, 0.9},
                {[=] { CpuStructured::signed_logdet<T>(system->factors, n); }, restore}, lu);
        for (auto& matrix : system->matrices) {
            for (std::size_t i = 0; i < n; ++i) {
                for (std::size_t j = 0; j < i; ++j) {
                    matrix[i * n + j] = conjugated(matrix[j * n + i]);
                }
                matrix[i * n + i] = static_cast<double>(2 * n);
            }
        }
        compare({"logdet_positive_definite", type_name<T>(), n, operations<T> / 6 * cubed, 0.9},
                {[=] { CpuStructured::rooted_positive_definite_logdet<T>(system->factors, n); },
                 restore},
                lu);
    }
}

/// The work of what is counted by solves, as the table counts in thousand millions.
constexpr double solves_a_second = 1e9;

template <typename T>
void compare_hermitian() {
    for (const std::size_t n : {64, 128, 256}) {
        const auto matrix = random_elements<T>(n * n);
        const auto factors = std::make_shared<std::vector<T>>(matrix);
        const auto values = std::make_shared<std::vector<double>>(n);
        const auto order = static_cast<lapack_int>(n);
        compare({"eigh", type_name<T>(), n, solves_a_second, 0, 0, "/s"},
                {[=] { CpuStructured::eigen<T>(matrix, n, true); }},
                {[=] {
                     if constexpr (is_complex_element<T>) {
                         LAPACKE_zheevd(LAPACK_COL_MAJOR, 'V', 'L', order, peer_data(*factors),
                                        order, values->data());
                     } else {
                         LAPACKE_dsyevd(LAPACK_COL_MAJOR, 'V', 'L', order, peer_data(*factors),
                                        order, values->data());
                     }
                 },
                 [=] { *factors = matrix; }});
    }
}

void compare_general() {
    using Complex = std::complex<double>;
    for (const std::size_t n : {16, 64, 128}) {
        const auto matrix = random_elements<Complex>(n * n);
        const auto factors = std::make_shared<std::vector<Complex>>(matrix);
        const auto values = std::make_shared<std::vector<Complex>>(n);
        const auto vectors = std::make_shared<std::vector<Complex>>(n * n);
        const auto pairs = std::make_shared<HostEigenVals<Complex, Complex>>(n);
        const auto order = static_cast<lapack_int>(n);
        compare({"eig", type_name<Complex>(), n, solves_a_second, 0, 0, "/s"}, {[=] {
                    CpuFallback::solve_complex_eigen<double>(
                        {matrix.data(), n, n, column_major}, *pairs,
                        CpuFallback::EigenvalueScale::original);
                }},
                {[=] {
                     LAPACKE_zgeev(LAPACK_COL_MAJOR, 'N', 'V', order, peer_data(*factors), order,
                                   peer_data(*values), nullptr, order, peer_data(*vectors), order);
                 },
                 [=] { *factors = matrix; }});
    }
}

} // namespace

} // namespace Tessaline::Bench

int main() {
    using namespace Tessaline::Bench;
    start_comparison();
    const MachineLimits limits = measure_machine_limits();
    print_head("Factorisations beside getrf");
    compare_all_factorisations(limits);
    print_head("Substitutions beside trsv");
    compare_substitutions<double>();
    compare_substitutions<float>();
    compare_substitutions<std::complex<double>>();
    measure_backward_chain();
    print_head("Determinants beside our own lu_factor");
    compare_determinants<double>();
    compare_determinants<std::complex<double>>();
    print_head("Eigenvalue problems beside syevd, heevd and geev");
    compare_hermitian<double>();
    compare_hermitian<std::complex<double>>();
    compare_general();
}

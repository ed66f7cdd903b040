// SPDX-License-Identifier: Apache-2.0

// Operations that do little arithmetic, on operands far beyond the last cache: the share of the
// bandwidth of memory that they reach. Each runs as a caller runs it, on one thread, beside a plain
// copy of memory in turn, since bandwidth moves with the rest of the machine.

#include "comparison.h"
#include "tessaline/frontend/matrix.h"
#include "tessaline/frontend/operation_bindings.h"
#include "tessaline/frontend/scalar.h"
#include "tessaline/frontend/tessaline_context.h"
#include "tessaline/frontend/tessaline_executor.h"
#include "tessaline/frontend/vector.h"
#include "tessaline/storage/buffer_access.h"

#include <cstring>
#include <limits>
#include <memory>
#include <string>

namespace Tessaline::Bench {

namespace {

constexpr std::size_t operand_bytes = std::size_t{256} << 20U;
/// Of the square matrices; no power of two, whose rows would meet in few sets of the caches.
constexpr std::size_t order = 5003;
constexpr double share_to_reach = 0.9;

const TessalineExecutor& serial_executor() {
    static const TessalineContext context;
    static const TessalineExecutor executor(context, [] {
        CpuRuntimeOptions options;
        options.pinning_policy = CpuPinningPolicy::disabled;
        options.min_parallel_work = std::numeric_limits<std::uint64_t>::max();
        return BackendExecutor::cpu_only(options);
    }());
    return executor;
}

/// A copy of as many bytes, half of them read and half written.
Contender plain_copy(std::size_t bytes) {
    auto from = std::make_shared<std::vector<char>>(bytes / 2, 1);
    auto to = std::make_shared<std::vector<char>>(bytes / 2);
    return {[=] { std::memcpy(to->data(), from->data(), bytes / 2); }};
}

/// Runs an operation of the name on these operands, the last one its result, and compares it.
template <typename... Operands>
void compare_operation(const std::string& name, const char* type, std::size_t bytes,
                       Operands... operands) {
    auto kept = std::make_shared<std::tuple<Operands...>>(std::move(operands)...);
    auto bindings = std::make_shared<OperationBindings>();
    std::apply(
        [&](auto&... operand) {
            std::uint32_t index = 0;
            const auto bind = [&](auto& each) {
                if (++index == sizeof...(Operands)) {
                    bindings->bind(output_role(0), each);
                } else {
                    bindings->bind(input_role(index - 1), std::as_const(each));
                }
            };
            (bind(operand), ...);
        },
        *kept);
    const OperationId id = OperationId::parse("tessaline." + name + "@1");
    const Contender ours{[=] { serial_executor().execute(id, *bindings); }};
    const Subject subject{.operation = name,
                          .type = type,
                          .order = 0,
                          .work = static_cast<double>(bytes),
                          .target = share_to_reach,
                          .unit = "GB"};
    compare(subject, ours, plain_copy(bytes));
}

template <typename T>
Vector vector() {
    return Vector::host(std::vector<T>(operand_bytes / sizeof(T), T(1)));
}

template <typename T>
Matrix matrix() {
    return Matrix::host(order, order, std::vector<T>(order * order, T(1)));
}

template <typename T>
void compare_operations(const char* type) {
    compare_operation("add", type, 3 * operand_bytes, vector<T>(), vector<T>(), vector<T>());
    compare_operation("multiply", type, 3 * operand_bytes, vector<T>(), vector<T>(), vector<T>());
    compare_operation("scale", type, 2 * operand_bytes, vector<T>(), Scalar::host(T(1)),
                      vector<T>());
    if constexpr (is_complex_element<T>) {
        compare_operation("conjugate", type, 2 * operand_bytes, vector<T>());
    }
    compare_operation("sum", type, operand_bytes, vector<T>(), Scalar::host(T(0)));
    compare_operation("transpose", type, 2 * order * order * sizeof(T), matrix<T>(), matrix<T>());
    compare_operation("adjoint", type, 2 * order * order * sizeof(T), matrix<T>(), matrix<T>());
}

} // namespace

} // namespace Tessaline::Bench

int main() {
    using namespace Tessaline::Bench;
    start_comparison();
    print_head("Bytes read and written beside those of a plain copy");
    compare_operations<float>("float32");
    compare_operations<double>("float64");
    compare_operations<std::complex<float>>("complex64");
    compare_operations<std::complex<double>>("complex128");
    compare_operations<Tessaline::Float16>("float16");
    return 0;
}

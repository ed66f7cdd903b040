// SPDX-License-Identifier: Apache-2.0
// Registers kernels that a fuzzer thinks up. An input is a list of choices: each field takes one
// byte, of which most values stand for a sound content, so that inputs reach the deeper checks.

#include "frontend/plugin/plugin_registration.h"
#include "tessaline/catalogue/operation_spec.h"

#include <cstdlib>
#include <span>

namespace Tessaline::PluginDetail::Internal {
namespace {

/// Reads zeros behind the end of the input.
class Choices {
  public:
    explicit Choices(std::span<const std::uint8_t> input) : input_(input) {}

    bool more() const { return !input_.empty(); }

    std::uint8_t byte() {
        const std::uint8_t value = more() ? input_.front() : std::uint8_t{0};
        input_ = input_.subspan(more() ? 1 : 0);
        return value;
    }

    std::uint32_t word() {
        std::uint32_t value = 0;
        for (int index = 0; index < 4; ++index) {
            value = value << 8U | byte();
        }
        return value;
    }

    /// Mostly `sound`, else a small number, else any.
    std::uint32_t field(std::uint32_t sound) {
        const std::uint8_t choice = byte();
        if (choice < 0xc0U) {
            return sound;
        }
        return choice < 0xf0U ? choice & 0x0fU : word();
    }

    std::string text(std::size_t most) {
        std::string result(byte() % (most + 1), '\0');
        for (char& character : result) {
            character = static_cast<char>(byte());
        }
        return result;
    }

  private:
    std::span<const std::uint8_t> input_;
};

void check(bool holds) {
    if (!holds) {
        std::abort();
    }
}

tessaline_status do_nothing(void*, const tessaline_kernel_invocation*,
                            const tessaline_error_sink*) {
    return TESSALINE_STATUS_OK;
}

/// Keeps what the host reports.
struct Report {
    int count = 0;
    tessaline_status status = TESSALINE_STATUS_OK;
    std::string text;

    static void take(void* user_data, tessaline_status status, tessaline_string message) {
        auto& report = *static_cast<Report*>(user_data);
        ++report.count;
        report.status = status;
        report.text.assign(message.data, message.size);
    }
};

tessaline_backend_operand choose_operand(Choices& choices, std::uint32_t role, bool output) {
    const std::uint32_t kind = choices.field(TESSALINE_OPERAND_VECTOR);
    const bool has_layout = kind >= TESSALINE_OPERAND_MATRIX;
    const std::uint32_t type = choices.field(TESSALINE_SCALAR_FLOAT32);
    const bool is_complex =
        type == TESSALINE_SCALAR_COMPLEX64 || type == TESSALINE_SCALAR_COMPLEX128;
    const bool has_parts = is_complex && kind != TESSALINE_OPERAND_SCALAR;
    return {
        choices.field(sizeof(tessaline_backend_operand)),
        choices.field(role),
        choices.field(output ? TESSALINE_ACCESS_WRITE : TESSALINE_ACCESS_READ),
        kind,
        choices.field(TESSALINE_LOCATION_PAGEABLE_HOST),
        type,
        choices.field(has_parts ? TESSALINE_COMPLEX_LAYOUT_SPLIT : TESSALINE_COMPLEX_LAYOUT_NONE),
        choices.field(has_layout ? TESSALINE_MATRIX_LAYOUT_COLUMN_MAJOR
                                 : TESSALINE_MATRIX_LAYOUT_NONE),
        choices.field(type)};
}

/// One registration, in memory of exactly its size, so that a sanitizer sees what is read.
struct Registration {
    explicit Registration(Choices& choices) : name("acme.f") {
        if (choices.byte() >= 0xc0U) {
            name = choices.text(12);
        }
        const std::uint32_t inputs = choices.byte() % 4U;
        const std::uint32_t outputs = 1U - choices.byte() / 0xf0U + choices.byte() / 0x80U;
        operands.reserve(inputs + outputs);
        for (std::uint32_t index = 0; index < inputs; ++index) {
            operands.push_back(choose_operand(choices, TESSALINE_ROLE_INPUT(index), false));
        }
        for (std::uint32_t index = 0; index < outputs; ++index) {
            operands.push_back(choose_operand(choices, TESSALINE_ROLE_OUTPUT(index), true));
        }
        spec.struct_size = choices.field(sizeof(spec));
        spec.operation.struct_size = choices.field(sizeof(spec.operation));
        spec.operation.name = {choices.byte() < 0xf0U ? name.data() : nullptr, name.size()};
        spec.operation.major = choices.field(1);
        spec.backend = choices.field(TESSALINE_BACKEND_CPU_SIMD);
        spec.operands = choices.byte() < 0xf0U ? operands.data() : nullptr;
        spec.operand_count = operands.size();
        spec.callback = choices.byte() < 0xf0U ? &do_nothing : nullptr;
    }

    std::string name;
    std::vector<tessaline_backend_operand> operands;
    tessaline_kernel_spec spec{};
};

/// Registers once and checks what holds whatever was registered.
void register_one(Choices& choices, RegistrationContext& context) {
    const Registration registration(choices);
    const tessaline_kernel_spec* spec = choices.byte() < 0xf8U ? &registration.spec : nullptr;
    Report report;
    const tessaline_error_sink sink{choices.field(sizeof(sink)), &report,
                                    choices.byte() < 0xf0U ? &Report::take : nullptr};
    const std::size_t kernels = context.kernels.size();
    const std::size_t operations = context.operations.size();
    const std::optional<std::string> failure = context.failure;

    const tessaline_status status = register_kernel(&context, spec, &sink);

    if (status == TESSALINE_STATUS_OK) {
        check(context.kernels.size() == kernels + 1 && context.failure == failure);
        check(report.count == 0);
        return;
    }
    check(status == TESSALINE_STATUS_INVALID_ARGUMENT);
    check(context.kernels.size() == kernels && context.operations.size() == operations);
    check(context.failure.has_value() && (!failure || context.failure == failure));
    const bool usable = sink.struct_size >= sizeof(sink) && sink.report != nullptr;
    check(report.count == (usable ? 1 : 0));
    check(!usable || (report.status == status && !report.text.empty()));
}

} // namespace
} // namespace Tessaline::PluginDetail::Internal

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace Tessaline;
    using namespace Tessaline::PluginDetail::Internal;
    Choices choices({data, size});
    RegistrationContext context;
    while (choices.more()) {
        register_one(choices, context);
    }
    // What was accepted makes a contract that the catalogue accepts, and a key of each kernel.
    for (StagedOperation& staged : context.operations) {
        static_cast<void>(OperationSpec(staged.operation, staged.operands, {}, std::nullopt));
    }
    for (const StagedKernel& kernel : context.kernels) {
        check(!kernel.operands.empty() && is_output_role(kernel.operands.back().role));
        check(kernel.callback == &do_nothing);
    }
    return 0;
}

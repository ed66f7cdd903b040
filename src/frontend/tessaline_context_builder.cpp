// SPDX-License-Identifier: Apache-2.0
#include "tessaline/frontend/tessaline_context_builder.h"

#include "frontend/builtin_registrations.h"
#include "frontend/plugin/native_plugin.h"

#include <stdexcept>
#include <unordered_set>
#include <utility>

namespace Tessaline {

namespace {

[[noreturn]] void refuse(const std::string& what, const OperationId& id) {
    throw std::invalid_argument("TessalineContextBuilder::build - " + what + " '" + id.canonical() +
                                "'");
}

bool agrees(const OperationOperandSpec& compiled, const OperationOperandSpec& contract) {
    return compiled.role == contract.role && compiled.access == contract.access &&
           (!contract.kind || compiled.kind == contract.kind);
}

std::uint64_t operand_rank(OperandKind kind) {
    switch (kind) {
    case OperandKind::Scalar:
        return 0;
    case OperandKind::Matrix:
        return 2;
    case OperandKind::Vector:
    case OperandKind::LuDecomp:
    case OperandKind::EigenVals:
        return 1;
    }
    throw std::logic_error("operand_rank - invalid operand kind");
}

void validate_rank(const OperationSpec& spec, OperandRole role, const BackendOperandKey& key) {
    const std::vector<OperandShape>& shapes = spec.numerics()->shapes;
    const auto shape = std::ranges::find(shapes, role, &OperandShape::role);
    if (shape == shapes.end()) {
        throw std::logic_error("TessalineContextBuilder::build - numerical shape is missing for '" +
                               spec.id().canonical() + "'");
    }
    if (operand_rank(key.kind) != shape->rank) {
        refuse("backend family rank does not match the numerical shape for operation", spec.id());
    }
}

} // namespace

TessalineContextBuilder::TessalineContextBuilder() : TessalineContextBuilder(CustomOnlyTag{}) {
    operations_ = builtin_operations();
    backends_ = builtin_backends();
}

TessalineContextBuilder::TessalineContextBuilder(CustomOnlyTag)
    : adaptations_(builtin_adaptations()) {}

TessalineContextBuilder TessalineContextBuilder::custom_only() {
    return TessalineContextBuilder(CustomOnlyTag{});
}

void TessalineContextBuilder::ensure_mutable(const char* operation) const {
    if (sealed_) {
        throw std::logic_error(std::string(operation) + " - builder has already been sealed");
    }
}

TessalineContextExtension TessalineContextBuilder::extension(std::string id) & {
    ensure_mutable("TessalineContextBuilder::extension");
    static_cast<void>(OperationId(id + ".probe", 1));
    if (id == "tessaline" || id.starts_with("tessaline.")) {
        throw std::invalid_argument(
            "TessalineContextBuilder::extension - the 'tessaline' namespace is reserved");
    }
    return {*this, std::move(id)};
}

void TessalineContextBuilder::register_operation(const std::string& owner, OperationSpec spec) {
    ensure_mutable("TessalineContextBuilder::register_operation");
    operations_.register_operation(std::move(spec), RegistrationProvenance::extension(owner));
}

void TessalineContextBuilder::register_backend(const std::string& owner, BackendRegistryKey key,
                                               BackendEntry entry,
                                               std::optional<ImplementationNumerics> numerics) {
    ensure_mutable("TessalineContextBuilder::register_backend");
    backends_.register_backend(std::move(key), std::move(entry),
                               RegistrationProvenance::extension(owner), std::move(numerics));
}

void TessalineContextBuilder::register_source_backend(
    const std::string& owner, BackendRegistryKey key, BackendEntry entry,
    std::vector<OperationOperandSpec> operands, std::optional<ImplementationNumerics> numerics) {
    source_contracts_.push_back({key.op(), std::move(operands)});
    register_backend(owner, std::move(key), std::move(entry), std::move(numerics));
}

void TessalineContextBuilder::load_plugin(const std::filesystem::path& path) {
    ensure_mutable("TessalineContextBuilder::load_plugin");
    PluginDetail::LoadedPlugin plugin = PluginDetail::load_native_plugin(path);
    // Everything is added to copies, which replace the originals only when nothing can fail.
    OperationRegistry operations = operations_;
    BackendRegistry backends = backends_;
    std::vector<std::shared_ptr<void>> libraries = plugin_libraries_;
    const auto provenance = RegistrationProvenance::plugin(plugin.id, plugin.version);
    for (OperationSpec& operation : plugin.operations) {
        operations.register_operation(std::move(operation), provenance);
    }
    for (auto& [key, entry] : plugin.kernels) {
        backends.register_backend(std::move(key), std::move(entry), provenance, std::nullopt);
    }
    libraries.push_back(std::move(plugin.library));
    operations_ = std::move(operations);
    backends_ = std::move(backends);
    plugin_libraries_ = std::move(libraries);
}

void TessalineContextBuilder::validate_source_contracts() const {
    for (const SourceKernelContract& contract : source_contracts_) {
        if (!operations_.contains(contract.id)) {
            refuse("source kernel refers to unregistered operation", contract.id);
        }
        const auto operands = operations_.operation(contract.id).operands();
        if (contract.operands.size() != operands.size()) {
            refuse("source kernel arity does not match operation", contract.id);
        }
        if (!std::ranges::equal(contract.operands, operands, agrees)) {
            refuse("source kernel role/access/family does not match operation", contract.id);
        }
    }
}

void TessalineContextBuilder::validate_backend(const BackendRegistryKey& key,
                                               const BackendEntry& entry) const {
    if (!operations_.contains(key.op())) {
        refuse("backend refers to unregistered operation", key.op());
    }
    const OperationSpec& spec = operations_.operation(key.op());
    if (key.inputs().size() != spec.input_count() || key.output_count() != spec.output_count()) {
        refuse("backend arity does not match operation", key.op());
    }
    if (spec.numerics()) {
        for (std::size_t index = 0; index < key.inputs().size(); ++index) {
            validate_rank(spec, input_role(index), key.inputs()[index]);
        }
        for (std::size_t index = 0; index < key.output_count(); ++index) {
            validate_rank(spec, output_role(index), key.outputs()[index]);
        }
    }
    if (entry.materialise().empty()) {
        refuse("backend materialised an empty process for", key.op());
    }
}

void TessalineContextBuilder::validate_coverage() const {
    std::unordered_set<OperationId, OperationId::Hash> implemented;
    for (const auto& [key, backend] : backends_.registrations()) {
        implemented.insert(key.op());
    }
    for (const auto& [id, registration] : operations_.registrations()) {
        if (!implemented.contains(id)) {
            refuse("operation has no implementation:", id);
        }
    }
}

void TessalineContextBuilder::validate() const {
    validate_source_contracts();
    for (const auto& [key, backend] : backends_.registrations()) {
        validate_backend(key, backend.entry());
    }
    validate_coverage();
}

TessalineContext TessalineContextBuilder::build() && {
    ensure_mutable("TessalineContextBuilder::build");
    validate();
    operations_.seal();
    backends_.seal(operations_);
    sealed_ = true;
    return {std::move(operations_), std::move(backends_), std::move(adaptations_),
            std::move(plugin_libraries_)};
}

TessalineContextExtension& TessalineContextExtension::register_operation(OperationSpec spec) {
    require_owned(spec.id());
    builder_.register_operation(id_, std::move(spec));
    return *this;
}

void TessalineContextExtension::require_owned(const OperationId& id) const {
    if (!id.name().starts_with(id_ + ".")) {
        throw std::invalid_argument("TessalineContextExtension - operation '" + id.canonical() +
                                    "' is outside extension namespace '" + id_ + "'");
    }
}

} // namespace Tessaline

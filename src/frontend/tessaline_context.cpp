// SPDX-License-Identifier: Apache-2.0
#include "tessaline/frontend/tessaline_context.h"

#include "frontend/builtin_registrations.h"
#include "frontend/describe_operations.h"
#include "tessaline/frontend/tessaline_context_builder.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace Tessaline {

namespace {

std::vector<const OperationSpec*> by_handle(const OperationRegistry& operations) {
    std::vector<const OperationSpec*> specs(operations.size());
    for (const auto& [id, registration] : operations.registrations()) {
        const OperationSpec& spec = registration.operation();
        specs[static_cast<std::size_t>(spec.handle()) - 1] = &spec;
    }
    return specs;
}

OperationRegistry&& seal(OperationRegistry& operations) {
    operations.seal();
    return std::move(operations);
}

BackendRegistry&& seal(BackendRegistry& backends, const OperationRegistry& operations) {
    backends.seal(operations);
    if (!backends.is_sealed_against(operations)) {
        throw std::invalid_argument(
            "TessalineContext - backend catalogue was sealed against another operation catalogue");
    }
    return std::move(backends);
}

} // namespace

TessalineContext::TessalineContext() : TessalineContext(TessalineContextBuilder().build()) {}

TessalineContext::TessalineContext(OperationRegistry&& operations, BackendRegistry&& backends,
                                   BackendAdaptationRegistry&& adaptations,
                                   std::vector<std::shared_ptr<void>> plugin_libraries)
    : plugin_libraries_(std::move(plugin_libraries)),
      operations_(seal(operations)),
      operations_by_handle_(by_handle(operations_)),
      backends_(seal(backends, operations_)),
      adaptations_(std::move(adaptations)),
      dispatcher_(backends_, adaptations_),
      descriptions_(describe_operations(operations_, backends_)) {
    operation_ids_.reserve(descriptions_.size());
    for (const OperationDescription& description : descriptions_) {
        description_indices_.emplace(description.id, operation_ids_.size());
        operation_ids_.push_back(description.id);
    }
}

TessalineContext::TessalineContext(BackendRegistry&& backends,
                                   BackendAdaptationRegistry&& adaptations)
    : TessalineContext(builtin_operations(), std::move(backends), std::move(adaptations)) {}

TessalineContext::TessalineContext(BackendRegistry&& backends)
    : TessalineContext(std::move(backends), builtin_adaptations()) {}

TessalineContext::TessalineContext(OperationRegistry&& operations, BackendRegistry&& backends)
    : TessalineContext(std::move(operations), std::move(backends), builtin_adaptations()) {}

TessalineContext::TessalineContext(TessalineContext&& other) noexcept
    : plugin_libraries_(std::move(other.plugin_libraries_)),
      operations_(std::move(other.operations_)),
      operations_by_handle_(std::move(other.operations_by_handle_)),
      backends_(std::move(other.backends_)),
      adaptations_(std::move(other.adaptations_)),
      dispatcher_(backends_, adaptations_),
      descriptions_(std::move(other.descriptions_)),
      operation_ids_(std::move(other.operation_ids_)),
      description_indices_(std::move(other.description_indices_)) {}

TessalineContext::~TessalineContext() = default;

const OperationSpec& TessalineContext::operation(const OperationId& id) const {
    return operations_.operation(id);
}

const OperationDescription& TessalineContext::describe(const OperationId& id) const {
    const auto found = description_indices_.find(id);
    if (found == description_indices_.end()) {
        throw std::out_of_range("TessalineContext - operation '" + id.canonical() +
                                "' is not registered");
    }
    return descriptions_[found->second];
}

DataTypeDescriptor TessalineContext::infer_dense_result_policy(
    const OperationId& id, std::span<const BackendKind> backends,
    const std::vector<BackendOperandKey>& inputs, const DenseResultRequest& request) const {
    return backends_.infer_dense_result_policy(operation(id).handle(), backends, inputs, request,
                                               adaptations_);
}

} // namespace Tessaline

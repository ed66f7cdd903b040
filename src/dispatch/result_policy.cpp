// SPDX-License-Identifier: Apache-2.0
#include "tessaline/catalogue/errors.h"
#include "tessaline/dispatch/backend_registry.h"
#include "tessaline/storage/storage_contract.h"

#include <algorithm>
#include <stdexcept>

namespace Tessaline {

namespace {

void validate_request(const DenseResultRequest& request) {
    if (request.kind < OperandKind::Scalar || request.kind > OperandKind::Matrix) {
        throw std::invalid_argument("result policy - expected a dense scalar, vector or matrix");
    }
    const bool layout_valid = request.kind == OperandKind::Matrix
                                  ? request.layout == DataMatrixLayout::row_major ||
                                        request.layout == DataMatrixLayout::column_major
                                  : !request.layout;
    if (!layout_valid) {
        throw std::invalid_argument(
            "result policy - a valid matrix layout is required only for matrices");
    }
}

/// The output that the runtime would make for the caller, with the types of a row's output. A
/// complex vector or matrix that is made for a caller is interleaved.
BackendOperandKey wanted_output(const DenseResultRequest& request, const BackendOperandKey& out) {
    const ScalarCategory category = scalar_metadata(out.storage).category;
    const bool complex =
        category == ScalarCategory::complex_floating || category == ScalarCategory::complex_integer;
    BackendOperandKey wanted;
    wanted.kind = request.kind;
    wanted.location = request.location;
    wanted.format = OperandFormat::dense(request.kind);
    wanted.storage = out.storage;
    wanted.compute = out.compute;
    wanted.complex = complex && request.kind != OperandKind::Scalar ? DataComplexLayout::interleaved
                                                                    : DataComplexLayout::none;
    wanted.layout = request.layout;
    return wanted;
}

/// Whether a row could serve these inputs and produce this result, at whatever price.
bool viable(const BackendRegistryKey& key, std::span<const BackendKind> backends,
            const std::vector<BackendOperandKey>& inputs, const DenseResultRequest& request,
            const BackendAdaptationRegistry& adaptations) {
    if (std::ranges::find(backends, key.backend()) == backends.end() ||
        key.inputs().size() != inputs.size() || key.output_count() != 1) {
        return false;
    }
    const BackendOperandKey& out = key.output();
    if (out.kind != request.kind || (request.storage && out.storage != *request.storage)) {
        return false;
    }
    const BackendOperandKey wanted = wanted_output(request, out);
    if (!dense_storage_contract(wanted) ||
        !operand_adaptation_cost(wanted, out, adaptations, false)) {
        return false;
    }
    for (std::size_t index = 0; index < inputs.size(); ++index) {
        if (!operand_adaptation_cost(inputs[index], key.inputs()[index], adaptations, true)) {
            return false;
        }
    }
    return true;
}

} // namespace

DataTypeDescriptor BackendRegistry::infer_dense_result_policy(
    OperationHandle op, std::span<const BackendKind> backends,
    const std::vector<BackendOperandKey>& inputs, const DenseResultRequest& request,
    const BackendAdaptationRegistry& adaptations) const {
    if (!sealed_) {
        throw std::logic_error("result policy - numeric catalogue is not sealed");
    }
    validate_request(request);
    std::optional<DataTypeDescriptor> found;
    for (const SealedBackendSignature& signature : signatures(op)) {
        if (!viable(*signature.key, backends, inputs, request, adaptations)) {
            continue;
        }
        const BackendOperandKey& out = signature.key->output();
        const auto policy = DataTypeDescriptor::from_scalar_types(out.storage, out.compute);
        if (found && *found != policy) {
            throw DispatchError("result policy", ErrorReason::registry_contract_mismatch,
                                "ambiguous result policy: supply an output dtype or use "
                                "Context.execute with explicit operand policies");
        }
        found = policy;
    }
    if (!found) {
        throw DispatchError("result policy", ErrorReason::no_backend_available,
                            "unsupported result policy: no viable implementation for the input "
                            "policies and output layout");
    }
    return *found;
}

} // namespace Tessaline

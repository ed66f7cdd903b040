// SPDX-License-Identifier: Apache-2.0
#include "tessaline/dispatch/backend_registry.h"

#include "dispatch/first_rule.h"
#include "tessaline/catalogue/errors.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>

namespace Tessaline {

namespace {

bool on_device(const BackendOperandKey& key) {
    return key.location > DataLocation::pinned_host;
}

/// Adds the price of one side's operands to `total`; false when one of them cannot be reached.
bool add_costs(std::uint64_t& total, std::span<const BackendOperandKey> requested,
               const std::vector<BackendOperandKey>& registered,
               const BackendAdaptationRegistry& adaptations, bool inputs) {
    for (std::size_t index = 0; index < requested.size(); ++index) {
        const auto cost =
            operand_adaptation_cost(requested[index], registered[index], adaptations, inputs);
        if (!cost) {
            return false;
        }
        total += *cost;
    }
    return true;
}

/// The price of reaching a row, empty when it cannot be reached.
std::optional<std::uint64_t> row_cost(const BackendRegistryKey& key, BackendKind backend,
                                      std::span<const BackendOperandKey> inputs,
                                      std::span<const BackendOperandKey> outputs,
                                      const BackendAdaptationRegistry& adaptations) {
    std::uint64_t total = 0;
    const bool reachable = key.backend() == backend && key.inputs().size() == inputs.size() &&
                           key.outputs().size() == outputs.size() &&
                           add_costs(total, inputs, key.inputs(), adaptations, true) &&
                           add_costs(total, outputs, key.outputs(), adaptations, false);
    return reachable ? std::optional(total) : std::nullopt;
}

[[noreturn]] void refuse_tie(OperationHandle op, std::vector<std::string> keys) {
    std::ranges::sort(keys);
    std::string text;
    for (const std::string& key : keys) {
        text += (text.empty() ? "" : " | ") + key;
    }
    throw DispatchError("BackendRegistry::find", ErrorReason::registry_contract_mismatch,
                        "BackendRegistry::find - ambiguous equal-cost registrations for numeric "
                        "operation handle " +
                            std::to_string(static_cast<std::uint32_t>(op)) + ": " + text);
}

} // namespace

std::optional<std::uint64_t> operand_adaptation_cost(const BackendOperandKey& requested,
                                                     const BackendOperandKey& registered,
                                                     const BackendAdaptationRegistry& adaptations,
                                                     bool is_input) {
    if (requested == registered) {
        return 0;
    }
    const bool supported = is_input
                               ? first_rule(adaptations.inputs, requested, registered) != nullptr
                               : first_rule(adaptations.outputs, requested, registered) != nullptr;
    if (!supported) {
        return std::nullopt;
    }
    return on_device(requested) || on_device(registered) ? 2 : 1;
}

BackendEntry::BackendEntry(Materialiser materialiser) : materialiser_(std::move(materialiser)) {
    if (!materialiser_) {
        throw std::invalid_argument("BackendEntry - materialiser must not be empty");
    }
}

BackendRegistry::BackendRegistry(const BackendRegistry& other)
    : registrations_(other.registrations_),
      sealed_(other.sealed_) {
    rebuild_indices(other);
}

BackendRegistry& BackendRegistry::operator=(const BackendRegistry& other) {
    if (this != &other) {
        *this = BackendRegistry(other);
    }
    return *this;
}

void BackendRegistry::register_backend(BackendRegistryKey key, BackendEntry entry,
                                       RegistrationProvenance provenance,
                                       std::optional<ImplementationNumerics> numerics) {
    if (sealed_) {
        throw std::logic_error("BackendRegistry::register_backend - catalogue is sealed");
    }
    if (registrations_.contains(key)) {
        throw std::invalid_argument(
            "BackendRegistry::register_backend - duplicate registration for " +
            key.op().canonical());
    }
    if (numerics) {
        numerics = canonicalise_implementation_numerics(std::move(*numerics), key);
    }
    registrations_.emplace(
        std::move(key),
        RegisteredBackend(std::move(entry), std::move(provenance), std::move(numerics)));
}

void BackendRegistry::seal(const OperationRegistry& operations) {
    if (sealed_) {
        return;
    }
    if (!operations.sealed()) {
        throw std::logic_error("BackendRegistry::seal - operation catalogue must be sealed first");
    }
    Index index;
    for (const auto& [key, backend] : registrations_) {
        index[operations.operation(key.op()).handle()].push_back({&key, &backend.entry()});
    }
    index_ = std::move(index);
    sealed_ = true;
}

bool BackendRegistry::is_sealed_against(const OperationRegistry& operations) const {
    const auto is_found_under = [&](OperationHandle handle, const SealedBackendSignature& row) {
        const OperationId& op = row.key->op();
        return operations.contains(op) && operations.operation(op).handle() == handle;
    };
    return sealed_ && std::ranges::all_of(index_, [&](const auto& rows) {
               return std::ranges::all_of(rows.second, [&](const SealedBackendSignature& row) {
                   return is_found_under(rows.first, row);
               });
           });
}

std::span<const BackendRegistry::SealedBackendSignature>
BackendRegistry::signatures(OperationHandle op) const {
    const auto found = index_.find(op);
    return found == index_.end() ? std::span<const SealedBackendSignature>()
                                 : std::span(found->second);
}

std::optional<BackendMatch>
BackendRegistry::find(OperationHandle op, BackendKind backend,
                      std::span<const BackendOperandKey> inputs,
                      std::span<const BackendOperandKey> outputs,
                      const BackendAdaptationRegistry& adaptations) const {
    if (!sealed_) {
        throw std::logic_error("BackendRegistry::find - numeric catalogue is not sealed");
    }
    std::optional<BackendMatch> best;
    bool tied = false;
    for (const SealedBackendSignature& signature : signatures(op)) {
        const auto cost = row_cost(*signature.key, backend, inputs, outputs, adaptations);
        if (!cost || (best && *cost > best->adaptation_cost())) {
            continue;
        }
        tied = best && *cost == best->adaptation_cost();
        if (!tied) {
            best.emplace(*signature.key, *signature.entry, *cost);
        }
    }
    if (tied) {
        std::vector<std::string> keys;
        for (const SealedBackendSignature& signature : signatures(op)) {
            if (row_cost(*signature.key, backend, inputs, outputs, adaptations) ==
                best->adaptation_cost()) {
                keys.push_back(describe_registry_key(*signature.key));
            }
        }
        refuse_tie(op, std::move(keys));
    }
    return best;
}

std::optional<BackendMatch>
BackendRegistry::find(OperationHandle op, BackendKind backend,
                      std::span<const BackendOperandKey> inputs, const BackendOperandKey& output,
                      const BackendAdaptationRegistry& adaptations) const {
    return find(op, backend, inputs, std::span(&output, 1), adaptations);
}

void BackendRegistry::rebuild_indices(const BackendRegistry& other) {
    index_.clear();
    if (!sealed_) {
        return;
    }
    for (const auto& [handle, theirs] : other.index_) {
        std::vector<SealedBackendSignature>& mine = index_[handle];
        mine.reserve(theirs.size());
        for (const SealedBackendSignature& signature : theirs) {
            const auto found = registrations_.find(*signature.key);
            if (found == registrations_.end()) {
                throw std::logic_error(
                    "BackendRegistry - copied registration index is inconsistent");
            }
            mine.push_back({&found->first, &found->second.entry()});
        }
    }
}

} // namespace Tessaline

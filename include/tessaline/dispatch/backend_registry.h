// SPDX-License-Identifier: Apache-2.0
#pragma once

// The registry of typed implementations: filled while open, sealed once, then searched for the
// cheapest implementation that a request can reach.

#include "tessaline/catalogue/implementation_numerics.h"
#include "tessaline/catalogue/operation_registry.h"
#include "tessaline/dispatch/backend_adaptation_registry.h"

#include <optional>
#include <span>
#include <unordered_map>

namespace Tessaline {

/// The recipe of an implementation: each call of the function makes a new process.
class TESSALINE_API BackendEntry {
  public:
    using Materialiser = std::function<BackendProcess()>;

    /// The function must be safe to call from several threads, cheap and free of side effects.
    /// Raises std::invalid_argument for an empty function.
    explicit BackendEntry(Materialiser materialiser);

    BackendProcess materialise() const { return materialiser_(); }

  private:
    Materialiser materialiser_;
};

/// One row of the registry beside its key.
class RegisteredBackend {
  public:
    RegisteredBackend(BackendEntry entry, RegistrationProvenance provenance,
                      std::optional<ImplementationNumerics> numerics)
        : entry_(std::move(entry)),
          provenance_(std::move(provenance)),
          numerics_(std::move(numerics)) {}

    const BackendEntry& entry() const { return entry_; }
    const RegistrationProvenance& provenance() const { return provenance_; }
    /// In canonical form.
    const std::optional<ImplementationNumerics>& numerics() const { return numerics_; }

  private:
    BackendEntry entry_;
    RegistrationProvenance provenance_;
    std::optional<ImplementationNumerics> numerics_;
};

/// The result of a search. Refers into the registry and is valid until that is destroyed or
/// assigned to.
class BackendMatch {
  public:
    BackendMatch(const BackendRegistryKey& key, const BackendEntry& entry,
                 std::uint64_t adaptation_cost)
        : key_(&key),
          entry_(&entry),
          adaptation_cost_(adaptation_cost) {}

    const BackendRegistryKey& key() const { return *key_; }
    const BackendEntry& entry() const { return *entry_; }
    std::uint64_t adaptation_cost() const { return adaptation_cost_; }
    /// True when no operand needs adaptation.
    bool exact() const { return adaptation_cost_ == 0; }

  private:
    const BackendRegistryKey* key_;
    const BackendEntry* entry_;
    std::uint64_t adaptation_cost_;
};

/// The output that a caller wants to have made for it.
struct DenseResultRequest {
    OperandKind kind;                       ///< scalar, vector or matrix
    DataLocation location;                  ///< where the output will lie
    std::optional<DataMatrixLayout> layout; ///< set for a matrix, empty otherwise
    std::optional<ScalarType> storage;      ///< the element type, when the caller named one
};

/// The price of bringing one operand from the requested to the registered key: 0 for equal keys,
/// else 1 between host locations and 2 with a device on either side; empty when no rule can.
TESSALINE_API std::optional<std::uint64_t>
operand_adaptation_cost(const BackendOperandKey& requested, const BackendOperandKey& registered,
                        const BackendAdaptationRegistry& adaptations, bool is_input);

/// Once sealed, const operations may run on any number of threads.
class TESSALINE_API BackendRegistry {
  public:
    using Registrations =
        std::unordered_map<BackendRegistryKey, RegisteredBackend, BackendRegistryKey::Hash>;

    BackendRegistry() = default;
    BackendRegistry(const BackendRegistry& other);
    BackendRegistry& operator=(const BackendRegistry& other);
    BackendRegistry(BackendRegistry&&) noexcept = default;
    BackendRegistry& operator=(BackendRegistry&&) noexcept = default;
    ~BackendRegistry() = default;

    /// Adds a row; a failed call changes nothing. Raises std::logic_error once sealed and
    /// std::invalid_argument for a key that is registered already and for faulty numerics.
    void register_backend(BackendRegistryKey key, BackendEntry entry,
                          RegistrationProvenance provenance,
                          std::optional<ImplementationNumerics> numerics);

    /// Resolves every row to its operation's handle and closes the registry; a second call has no
    /// effect. Raises std::logic_error for an open catalogue and std::out_of_range for a row of an
    /// unknown operation, and then leaves the registry open.
    void seal(const OperationRegistry& operations);

    bool sealed() const { return sealed_; }
    /// Whether this sealed catalogue gives the operation of every row the handle under which a
    /// search finds the row; false before sealing.
    bool is_sealed_against(const OperationRegistry& operations) const;
    std::size_t size() const { return registrations_.size(); }
    /// In hash order.
    const Registrations& registrations() const { return registrations_; }

    /// The cheapest row of a family that these operands can reach; empty when there is none. Raises
    /// std::logic_error before sealing, and DispatchError when several rows are equally cheap.
    std::optional<BackendMatch> find(OperationHandle op, BackendKind backend,
                                     std::span<const BackendOperandKey> inputs,
                                     std::span<const BackendOperandKey> outputs,
                                     const BackendAdaptationRegistry& adaptations) const;
    std::optional<BackendMatch> find(OperationHandle op, BackendKind backend,
                                     std::span<const BackendOperandKey> inputs,
                                     const BackendOperandKey& output,
                                     const BackendAdaptationRegistry& adaptations) const;

    /// The one storage and compute type that the rows of these families offer for a result. Raises
    /// std::logic_error before sealing, std::invalid_argument for a malformed request, and
    /// DispatchError when no pair or more than one remains.
    DataTypeDescriptor
    infer_dense_result_policy(OperationHandle op, std::span<const BackendKind> backends,
                              const std::vector<BackendOperandKey>& inputs,
                              const DenseResultRequest& request,
                              const BackendAdaptationRegistry& adaptations) const;

  private:
    /// Addresses of one row inside the map.
    struct SealedBackendSignature {
        const BackendRegistryKey* key;
        const BackendEntry* entry;
    };
    using Index = std::unordered_map<OperationHandle, std::vector<SealedBackendSignature>>;

    std::span<const SealedBackendSignature> signatures(OperationHandle op) const;
    void rebuild_indices(const BackendRegistry& other);

    Registrations registrations_;
    Index index_; ///< empty until sealed
    bool sealed_ = false;
};

} // namespace Tessaline

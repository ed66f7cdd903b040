// SPDX-License-Identifier: Apache-2.0
#pragma once

// The catalogue of operations: open while it is filled, sealed for good before it is used.

#include "tessaline/catalogue/operation_spec.h"
#include "tessaline/catalogue/registration_provenance.h"

#include <unordered_map>
#include <vector>

namespace Tessaline {

/// One entry of the catalogue.
class OperationRegistration {
  public:
    OperationRegistration(OperationSpec operation, RegistrationProvenance provenance)
        : operation_(std::move(operation)),
          provenance_(std::move(provenance)) {}

    const OperationSpec& operation() const { return operation_; }
    const RegistrationProvenance& provenance() const { return provenance_; }

  private:
    friend class OperationRegistry;

    OperationSpec operation_;
    RegistrationProvenance provenance_;
};

/// A sealed registry is read-only and may be read from any thread without a lock.
class TESSALINE_API OperationRegistry {
  public:
    using Registrations = std::unordered_map<OperationId, OperationRegistration, OperationId::Hash>;

    /// Adds an operation; a failed call changes nothing. Raises std::logic_error once sealed and
    /// std::invalid_argument for an id that is registered already, and for a contract taken from
    /// another, sealed catalogue.
    void register_operation(OperationSpec spec, RegistrationProvenance provenance);

    /// Assigns handles, from 1 in registration order, and closes the registry; a second call has no
    /// effect. Raises std::logic_error when the catalogue does not fit its handles.
    void seal();

    bool sealed() const { return sealed_; }
    std::size_t size() const { return registrations_.size(); }
    bool contains(const OperationId& id) const { return registrations_.contains(id); }
    const Registrations& registrations() const { return registrations_; }

    /// Both raise std::out_of_range for an unknown id.
    const OperationRegistration& registration(const OperationId& id) const;
    const OperationSpec& operation(const OperationId& id) const;

  private:
    Registrations registrations_;
    std::vector<OperationId> order_; ///< ids in registration order
    bool sealed_ = false;
};

} // namespace Tessaline

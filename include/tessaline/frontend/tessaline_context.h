// SPDX-License-Identifier: Apache-2.0
#pragma once

// The sealed whole of what a program can run.

#include "tessaline/catalogue/operation_description.h"
#include "tessaline/dispatch/backend_dispatcher.h"

#include <memory>
#include <span>
#include <unordered_map>
#include <vector>

namespace Tessaline {

/// Operations, implementations, adaptation rules and the dispatcher over them. Immutable: any
/// number of threads may read it and dispatch through it.
class TESSALINE_API TessalineContext {
  public:
    /// The built-in catalogue, fully validated.
    TessalineContext();

    /// Seals what is given and owns it. `plugin_libraries` stay loaded while the context lives.
    /// Raises what sealing raises, and std::invalid_argument for implementations that were sealed
    /// against a catalogue with other handles.
    TessalineContext(OperationRegistry&& operations, BackendRegistry&& backends,
                     BackendAdaptationRegistry&& adaptations,
                     std::vector<std::shared_ptr<void>> plugin_libraries = {});
    /// The built-in operations with the given implementations and rules.
    TessalineContext(BackendRegistry&& backends, BackendAdaptationRegistry&& adaptations);
    /// The built-in operations and rules with the given implementations.
    explicit TessalineContext(BackendRegistry&& backends);
    /// The given operations and implementations with the built-in rules.
    TessalineContext(OperationRegistry&& operations, BackendRegistry&& backends);

    TessalineContext(TessalineContext&& other) noexcept;
    TessalineContext& operator=(TessalineContext&&) = delete;
    ~TessalineContext();

    /// All ids, sorted by canonical text.
    std::span<const OperationId> operations() const { return operation_ids_; }
    /// Raises std::out_of_range for an unknown id.
    const OperationSpec& operation(const OperationId& id) const;
    /// Whether `operation` is the very contract that this context holds, and no copy.
    bool contains(const OperationSpec& operation) const {
        const auto index = static_cast<std::size_t>(operation.handle()) - 1;
        return index < operations_by_handle_.size() && operations_by_handle_[index] == &operation;
    }
    /// Whether implementations may be those of plugins, which may do anything.
    bool has_plugins() const { return !plugin_libraries_.empty(); }
    const BackendDispatcher& dispatcher() const { return dispatcher_; }
    /// What is published about an operation. Raises std::out_of_range for an unknown id.
    const OperationDescription& describe(const OperationId& id) const;

    /// The storage and compute type of a result; see BackendRegistry::infer_dense_result_policy.
    DataTypeDescriptor infer_dense_result_policy(const OperationId& id,
                                                 std::span<const BackendKind> backends,
                                                 const std::vector<BackendOperandKey>& inputs,
                                                 const DenseResultRequest& request) const;

  private:
    // Libraries are declared first, so that they outlive the entries that call into them.
    std::vector<std::shared_ptr<void>> plugin_libraries_;
    OperationRegistry operations_;
    std::vector<const OperationSpec*> operations_by_handle_; ///< handles count from 1
    BackendRegistry backends_;
    BackendAdaptationRegistry adaptations_;
    BackendDispatcher dispatcher_;                   ///< refers into this very object
    std::vector<OperationDescription> descriptions_; ///< sorted by canonical text
    std::vector<OperationId> operation_ids_;
    /// The place of each operation in both lists.
    std::unordered_map<OperationId, std::size_t, OperationId::Hash> description_indices_;
};

} // namespace Tessaline

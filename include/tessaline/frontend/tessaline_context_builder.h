// SPDX-License-Identifier: Apache-2.0
#pragma once

// The mutable stage before a context: collects operations and implementations, cross-checks them
// and seals them.

#include "tessaline/frontend/tessaline_context.h"

#include <filesystem>
#include <string>

namespace Tessaline {

class TessalineContextExtension;

/// Used by one thread. Every mutating call raises std::logic_error once a context has been built.
class TESSALINE_API TessalineContextBuilder {
  public:
    /// Selects the constructor without built-in operations and implementations.
    struct CustomOnlyTag {};

    /// What the author of a source kernel compiled against.
    struct SourceKernelContract {
        OperationId id;
        std::vector<OperationOperandSpec> operands;
    };

    /// The built-in operations, implementations and adaptation rules.
    TessalineContextBuilder();
    /// The adaptation rules alone.
    explicit TessalineContextBuilder(CustomOnlyTag tag);
    static TessalineContextBuilder custom_only();

    /// A view for operations under one namespace. The builder must outlive it at its address.
    /// Raises std::invalid_argument for an id that cannot start an operation's name and for the
    /// reserved namespace "tessaline".
    TessalineContextExtension extension(std::string id) &;

    /// Adds an operation under an owner, whatever its namespace; raises what
    /// OperationRegistry::register_operation does.
    void register_operation(const std::string& owner, OperationSpec spec);

    /// Adds an implementation under an owner; raises what BackendRegistry::register_backend does.
    void register_backend(const std::string& owner, BackendRegistryKey key, BackendEntry entry,
                          std::optional<ImplementationNumerics> numerics);

    /// Adds an implementation as register_backend() does, and records the contract that its author
    /// compiled against, so that a kernel made for another contract is refused when the context is
    /// built and not when it runs.
    void register_source_backend(const std::string& owner, BackendRegistryKey key,
                                 BackendEntry entry, std::vector<OperationOperandSpec> operands,
                                 std::optional<ImplementationNumerics> numerics);

    /// Adds the operations and kernels of a native plugin, under its id and version. The library
    /// stays open while anything can call into it, and the plugin is shut down once after that.
    ///
    /// Raises std::runtime_error for a library that cannot be opened or has no
    /// `tessaline_plugin_init`, BackendLibraryError when the plugin reports failure, and
    /// std::invalid_argument for what it declares and for what is registered already. A failure
    /// leaves the builder as it was.
    void load_plugin(const std::filesystem::path& path);

    /// Checks that recorded contracts and implementations agree with their operations, that every
    /// implementation makes a process, and that every operation has an implementation. Raises
    /// std::invalid_argument at the first fault and leaves the builder as it was.
    void validate() const;

    /// Validates, seals and moves everything into a context.
    TessalineContext build() &&;

    /// Raises std::logic_error, opened by `operation`, once a context has been built.
    void ensure_mutable(const char* operation) const;

  private:
    void validate_source_contracts() const;
    void validate_backend(const BackendRegistryKey& key, const BackendEntry& entry) const;
    void validate_coverage() const;

    OperationRegistry operations_;
    BackendRegistry backends_;
    BackendAdaptationRegistry adaptations_;
    std::vector<std::shared_ptr<void>> plugin_libraries_;
    std::vector<SourceKernelContract> source_contracts_;
    bool sealed_ = false;
};

/// A narrow view of a builder: it registers operations under its own namespace only.
class TESSALINE_API TessalineContextExtension {
  public:
    const std::string& id() const { return id_; }

    /// Raises std::invalid_argument for an operation outside the extension's namespace, and what
    /// the builder's register_operation does.
    TessalineContextExtension& register_operation(OperationSpec spec);

    /// Raises std::invalid_argument for an operation outside the extension's namespace.
    void require_owned(const OperationId& id) const;

  private:
    friend class TessalineContextBuilder;
    TessalineContextExtension(TessalineContextBuilder& builder, std::string id)
        : builder_(builder),
          id_(std::move(id)) {}

    TessalineContextBuilder& builder_;
    std::string id_;
};

} // namespace Tessaline

// SPDX-License-Identifier: Apache-2.0
#include "tessaline/catalogue/errors.h"

#include "catalogue/enumeration_words.h"

#include <utility>

namespace Tessaline {

const char* error_reason_name(ErrorReason reason) {
    static constexpr std::array words{"null_storage",
                                      "no_backend_available",
                                      "unsupported_adaptation",
                                      "registry_contract_mismatch",
                                      "singular",
                                      "non_convergence",
                                      "library_failure",
                                      "solver_failure"};
    return enumeration_word(words, reason, "backend_failure");
}

ErrorContext::ErrorContext(std::string operation, ErrorReason reason, std::source_location location)
    : operation_(std::move(operation)),
      reason_(reason),
      location_(location) {}

ArgumentError::ArgumentError(const std::string& message, std::string operation, ErrorReason reason,
                             std::source_location location)
    : std::invalid_argument(message),
      ErrorContext(std::move(operation), reason, location) {}

RuntimeError::RuntimeError(const std::string& message, std::string operation, ErrorReason reason,
                           std::source_location location)
    : std::runtime_error(message),
      ErrorContext(std::move(operation), reason, location) {}

DispatchError::DispatchError(std::string operation, ErrorReason reason, const std::string& message,
                             std::source_location location)
    : RuntimeError(message, std::move(operation), reason, location) {}

BackendLibraryError::BackendLibraryError(std::string library, std::int32_t status,
                                         std::string status_name, std::string operation,
                                         const std::string& message, std::source_location location)
    : RuntimeError(message, std::move(operation), ErrorReason::library_failure, location),
      library_(std::move(library)),
      status_(status),
      status_name_(std::move(status_name)) {}

SolverError::SolverError(std::string library, std::int32_t status, std::string detail,
                         std::string operation, const std::string& message, ErrorReason reason,
                         std::source_location location)
    : RuntimeError(message, std::move(operation), reason, location),
      library_(std::move(library)),
      status_(status),
      detail_(std::move(detail)) {}

OperationStopped::OperationStopped()
    : std::runtime_error("BackendExecutor::execute - the run was stopped") {}

// Out of line, so that each class has one type identity across shared objects.
ErrorContext::~ErrorContext() = default;
ArgumentError::~ArgumentError() = default;
RuntimeError::~RuntimeError() = default;
DispatchError::~DispatchError() = default;
BackendLibraryError::~BackendLibraryError() = default;
SolverError::~SolverError() = default;
OperationStopped::~OperationStopped() = default;

} // namespace Tessaline

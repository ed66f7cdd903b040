// SPDX-License-Identifier: Apache-2.0
#pragma once

// Failures that a caller may want to tell apart by their cause. Contract and usage failures are
// plain standard exceptions; the classes here carry a machine-readable reason besides.

#include "tessaline/export.h"

#include <cstdint>
#include <source_location>
#include <stdexcept>
#include <string>

namespace Tessaline {

enum class ErrorReason : std::int32_t {
    null_storage = 0,               ///< a handle built from null storage
    no_backend_available = 1,       ///< no implementation for the request
    unsupported_adaptation = 2,     ///< no way to bring an operand to a chosen implementation
    registry_contract_mismatch = 3, ///< a registration contradicts its operation's contract
    singular = 4,                   ///< a solver saw a singular matrix
    non_convergence = 5,            ///< an iteration did not converge
    library_failure = 6,            ///< a CUDA, cuBLAS or cuSOLVER call failed
    solver_failure = 7,             ///< a solver routine reported failure
};

/// The enumerator's name, and "backend_failure" for any other value.
TESSALINE_API const char* error_reason_name(ErrorReason reason);

/// What every failure with a reason carries beside its message.
class TESSALINE_API ErrorContext {
  public:
    ErrorContext(std::string operation, ErrorReason reason, std::source_location location);
    virtual ~ErrorContext();

    /// The operation or component that failed.
    const std::string& operation() const { return operation_; }
    ErrorReason reason() const { return reason_; }
    /// The place that raised.
    const std::source_location& location() const { return location_; }

  protected:
    ErrorContext(const ErrorContext&) = default;
    ErrorContext& operator=(const ErrorContext&) = default;

  private:
    std::string operation_;
    ErrorReason reason_;
    std::source_location location_;
};

/// A bad argument; raised for null storage.
class TESSALINE_API ArgumentError : public std::invalid_argument, public ErrorContext {
  public:
    ArgumentError(const std::string& message, std::string operation, ErrorReason reason,
                  std::source_location location = std::source_location::current());
    ~ArgumentError() override;
};

/// Base of the failures below; never raised by itself.
class TESSALINE_API RuntimeError : public std::runtime_error, public ErrorContext {
  public:
    ~RuntimeError() override;

  protected:
    RuntimeError(const std::string& message, std::string operation, ErrorReason reason,
                 std::source_location location);
};

/// No implementation, or no way to reach it.
class TESSALINE_API DispatchError : public RuntimeError {
  public:
    DispatchError(std::string operation, ErrorReason reason, const std::string& message,
                  std::source_location location = std::source_location::current());
    ~DispatchError() override;
};

/// A failed call into a device library; the reason is always library_failure.
class TESSALINE_API BackendLibraryError : public RuntimeError {
  public:
    BackendLibraryError(std::string library, std::int32_t status, std::string status_name,
                        std::string operation, const std::string& message,
                        std::source_location location = std::source_location::current());
    ~BackendLibraryError() override;

    const std::string& library() const { return library_; }
    std::int32_t status() const { return status_; }
    const std::string& status_name() const { return status_name_; }

  private:
    std::string library_;
    std::int32_t status_;
    std::string status_name_;
};

/// A solver that could not give an answer.
class TESSALINE_API SolverError : public RuntimeError {
  public:
    SolverError(std::string library, std::int32_t status, std::string detail, std::string operation,
                const std::string& message, ErrorReason reason,
                std::source_location location = std::source_location::current());
    ~SolverError() override;

    const std::string& library() const { return library_; }
    std::int32_t status() const { return status_; }
    const std::string& detail() const { return detail_; }

  private:
    std::string library_;
    std::int32_t status_;
    std::string detail_;
};

/// A run that ended early because its caller asked for that. It says nothing about the operands.
class TESSALINE_API OperationStopped : public std::runtime_error {
  public:
    OperationStopped();
    ~OperationStopped() override;
};

} // namespace Tessaline

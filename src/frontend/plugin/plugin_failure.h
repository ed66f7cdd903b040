// SPDX-License-Identifier: Apache-2.0
#pragma once

// How failures of a plugin's functions reach the caller of the runtime.

#include "tessaline/catalogue/execution_policy.h"
#include "tessaline/plugin.h"

#include <exception>
#include <optional>
#include <string>

namespace Tessaline::PluginDetail::Internal {

/// What a plugin reports during one call; the last report counts.
class ErrorCapture {
  public:
    /// Refers to this capture.
    tessaline_error_sink sink();

    tessaline_status status() const { return status_; }
    const std::string& message() const { return message_; }

    /// The function behind `tessaline_error_sink::report`; `user_data` is the capture.
    static void set(void* user_data, tessaline_status status, tessaline_string message) noexcept;

  private:
    tessaline_status status_ = TESSALINE_STATUS_OK;
    std::string message_;
};

/// Calls a function of a plugin. One that lets an exception out has failed with
/// TESSALINE_STATUS_INTERNAL_ERROR: the exception's class may live in the library and go with it.
template <typename Function, typename... Arguments>
tessaline_status call_plugin(ErrorCapture& capture, Function function, Arguments... arguments) {
    try {
        return function(arguments...);
    } catch (const std::exception& error) {
        ErrorCapture::set(&capture, TESSALINE_STATUS_INTERNAL_ERROR,
                          tessaline_string_from(error.what()));
    } catch (...) {
        // It says nothing.
    }
    return TESSALINE_STATUS_INTERNAL_ERROR;
}

/// Raises BackendLibraryError of the library "native plugin". `label` says which call failed,
/// `message` is what the plugin reported, empty for nothing.
[[noreturn]] void throw_plugin_error(const std::string& label, const std::string& message,
                                     tessaline_status status, std::optional<BackendKind> backend);

} // namespace Tessaline::PluginDetail::Internal

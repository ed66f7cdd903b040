// SPDX-License-Identifier: Apache-2.0
#include "frontend/plugin/plugin_failure.h"

#include "frontend/plugin/plugin_abi.h"
#include "tessaline/catalogue/errors.h"

namespace Tessaline::PluginDetail::Internal {

tessaline_error_sink ErrorCapture::sink() {
    return {sizeof(tessaline_error_sink), this, &ErrorCapture::set};
}

void ErrorCapture::set(void* user_data, tessaline_status status,
                       tessaline_string message) noexcept {
    auto& capture = *static_cast<ErrorCapture*>(user_data);
    capture.status_ = status;
    try {
        capture.message_ = copy_string(message, "plugin error message");
    } catch (...) {
        capture.message_ = "plugin supplied a malformed error message";
    }
}

void throw_plugin_error(const std::string& label, const std::string& message,
                        tessaline_status status, std::optional<BackendKind> backend) {
    std::string text = label;
    if (backend) {
        text += std::string(" on the ") + backend_kind_name(*backend) + " backend";
    }
    text += " failed with plugin status " + std::to_string(status);
    if (!message.empty()) {
        text += ": " + message;
    }
    throw BackendLibraryError("native plugin", status, status_name(status), label, text);
}

} // namespace Tessaline::PluginDetail::Internal

// SPDX-License-Identifier: Apache-2.0
#pragma once

// Drives the relay plugin: a test writes down what the plugin does while it is loaded.

#include "frontend/plugin/relay_plugin.h"
#include "tessaline/frontend/tessaline_context_builder.h"

#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <functional>
#include <string>
#include <vector>

namespace Tessaline::Testing {

inline tessaline_backend_operand
declared_operand(std::uint32_t role, std::uint32_t access,
                 std::uint32_t kind = TESSALINE_OPERAND_VECTOR,
                 std::uint32_t storage = TESSALINE_SCALAR_FLOAT32,
                 std::uint32_t complex_layout = TESSALINE_COMPLEX_LAYOUT_NONE,
                 std::uint32_t matrix_layout = TESSALINE_MATRIX_LAYOUT_NONE) {
    return {sizeof(tessaline_backend_operand),
            role,
            access,
            kind,
            TESSALINE_LOCATION_PAGEABLE_HOST,
            storage,
            complex_layout,
            matrix_layout,
            storage};
}

/// A float vector in, a float vector out.
inline std::vector<tessaline_backend_operand> vector_to_vector() {
    return {declared_operand(TESSALINE_ROLE_INPUT(0), TESSALINE_ACCESS_READ),
            declared_operand(TESSALINE_ROLE_OUTPUT(0), TESSALINE_ACCESS_WRITE)};
}

inline tessaline_status do_nothing(void*, const tessaline_kernel_invocation*,
                                   const tessaline_error_sink*) {
    return TESSALINE_STATUS_OK;
}

/// Refers to `operands` and `name`.
inline tessaline_kernel_spec declared_kernel(const std::vector<tessaline_backend_operand>& operands,
                                             tessaline_kernel_fn callback = do_nothing,
                                             void* user_data = nullptr,
                                             const char* name = "acme.f") {
    return {sizeof(tessaline_kernel_spec),
            {sizeof(tessaline_operation_id), tessaline_string_from(name), 1},
            TESSALINE_BACKEND_CPU_SIMD,
            operands.data(),
            operands.size(),
            callback,
            user_data};
}

/// What a plugin's initialisation gets.
struct Loading {
    const tessaline_host& host;
    tessaline_plugin_metadata& metadata;
    const tessaline_error_sink& sink;

    tessaline_status register_kernel(const tessaline_kernel_spec& spec) const {
        return host.register_kernel(host.context, &spec, &sink);
    }
};

/// One at a time: the plugin finds it through the environment.
class Relay {
  public:
    using Init = std::function<tessaline_status(const Loading&)>;

    static constexpr const char* path = TESSALINE_RELAY_PLUGIN;

    Relay() {
        current() = this;
        script_.init = [](const tessaline_host* host, tessaline_plugin_metadata* metadata,
                          const tessaline_error_sink* sink) {
            return current()->run({*host, *metadata, *sink});
        };
        char address[32];
        std::snprintf(address, sizeof(address), "%p", static_cast<void*>(&script_));
        setenv(RELAY_VARIABLE, address, 1);
    }
    Relay(const Relay&) = delete;
    Relay& operator=(const Relay&) = delete;
    ~Relay() { unsetenv(RELAY_VARIABLE); }

    /// Fills the metadata of a good plugin "acme", version "1.0", then does as it is told.
    void load(TessalineContextBuilder& builder, Init init) {
        init_ = std::move(init);
        builder.load_plugin(path);
    }

    /// Loads a plugin with one kernel "acme.f@1".
    void load_kernel(TessalineContextBuilder& builder,
                     const std::vector<tessaline_backend_operand>& operands,
                     tessaline_kernel_fn callback, void* user_data = nullptr) {
        load(builder, [&](const Loading& loading) {
            return loading.register_kernel(declared_kernel(operands, callback, user_data));
        });
    }

    /// Code of the plugin's library; set by the first load.
    tessaline_kernel_fn negate() const { return script_.negate; }

    int shutdowns() const { return shutdowns_; }

    static bool is_open() {
        void* const handle = dlopen(path, RTLD_NOW | RTLD_NOLOAD);
        if (handle != nullptr) {
            dlclose(handle);
        }
        return handle != nullptr;
    }

  private:
    static Relay*& current() {
        static Relay* relay = nullptr;
        return relay;
    }

    tessaline_status run(const Loading& loading) {
        tessaline_plugin_metadata& metadata = loading.metadata;
        metadata.abi_revision = TESSALINE_PLUGIN_ABI_REVISION;
        metadata.plugin_id = tessaline_string_from("acme");
        metadata.version = tessaline_string_from("1.0");
        metadata.shutdown = script_.shutdown;
        metadata.shutdown_user_data = &shutdowns_;
        return init_(loading);
    }

    RelayScript script_{};
    Init init_;
    int shutdowns_ = 0;
};

} // namespace Tessaline::Testing

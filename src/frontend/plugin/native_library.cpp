// SPDX-License-Identifier: Apache-2.0
#include "frontend/plugin/native_library.h"

#include <dlfcn.h>
#include <stdexcept>
#include <string>
#include <utility>

namespace Tessaline::PluginDetail::Internal {

std::shared_ptr<NativeLibrary> NativeLibrary::open(const std::filesystem::path& path) {
    const std::shared_ptr<NativeLibrary> library(new NativeLibrary(path));
    library->handle_ = dlopen(path.c_str(), RTLD_NOW);
    if (library->handle_ == nullptr) {
        const char* const reason = dlerror();
        throw std::runtime_error("failed to load native plugin '" + path.string() +
                                 "': " + (reason != nullptr ? reason : "unknown error"));
    }
    return library;
}

NativeLibrary::NativeLibrary(std::filesystem::path path) : path_(std::move(path)) {}

NativeLibrary::~NativeLibrary() {
    if (shutdown_ != nullptr) {
        try {
            shutdown_(shutdown_user_data_);
        } catch (...) {
            // Nobody is left to be told.
        }
    }
    if (handle_ != nullptr) {
        dlclose(handle_);
    }
}

void* NativeLibrary::symbol(const char* name) const {
    dlerror();
    void* const address = dlsym(handle_, name);
    if (const char* const reason = dlerror()) {
        throw std::runtime_error(std::string("failed to resolve '") + name +
                                 "' in native plugin '" + path_.string() + "': " + reason);
    }
    if (address == nullptr) {
        throw std::runtime_error(std::string("native plugin symbol is null: ") + name);
    }
    return address;
}

void NativeLibrary::set_shutdown(void* user_data, void (*shutdown)(void*)) {
    shutdown_user_data_ = user_data;
    shutdown_ = shutdown;
}

} // namespace Tessaline::PluginDetail::Internal

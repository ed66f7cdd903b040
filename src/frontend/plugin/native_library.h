// SPDX-License-Identifier: Apache-2.0
#pragma once

// One loaded shared object of a plugin.

#include <filesystem>
#include <memory>

namespace Tessaline::PluginDetail::Internal {

/// Shared by everything that may call into the library; closed with its last owner.
class NativeLibrary {
  public:
    /// Raises std::runtime_error with the dynamic linker's reason.
    static std::shared_ptr<NativeLibrary> open(const std::filesystem::path& path);

    NativeLibrary(const NativeLibrary&) = delete;
    NativeLibrary& operator=(const NativeLibrary&) = delete;
    /// Runs the shutdown function and closes the library.
    ~NativeLibrary();

    /// The address of a symbol. Raises std::runtime_error for one that is missing or null.
    void* symbol(const char* name) const;

    /// What to call before the library is closed; `shutdown` may be null.
    void set_shutdown(void* user_data, void (*shutdown)(void*));

  private:
    explicit NativeLibrary(std::filesystem::path path);

    void* handle_ = nullptr;
    std::filesystem::path path_;
    void* shutdown_user_data_ = nullptr;
    void (*shutdown_)(void*) = nullptr;
};

} // namespace Tessaline::PluginDetail::Internal

// SPDX-License-Identifier: Apache-2.0
#pragma once

// The body of a parallel loop as the runtime passes it on: a reference to a callable of any type.

#include <concepts>
#include <cstddef>
#include <memory>
#include <type_traits>

namespace Tessaline {

/// Objects to call with a range; a plain function goes through std::function.
template <typename Body>
concept CpuChunkCallable =
    std::is_object_v<Body> && std::invocable<Body&, std::size_t, std::size_t>;

/// Refers to a callable of (begin, end) without owning it; the callable outlives the reference.
class CpuChunkBody {
  public:
    template <typename Body>
    requires CpuChunkCallable<Body> &&
        (!std::same_as<std::remove_const_t<Body>, CpuChunkBody>)explicit CpuChunkBody(Body& body)
        : object_(const_cast<void*>(static_cast<const void*>(std::addressof(body)))),
          call_([](void* object, std::size_t begin, std::size_t end) {
              (*static_cast<Body*>(object))(begin, end);
          }) {}

    void operator()(std::size_t begin, std::size_t end) const { call_(object_, begin, end); }

  private:
    void* object_;
    void (*call_)(void*, std::size_t, std::size_t);
};

} // namespace Tessaline

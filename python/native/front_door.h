// SPDX-License-Identifier: Apache-2.0
#pragma once

// The short way from a function of the package to its operation: for ordinary arrays everything
// that a call needs happens in one native function. Whatever is unusual goes to the function of
// Python that knows how to convert, to explain and to refuse.

#include "native_context.h"

#include <nanobind/nanobind.h>

#include <array>
#include <cstddef>

namespace Tessaline::Python {

/// What all functions of the package share: how they find their context, and how their failures
/// are explained.
class FrontDoor {
  public:
    /// `entered` is the context variable with the tuple of entered contexts, `context_class` the
    /// class of contexts, whose instances have their native one as `_native`, `find_default` makes
    /// or finds the default context, and `explain` turns a signature and a failure of the native
    /// module into the exception to raise.
    FrontDoor(nanobind::object entered, nanobind::object context_class,
              nanobind::object find_default, nanobind::object explain);

    /// A Python function of `signature`, called by position: the operands, a size for each letter
    /// that no operand has, then `out`, `dtype` and `context`, which may be None. Calls that are
    /// not of the ordinary form go to `unusual` as they are. Raises ValueError for a signature of
    /// another form than one plain result and one or two arguments before `out`.
    /// With `real_result` the real part of a complex scalar is the result.
    nanobind::object function(nanobind::object signature, nanobind::object unusual,
                              bool real_result);

    std::array<nanobind::object*, 5> held() {
        return {&entered_, &context_class_, &find_default_, &explain_, &default_};
    }

  private:
    friend class PackageFunction;

    /// The native context of a call and the Python object that keeps it alive; null for a `given`
    /// one that is no context.
    const NativeContext* context(nanobind::handle given, nanobind::object& owner) const;

    nanobind::object entered_;
    nanobind::object context_class_;
    nanobind::object find_default_;
    nanobind::object explain_;
    nanobind::object native_name_;
    mutable nanobind::object default_; ///< once it was needed
    std::size_t function_count_ = 0;
};

void define_front_door(nanobind::module_& module);

} // namespace Tessaline::Python

// SPDX-License-Identifier: Apache-2.0
#include "execution/default_floating_environment.h"

namespace Tessaline {

namespace {

// How many scopes this thread is inside of.
constinit thread_local unsigned scopes = 0;

} // namespace

DefaultFloatingEnvironment::DefaultFloatingEnvironment()
    : mxcsr_(_mm_getcsr()),
      sets_x87_(x87_control() != default_x87_control) {
    if (sets_x87_) {
        asm volatile("fnstenv %0" : "=m"(x87_));
    }
    restore_default();
    ++scopes;
}

DefaultFloatingEnvironment::~DefaultFloatingEnvironment() {
    restore_default();
    if (sets_x87_) {
        asm volatile("fldenv %0" ::"m"(x87_) : "memory");
    }
    _mm_setcsr(mxcsr_);
    --scopes;
}

bool DefaultFloatingEnvironment::restored_within_scope() {
    if (scopes == 0) {
        return false;
    }
    restore_default();
    return true;
}

void DefaultFloatingEnvironment::restore_default() {
    // Without a look at what it was, which takes longer.
    _mm_setcsr(default_mxcsr);
    if (x87_control() != default_x87_control) {
        // A load of the control word would raise what is pending and not masked.
        asm volatile("fninit" ::: "memory");
    }
}

} // namespace Tessaline

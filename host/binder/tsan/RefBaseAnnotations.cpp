// SPDX-License-Identifier: Apache-2.0
//
// Reference counts, announced to the thread sanitizer.
//
// Problem: the platform's libutils is not built with the sanitizer, which so cannot see that its
// counts order threads, and takes a destructor after the last decStrong() for a race with what
// other holders did before theirs.
//
//      holder A    write, decStrong ── release ──┐
//      holder B    decStrong: the last one  ◀────┴── acquire (onLastStrongRef) ── destructor
//
// Usage: linked into every program of the sanitizer's build, ahead of libutils, whose functions
// these stand before and call. Limits: a class that overrides onLastStrongRef() without calling
// RefBase's is not covered.
#include <dlfcn.h>
#include <log/log.h>
#include <sanitizer/tsan_interface.h>
#include <utils/RefBase.h>

namespace android {
namespace {

/** The same function in the library behind this program. */
template <typename Function>
Function behind(const char* symbol) {
    void* found = dlsym(RTLD_NEXT, symbol);
    LOG_ALWAYS_FATAL_IF(found == nullptr, "libutils has no %s", symbol);
    return reinterpret_cast<Function>(found);
}

using Refs = RefBase::weakref_type;

}  // namespace

void RefBase::incStrong(const void* id) const {
    static const auto next =
            behind<void (*)(const RefBase*, const void*)>("_ZNK7android7RefBase9incStrongEPKv");
    Refs* refs = getWeakRefs();
    __tsan_release(refs);
    next(this, id);
    __tsan_acquire(refs);
}

void RefBase::decStrong(const void* id) const {
    static const auto next =
            behind<void (*)(const RefBase*, const void*)>("_ZNK7android7RefBase9decStrongEPKv");
    __tsan_release(getWeakRefs());
    next(this, id);
}

void RefBase::onLastStrongRef(const void* /*id*/) {
    __tsan_acquire(getWeakRefs());
}

void RefBase::onLastWeakRef(const void* /*id*/) {
    __tsan_acquire(getWeakRefs());
}

void RefBase::weakref_type::incWeak(const void* id) {
    static const auto next =
            behind<void (*)(Refs*, const void*)>("_ZN7android7RefBase12weakref_type7incWeakEPKv");
    __tsan_release(this);
    next(this, id);
    __tsan_acquire(this);
}

void RefBase::weakref_type::decWeak(const void* id) {
    static const auto next =
            behind<void (*)(Refs*, const void*)>("_ZN7android7RefBase12weakref_type7decWeakEPKv");
    __tsan_release(this);
    next(this, id);
}

bool RefBase::weakref_type::attemptIncStrong(const void* id) {
    static const auto next = behind<bool (*)(Refs*, const void*)>(
            "_ZN7android7RefBase12weakref_type16attemptIncStrongEPKv");
    __tsan_release(this);
    const bool held = next(this, id);
    __tsan_acquire(this);
    return held;
}

}  // namespace android

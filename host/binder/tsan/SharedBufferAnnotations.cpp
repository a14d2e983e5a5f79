// SPDX-License-Identifier: Apache-2.0
//
// Counts of string storage, announced to the thread sanitizer.
//
// Problem: as in RefBaseAnnotations.cpp. Copies of a String16 or String8 share their storage; who
// gives it back last frees it, which looks like a race with what other holders read before.
//
// Usage: linked into every program of the sanitizer's build, ahead of libutils. The header of the
// class is not installed, so its two functions are named by their symbols. Limits: storage that is
// written in place by a holder left alone is not covered.
#include <dlfcn.h>
#include <log/log.h>
#include <sanitizer/tsan_interface.h>

#include <cstdint>

namespace {

/** The flag that leaves freeing to the caller. */
constexpr uint32_t kKeepStorage = 1;

}  // namespace

extern "C" {

void deallocStorage(const void* buffer) asm("_ZN7android12SharedBuffer7deallocEPKS0_");
int32_t releaseStorage(const void* buffer,
                       uint32_t flags) asm("_ZNK7android12SharedBuffer7releaseEj");

/** Returns the count before. */
int32_t releaseStorage(const void* buffer, uint32_t flags) {
    using Release = int32_t (*)(const void*, uint32_t);
    static const auto next =
            reinterpret_cast<Release>(dlsym(RTLD_NEXT, "_ZNK7android12SharedBuffer7releaseEj"));
    LOG_ALWAYS_FATAL_IF(next == nullptr, "libutils has no SharedBuffer::release()");
    void* const order = const_cast<void*>(buffer);
    __tsan_release(order);
    const int32_t before = next(buffer, flags | kKeepStorage);
    if (before != 1) return before;
    __tsan_acquire(order);
    if ((flags & kKeepStorage) == 0) deallocStorage(buffer);
    return before;
}
}

// SPDX-License-Identifier: Apache-2.0
#include "OwnPid.h"

#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <new>

namespace binderhost {
namespace {

using Remembered = std::atomic<pid_t>;

/** A page of its own that a child finds zeroed; null where the kernel cannot do that. */
Remembered* makeRemembered() {
    const auto size = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    void* page = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS,
                      /*fd=*/-1, /*offset=*/0);
    if (page == MAP_FAILED) return nullptr;
    if (madvise(page, size, MADV_WIPEONFORK) != 0) {
        munmap(page, size);
        return nullptr;
    }
    return new (page) Remembered(0);
}

}  // namespace

pid_t ownPid() {
    static Remembered* const kRemembered = makeRemembered();
    if (kRemembered == nullptr) return getpid();
    pid_t pid = kRemembered->load(std::memory_order_relaxed);
    if (pid == 0) {
        pid = getpid();
        kRemembered->store(pid, std::memory_order_relaxed);
    }
    return pid;
}

}  // namespace binderhost

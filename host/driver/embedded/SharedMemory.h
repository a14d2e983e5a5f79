// SPDX-License-Identifier: Apache-2.0
//
// SharedMemory: a mapping of a memory file as one object, gone from forked children.
#pragma once

#include <sys/mman.h>

#include <cstddef>

#include "OwnPid.h"

namespace binderhost {

template <typename T>
class SharedMemory {
public:
    SharedMemory() = default;
    /** Maps the file, which must be no shorter than T. Not ok() when the kernel refuses. */
    SharedMemory(int file, int protection) {
        void* at = mmap(nullptr, sizeof(T), protection, MAP_SHARED, file, /*offset=*/0);
        if (at == MAP_FAILED) return;
        if (madvise(at, sizeof(T), MADV_DONTFORK) != 0) {
            munmap(at, sizeof(T));
            return;
        }
        mMapping = at;
    }
    ~SharedMemory() {
        // A forked child may have something of its own there by now.
        if (mMapping && mOwner == ownPid()) munmap(mMapping, sizeof(T));
    }
    SharedMemory(const SharedMemory&) = delete;
    SharedMemory& operator=(const SharedMemory&) = delete;

    [[nodiscard]] bool ok() const { return mMapping != nullptr; }
    [[nodiscard]] T* operator->() const { return static_cast<T*>(mMapping); }

private:
    void* mMapping = nullptr;
    pid_t mOwner = ownPid();
};

}  // namespace binderhost

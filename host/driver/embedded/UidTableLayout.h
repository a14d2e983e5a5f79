// SPDX-License-Identifier: Apache-2.0
//
// The table of assigned uids: what the hub writes and everybody may read.
//
// Problem: whoever knows a process by its pid only asks for its uid at every decision, and may not
// ask a socket each time. So the hub hands out a memory file that only it can write.
//
//      | bucket 0 | bucket 1 | ...      a process's bucket is its pid modulo their number
//        8 keys: uid << 32 | pid, 0 where there is none; beside each the process's folder
//
// The folder is the inode number of /proc/PID, which the hub holds open: it names that very process
// for as long as the row stands, and no later one of the same pid. So a row that outlives its
// process for a moment is nobody's. A reader takes key, folder and key again: an unchanged key
// means that both belong together, since the hub clears a key before it changes the folder beside
// it.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace binderhost::uidtable {

inline constexpr size_t kBuckets = 4096;
/** Pids follow each other, so a bucket has more than one only beyond 4096 processes. */
inline constexpr size_t kRows = 8;

struct Bucket {
    alignas(64) std::array<std::atomic<uint64_t>, kRows> keys;
    std::array<std::atomic<uint64_t>, kRows> folders;
};

struct Table {
    std::array<Bucket, kBuckets> buckets;
};

static_assert(std::atomic<uint64_t>::is_always_lock_free);

[[nodiscard]] constexpr uint64_t keyOf(uint32_t pid, uint32_t uid) {
    return uint64_t{uid} << 32 | pid;
}
[[nodiscard]] constexpr uint32_t pidOf(uint64_t key) {
    return static_cast<uint32_t>(key);
}
[[nodiscard]] constexpr uint32_t uidOf(uint64_t key) {
    return static_cast<uint32_t>(key >> 32);
}
[[nodiscard]] constexpr size_t bucketOf(uint32_t pid) {
    return pid % kBuckets;
}

}  // namespace binderhost::uidtable

// SPDX-License-Identifier: Apache-2.0
//
// What a process shares with the hub to send one-way calls without waiting for it.
//
//      Letters (the process writes)                     Room (only the hub can write)
//      | written, rung | ring of records |              | taken | limit of each handle |
//
//      process: limit left? ring left? ─▶ record ─▶ written ─▶ rung 0 -> 1? ring the bell (eventfd)
//      hub:     bell ─▶ rung = 0 ─▶ takes records up to written ─▶ taken, limit
//
// All counts are of bytes since the beginning and never wrap. A process may send to a handle until
// what it has sent reaches the handle's limit: the hub has then promised to take it. It takes the
// promise back (limit = received) when the receiver dies, its space runs short or the handle goes;
// the next call then goes the slow way and meets the error that it should.
//
// A record never wraps: a filler (handle 0) leads to the start of the ring. Records are aligned to
// eight bytes. Its stamp is of CLOCK_MONOTONIC: what was sent after another call had returned, in
// whatever process, has a later one.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace binderhost::outbox {

/** A thousand small notices. */
inline constexpr uint64_t kRingBytes = 256 * 1024;
/** Larger calls are seldom, and their copying outweighs a wait. */
inline constexpr uint64_t kMaxData = 4096;
/** Handles from this one on have no limit, and so no letters. */
inline constexpr uint32_t kHandles = 4096;
/** Of unseen letters that the hub promises to take for one handle. */
inline constexpr uint64_t kPromise = 16 * 1024;

struct Filler {
    uint32_t size = 0;  // of the whole record, filler and padding included
    uint32_t handle = 0;
};

struct Record {
    uint32_t size = 0;
    uint32_t handle = 0;
    uint64_t stamp = 0;  // nanoseconds
    uint32_t code = 0;
    uint32_t flags = 0;
    uint32_t dataSize = 0;
    uint32_t reserved = 0;
};

struct Letters {
    std::atomic<uint64_t> written;
    /** 1: the hub knows, or is being told, that there is something to take. */
    std::atomic<uint32_t> rung;
    alignas(64) uint8_t ring[kRingBytes];
};

struct Room {
    std::atomic<uint64_t> taken;
    std::atomic<uint64_t> limit[kHandles];
};

static_assert(std::atomic<uint64_t>::is_always_lock_free);
static_assert(std::atomic<uint32_t>::is_always_lock_free);
static_assert(offsetof(Letters, ring) % 8 == 0 && kRingBytes % 8 == 0);

[[nodiscard]] constexpr uint64_t recordSize(uint64_t dataSize) {
    return sizeof(Record) + ((dataSize + 7) & ~uint64_t{7});
}

/** What is left of a limit; none when it was taken back below what was sent. */
[[nodiscard]] constexpr uint64_t left(uint64_t limit, uint64_t sent) {
    return limit > sent ? limit - sent : 0;
}

}  // namespace binderhost::outbox

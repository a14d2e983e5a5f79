// SPDX-License-Identifier: Apache-2.0
//
// Outbox: one-way calls of this process that need no answer from the hub.
//
// Problem: a one-way call through a socket waits until the hub has accepted it, so that telling a
// thousand listeners is a thousand round trips. Where the hub has promised to accept, the call is
// put into shared memory instead and is complete (embedded/OutboxLayout.h). All threads share one
// outbox, so that their calls arrive in the order in which they were made.
#pragma once

#include <android-base/thread_annotations.h>
#include <android-base/unique_fd.h>
#include <linux/android/binder.h>

#include <memory>
#include <mutex>
#include <vector>

#include "ForkGuard.h"
#include "embedded/OutboxLayout.h"
#include "embedded/SharedMemory.h"

namespace binderhost {

class Outbox {
public:
    /** Of the hub's three descriptors: letters, room, bell. Null when they cannot be used. */
    [[nodiscard]] static std::unique_ptr<Outbox> open(
            std::vector<android::base::unique_fd> descriptors);

    /** One that may be posted at all: one-way, without objects, small. */
    [[nodiscard]] static bool suits(const binder_transaction_data& call);

    /** Any thread. False: nothing was promised, or the ring is full; ask the hub. */
    [[nodiscard]] bool post(const binder_transaction_data& call);

private:
    Outbox(int letters, int room, android::base::unique_fd bell);
    [[nodiscard]] bool hasRoomLocked(uint32_t handle, uint64_t size, uint64_t filler) const
            REQUIRES(mLock);
    [[nodiscard]] uint8_t* placeLocked() const REQUIRES(mLock);
    void writeLocked(const binder_transaction_data& call, uint64_t size, uint64_t filler)
            REQUIRES(mLock);

    const SharedMemory<outbox::Letters> mLetters;
    const SharedMemory<const outbox::Room> mRoom;
    android::base::unique_fd mBell;
    ForkGuard mGuard{&mBell};
    // Held from the stamp to the end of the record: the order of calls is that of their records.
    std::mutex mLock;
    uint64_t mWritten GUARDED_BY(mLock) = 0;
    /** Bytes sent to each handle. */
    std::vector<uint64_t> mSent GUARDED_BY(mLock);
};

}  // namespace binderhost

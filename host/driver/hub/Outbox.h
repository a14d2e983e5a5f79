// SPDX-License-Identifier: Apache-2.0
//
// Outbox: the hub's side of a process's shared memory for one-way calls (embedded/OutboxLayout.h).
//
// Nothing in the letters is trusted: each record is copied out before it is looked at, and counts
// that cannot be make it broken for good. The uid of its letters is the one that was attested when
// it was opened, which is why only a process that can have no other gets one (hub/Identity.h).
#pragma once

#include <android-base/unique_fd.h>
#include <sys/types.h>

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "embedded/OutboxLayout.h"
#include "embedded/SharedMemory.h"

namespace binderhost::hub {

class Outbox {
public:
    /** Null when the kernel refuses. The two descriptors, letters and room, are the process's. */
    [[nodiscard]] static std::unique_ptr<Outbox> make(
            uid_t uid, std::array<android::base::unique_fd, 2>* descriptors);

    struct Letter {
        outbox::Record head;
        std::span<const uint8_t> data;  // valid until the peek() after take()
    };

    /**
     * From now on the bell rings for what is written. What is written by then is what there is: a
     * process that never stops writing cannot keep the hub.
     */
    void listen();
    /** The oldest letter, which stays until take(). Null: there is none, or it is broken. */
    [[nodiscard]] const Letter* peek();
    void take();
    [[nodiscard]] bool broken() const { return mBroken; }
    [[nodiscard]] uid_t uid() const { return mUid; }

    /**
     * Promises to take some more for the handle, or nothing beyond what is on its way. Returns how
     * much may come now, which is the receiver's to bear; nothing for a handle beyond the table.
     */
    uint64_t promise(uint32_t handle, bool more);
    /** The handle is given back: no letter to it is on its way, and none may come. */
    void forget(uint32_t handle);
    /** What promise() returned last for the handle. */
    [[nodiscard]] uint64_t charged(uint32_t handle) const;

private:
    struct Account {
        uint64_t received = 0;
        uint64_t highest = 0;  // limit that the process may have seen
        uint64_t charged = 0;  // to the receiver
    };

    Outbox(uid_t uid, int letters, int room);
    /** Copies the record at the front; false when there is none. */
    [[nodiscard]] bool copyFront();
    [[nodiscard]] bool breakOff();

    const uid_t mUid;
    const SharedMemory<outbox::Letters> mLetters;
    const SharedMemory<outbox::Room> mRoom;
    /** Up to here there is something. */
    uint64_t mWritten = 0;
    uint64_t mTaken = 0;
    bool mBroken = false;
    std::vector<Account> mAccounts;
    std::vector<uint8_t> mCopy;
    std::optional<Letter> mFront;
};

}  // namespace binderhost::hub

// SPDX-License-Identifier: Apache-2.0
//
// Session: what all threads of a process share of their tie to the hub.
//
// Kept alive by the driver and by each thread's channel; the process connection ends with the
// driver (leave()), and with it, for the hub, the process.
#pragma once

#include <android-base/thread_annotations.h>
#include <android-base/unique_fd.h>
#include <sys/types.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "ForkGuard.h"
#include "embedded/BufferTable.h"
#include "embedded/Frame.h"
#include "embedded/Outbox.h"

namespace binderhost {

class Session {
public:
    /** Null with a message. */
    [[nodiscard]] static std::shared_ptr<Session> open(const std::string& path, std::string* error);

    /** A new connection for the calling thread. 0 or a negative errno. */
    [[nodiscard]] int joinThread(android::base::unique_fd* out) const;

    /** A request of the process, any thread. The hub's status, or -ECONNREFUSED. */
    [[nodiscard]] int control(frame::Kind kind, uint32_t value);
    void leave();

    /**
     * For a one-way call that suits it, any thread; null where there is none. Opened at the second
     * such call: most processes make none, and tools make one.
     */
    [[nodiscard]] Outbox* outbox();

    /** False in a forked child, which has no part in its parent's session. */
    [[nodiscard]] bool ours() const;

    [[nodiscard]] BufferTable& buffers() { return mBuffers; }
    /** Of the process that opened it. */
    [[nodiscard]] pid_t pid() const { return mPid; }
    /** Its calls must say which of its uids is in effect. */
    [[nodiscard]] bool claims() const { return mClaims; }
    [[nodiscard]] uint64_t id() const { return mId; }
    [[nodiscard]] const std::string& path() const { return mPath; }

private:
    void openOutbox();
    Session(std::string path, android::base::unique_fd place, android::base::unique_fd process,
            const frame::Answer& answer);

    const std::string mPath;
    const android::base::unique_fd mPlace;
    const frame::Token mToken;
    const bool mClaims;
    const pid_t mPid;
    const uint64_t mId;
    BufferTable mBuffers;
    // Held for a request and its answer, so that two threads' answers are not mixed up.
    std::mutex mLock;
    android::base::unique_fd mProcess GUARDED_BY(mLock);
    ForkGuard mGuard{&mProcess};
    std::unique_ptr<Outbox> mOwnOutbox GUARDED_BY(mLock);
    /** mOwnOutbox, for those who do not hold the lock: made once, and not taken back. */
    std::atomic<Outbox*> mOutbox{nullptr};
    std::atomic<uint32_t> mOutboxCalls{0};
};

}  // namespace binderhost

// SPDX-License-Identifier: Apache-2.0
//
// Blocked call: a call on a thread of its own that is expected to wait for a lock.
//
// Usage, while the lock is held:
//
//      call = std::make_unique<BlockedCall>([&] { tracker->getClientsCurrentlyRendering(); });
//      EXPECT_FALSE(call->endsNow());
//
// Limits: one that does wait is never mistaken for one that does not. The other way round it may
// happen on a machine so busy that the thread gets no turn.
#pragma once

#include <atomic>
#include <functional>
#include <thread>
#include <utility>

namespace NQS::OS {

class BlockedCall {
public:
    explicit BlockedCall(std::function<void()> call)
          : mThread([this, call = std::move(call)] {
                mIsStarted = true;
                call();
                mIsOver = true;
            }) {}
    /** Waits for the call: the lock must be free, or become so. */
    ~BlockedCall() { mThread.join(); }
    BlockedCall(const BlockedCall&) = delete;
    BlockedCall& operator=(const BlockedCall&) = delete;

    /** Gives the call many turns once it has begun; whether it came to its end. */
    bool endsNow() const {
        while (!mIsStarted)
            std::this_thread::yield();
        for (int turn = 0; turn < kTurns && !mIsOver; ++turn)
            std::this_thread::yield();
        return mIsOver;
    }

private:
    static constexpr int kTurns = 2000;

    std::atomic<bool> mIsStarted = false;
    std::atomic<bool> mIsOver = false;
    std::thread mThread;
};

}  // namespace NQS::OS

// SPDX-License-Identifier: Apache-2.0
//
// SIGINT, SIGQUIT, SIGTERM, SIGHUP and SIGPIPE as something to wait for, so that a session that is
// told to end, or whose reader has gone away, takes down what it started. While this object lives
// they are blocked in the thread that made it and in those started after; one at a time.
#pragma once

#include <android-base/unique_fd.h>
#include <signal.h>

namespace sim {

class StopSignals {
public:
    StopSignals();
    ~StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    /** Readable when one has arrived. */
    [[nodiscard]] int fd() const { return mFd.get(); }

    /** Readable when one other than SIGINT has arrived; it is taken by the other means. */
    [[nodiscard]] int endingsFd() const { return mEndingsFd.get(); }

    /** Whether one other than SIGINT has been taken. */
    [[nodiscard]] bool hasEnding() const { return mHasEnding; }

    /** The one that has arrived; 0 when none has. Takes it. */
    [[nodiscard]] int take();
    /** Throws SessionStopped when one has arrived. */
    void heed();
    /** Waits until a descriptor takes a write, as one does whose reader has gone; likewise. */
    void awaitWritable(int fd);

private:
    sigset_t mBefore;
    android::base::unique_fd mFd;
    android::base::unique_fd mEndingsFd;
    bool mHasEnding = false;
};

}  // namespace sim

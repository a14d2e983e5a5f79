// SPDX-License-Identifier: Apache-2.0
//
// SIGINT, SIGQUIT, SIGTERM and SIGHUP as something to wait for, so that a session that is told to
// end takes down what it started. While this object lives they are blocked in the thread that made
// it and in those started after; one at a time.
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

    /** The one that has arrived; 0 when none has. Takes it. */
    [[nodiscard]] int take();

private:
    sigset_t mBefore;
    android::base::unique_fd mFd;
};

}  // namespace sim

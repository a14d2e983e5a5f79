// SPDX-License-Identifier: Apache-2.0
//
// Holds a process most of the time: stopped for a while, running for a millisecond, and so on.
//
//      STOP ── held ──▶ CONT ── 1 ms ──▶ STOP ...      until the object goes, or the process ends
//
// Signals go through a descriptor of the process, so none reaches another that has got its pid.
//
// Threads: one of its own, in which every signal is blocked. mMutex guards the wish to end.
#pragma once

#include <android-base/thread_annotations.h>
#include <android-base/unique_fd.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace sim {

class SlowMotion {
public:
    /** Takes over a descriptor as pidfd_open() makes it. A thread that cannot be started is a
     *  std::system_error. */
    SlowMotion(android::base::unique_fd process, std::chrono::milliseconds held);
    /** Afterwards the process runs. */
    ~SlowMotion();
    SlowMotion(const SlowMotion&) = delete;
    SlowMotion& operator=(const SlowMotion&) = delete;

private:
    void run();
    /** False when the process has ended. */
    [[nodiscard]] bool signal(int number) const;
    /** True when this object is to end. */
    // It lets go of the mutex through a lock type that the analysis does not follow.
    [[nodiscard]] bool wait(std::chrono::milliseconds time) NO_THREAD_SAFETY_ANALYSIS;

    const android::base::unique_fd mProcess;
    const std::chrono::milliseconds mHeld;
    std::mutex mMutex;  // guards the wish to end
    std::condition_variable mEndWanted;
    bool mIsToEnd GUARDED_BY(mMutex) = false;
    std::thread mThread;
};

}  // namespace sim

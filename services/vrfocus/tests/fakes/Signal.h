// SPDX-License-Identifier: Apache-2.0
//
// Signal: something that happens a number of times, and can be waited for. Any thread.
#pragma once

#include <android-base/thread_annotations.h>
#include <chrono>
#include <condition_variable>
#include <mutex>

namespace NQS::OS {

class Signal {
public:
    void raise() EXCLUDES(mMutex) {
        const std::lock_guard<std::mutex> lock(mMutex);
        ++mCount;
        mRaised.notify_all();
    }

    int count() const EXCLUDES(mMutex) {
        const std::lock_guard<std::mutex> lock(mMutex);
        return mCount;
    }

    /** Waits until it was raised that often in all; false when that takes too long. */
    // The analysis does not follow the lock into a condition variable.
    [[nodiscard]] bool await(int count = 1) NO_THREAD_SAFETY_ANALYSIS {
        std::unique_lock<std::mutex> lock(mMutex);
        const auto deadline = std::chrono::steady_clock::now() + kPatience;
        while (mCount < count) {
            if (mRaised.wait_until(lock, deadline) == std::cv_status::timeout) break;
        }
        return mCount >= count;
    }

private:
    static constexpr std::chrono::seconds kPatience{30};

    mutable std::mutex mMutex;
    std::condition_variable mRaised;
    int mCount GUARDED_BY(mMutex) = 0;
};

}  // namespace NQS::OS

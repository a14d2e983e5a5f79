// SPDX-License-Identifier: Apache-2.0
//
// Calls with a deadline: a two-way call waits for as long as the service's process stands still;
// a tool that looks at a sick system must not.
//
// The call is made on a thread of its own, which is left behind when the time is over. It ends when
// the call does; a program that may have such threads ends by _exit().
#pragma once

#include <android-base/thread_annotations.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

namespace tools {
namespace internal {

/** Where a call leaves its result; owned by the waiting and the calling thread together. */
template <typename T>
class Slot {
public:
    void put(T result) {
        std::lock_guard lock(mLock);
        mResult = std::move(result);
        mFilled.notify_one();
    }

    // The analysis does not follow std::unique_lock, which the condition variable needs.
    std::optional<T> take(std::chrono::steady_clock::time_point deadline)
            NO_THREAD_SAFETY_ANALYSIS {
        std::unique_lock lock(mLock);
        while (!mResult && mFilled.wait_until(lock, deadline) == std::cv_status::no_timeout)
            continue;
        return std::exchange(mResult, std::nullopt);
    }

private:
    /** Guards mResult. */
    std::mutex mLock;
    std::condition_variable mFilled;
    std::optional<T> mResult GUARDED_BY(mLock);
};

}  // namespace internal

/**
 * The call's result, or nothing when it takes longer than `patience`. The call must own all that it
 * uses: it may go on for ever. Throws std::system_error when no thread can be made.
 */
template <typename T>
[[nodiscard]] std::optional<T> callWithDeadline(std::function<T()> call,
                                                std::chrono::milliseconds patience) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    const auto slot = std::make_shared<internal::Slot<T>>();
    std::thread caller([slot, call = std::move(call)]() mutable {
        T result = call();
        // What the call holds is let go before anybody can see that it is over.
        call = nullptr;
        slot->put(std::move(result));
    });
    std::optional<T> result = slot->take(deadline);
    if (result) {
        caller.join();
    } else {
        caller.detach();
    }
    return result;
}

}  // namespace tools

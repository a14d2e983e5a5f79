// SPDX-License-Identifier: Apache-2.0
//
// Watched call: a call on a thread of its own, and whether it waits for a lock or comes to its end.
//
// Usage, while the lock is held:
//
//      call = std::make_unique<WatchedCall>([&] { tracker->getClientsCurrentlyRendering(); });
//      EXPECT_TRUE(call->waitsIn(*tracker));
//
// The kernel says what a sleeping thread sleeps in, so both answers are seen and not guessed from
// the time that has passed.
//
// Limits: of several locks in one object it does not tell which. Needs /proc/self/task/TID/syscall,
// which a process may read of its own threads.
#pragma once

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <fstream>
#include <functional>
#include <ios>
#include <string>
#include <thread>
#include <utility>

#include "Signal.h"

namespace NQS::OS {

class WatchedCall {
public:
    explicit WatchedCall(std::function<void()> call)
          : mThread([this, call = std::move(call)] {
                mThreadId = gettid();
                call();
                mOver.raise();
            }) {}
    /** Waits for the call: what it waits for must come. */
    ~WatchedCall() { mThread.join(); }
    WatchedCall(const WatchedCall&) = delete;
    WatchedCall& operator=(const WatchedCall&) = delete;

    /** Waits until the call sleeps on a lock that is a part of the object; false if it ends. */
    template <typename Object>
    [[nodiscard]] bool waitsIn(const Object& object) const {
        return sleepsIn(SYS_futex, reinterpret_cast<uintptr_t>(&object), sizeof(Object));
    }
    /** The same for any lock, and for the end of a thread. */
    [[nodiscard]] bool waits() const { return sleepsIn(SYS_futex, /*begin=*/0, UINTPTR_MAX); }
    /** Waits until the call sleeps in a write to the descriptor; false if it ends. */
    [[nodiscard]] bool writesTo(int fd) const {
        return sleepsIn(SYS_write, static_cast<uintptr_t>(fd), /*size=*/1);
    }
    /** Waits for the end of the call; false if that takes too long. */
    [[nodiscard]] bool ends() { return mOver.await(); }

private:
    static constexpr std::chrono::seconds kPatience{30};

    /** In this system call, the first argument of which is one of `size` values from `begin`. */
    bool sleepsIn(long wanted, uintptr_t begin, uintptr_t size) const {
        const auto deadline = std::chrono::steady_clock::now() + kPatience;
        while (mOver.count() == 0 && std::chrono::steady_clock::now() < deadline) {
            std::ifstream file("/proc/self/task/" + std::to_string(mThreadId) + "/syscall");
            long call = -1;
            uintptr_t argument = 0;
            // A thread that does not sleep is no number but "running".
            file >> call >> std::hex >> argument;
            if (file && call == wanted && argument - begin < size) return true;
            std::this_thread::yield();
        }
        return false;
    }

    std::atomic<pid_t> mThreadId = 0;
    Signal mOver;
    std::thread mThread;
};

}  // namespace NQS::OS

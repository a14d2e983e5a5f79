// SPDX-License-Identifier: Apache-2.0
// Holds a process most of the time.
#include "process/SlowMotion.h"

#include <pthread.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <utility>

namespace sim {
namespace {

constexpr std::chrono::milliseconds kRunning(1);

}  // namespace

SlowMotion::SlowMotion(android::base::unique_fd process, std::chrono::milliseconds held)
      : mProcess(std::move(process)), mHeld(held) {
    // The thread inherits the mask: what a person presses is for the thread that waits for it.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    mThread = std::thread([this] { run(); });
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

SlowMotion::~SlowMotion() {
    {
        const std::lock_guard lock(mMutex);
        mIsToEnd = true;
    }
    mEndWanted.notify_all();
    mThread.join();
    static_cast<void>(signal(SIGCONT));
}

void SlowMotion::run() {
    while (signal(SIGSTOP)) {
        if (wait(mHeld) || !signal(SIGCONT) || wait(kRunning)) return;
    }
}

bool SlowMotion::signal(int number) const {
    return syscall(SYS_pidfd_send_signal, mProcess.get(), number, nullptr, 0) == 0;
}

bool SlowMotion::wait(std::chrono::milliseconds time) {
    std::unique_lock lock(mMutex);
    return mEndWanted.wait_for(lock, time, [this]() NO_THREAD_SAFETY_ANALYSIS { return mIsToEnd; });
}

}  // namespace sim

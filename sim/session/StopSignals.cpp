// SPDX-License-Identifier: Apache-2.0
// SIGINT, SIGQUIT, SIGTERM and SIGHUP as something to wait for.
#include "session/StopSignals.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <initializer_list>

namespace sim {

StopSignals::StopSignals() {
    sigset_t stops;
    sigemptyset(&stops);
    for (const int number : {SIGINT, SIGQUIT, SIGTERM, SIGHUP})
        sigaddset(&stops, number);
    pthread_sigmask(SIG_BLOCK, &stops, &mBefore);
    mFd.reset(signalfd(-1, &stops, SFD_CLOEXEC | SFD_NONBLOCK));
}

StopSignals::~StopSignals() {
    pthread_sigmask(SIG_SETMASK, &mBefore, nullptr);
}

int StopSignals::take() {
    signalfd_siginfo info{};
    const ssize_t size = TEMP_FAILURE_RETRY(read(mFd.get(), &info, sizeof(info)));
    return size == sizeof(info) ? static_cast<int>(info.ssi_signo) : 0;
}

}  // namespace sim

// SPDX-License-Identifier: Apache-2.0
// SIGINT, SIGQUIT, SIGTERM, SIGHUP and SIGPIPE as something to wait for.
#include "session/StopSignals.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <initializer_list>

#include "session/SessionError.h"

namespace sim {

StopSignals::StopSignals() {
    sigset_t stops;
    sigemptyset(&stops);
    for (const int number : {SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGPIPE})
        sigaddset(&stops, number);
    pthread_sigmask(SIG_BLOCK, &stops, &mBefore);
    mFd.reset(signalfd(-1, &stops, SFD_CLOEXEC | SFD_NONBLOCK));
    sigdelset(&stops, SIGINT);
    mEndingsFd.reset(signalfd(-1, &stops, SFD_CLOEXEC | SFD_NONBLOCK));
}

StopSignals::~StopSignals() {
    pthread_sigmask(SIG_SETMASK, &mBefore, nullptr);
}

int StopSignals::take() {
    signalfd_siginfo info{};
    const ssize_t size = TEMP_FAILURE_RETRY(read(mFd.get(), &info, sizeof(info)));
    if (size != sizeof(info)) return 0;
    mHasEnding = mHasEnding || info.ssi_signo != SIGINT;
    return static_cast<int>(info.ssi_signo);
}

void StopSignals::heed() {
    const int signal = take();
    if (signal != 0) throw SessionStopped(signal);
}

void StopSignals::awaitWritable(int fd) {
    std::array<pollfd, 2> watched{pollfd{fd, POLLOUT, 0}, pollfd{mFd.get(), POLLIN, 0}};
    TEMP_FAILURE_RETRY(poll(watched.data(), watched.size(), /*timeout=*/-1));
    heed();
}

}  // namespace sim

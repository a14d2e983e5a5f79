// SPDX-License-Identifier: Apache-2.0
#include "BareListeners.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "ChildProcess.h"

namespace {

/** About what a notification through the driver carries. */
constexpr size_t kMessageSize = 64;

[[noreturn]] void fail(const char* what) {
    perror(what);
    exit(1);
}

/** Holds nothing but its socket: the sender's others end with the sender. */
void listenOn(int socket, FanoutRound& round) {
    if (dup2(socket, STDERR_FILENO + 1) < 0) fail("dup2");
    socket = STDERR_FILENO + 1;
    if (close_range(unsigned(socket) + 1, ~0U, /*flags=*/0) != 0) fail("close_range");
    char message[kMessageSize];
    while (recv(socket, message, sizeof(message), /*flags=*/0) > 0)
        round.received();
}

}  // namespace

BareListeners::BareListeners(int count, FanoutRound& round) : mRound(round) {
    for (int i = 0; i < count; i++) {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) fail("socketpair");
        mProcesses.push_back(startChild([&] { listenOn(ends[1], round); }));
        mSockets.push_back(ends[0]);
        close(ends[1]);
    }
}

BareListeners::~BareListeners() {
    for (int socket : mSockets)
        close(socket);
    for (pid_t pid : mProcesses)
        stopChild(pid);
}

bool BareListeners::notify(int count) const {
    const char message[kMessageSize] = {};
    mRound.prepare(uint32_t(count));
    mRound.begin();
    for (int i = 0; i < count; i++) {
        if (send(mSockets[size_t(i)], message, sizeof(message), MSG_NOSIGNAL) < 0) fail("send");
    }
    mRound.sent();
    return mRound.wait();
}

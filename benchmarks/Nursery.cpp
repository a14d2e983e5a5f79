// SPDX-License-Identifier: Apache-2.0
#include "Nursery.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "ChildProcess.h"

namespace {

constexpr uid_t kAppUid = 10050;
/** Request to stop all; any other is a count. */
constexpr int kStopAll = 0;

template <typename T>
void sendTo(int socket, const T& value) {
    if (send(socket, &value, sizeof(value), MSG_NOSIGNAL) == sizeof(value)) return;
    perror("nursery: send");
    exit(1);
}

template <typename T>
bool receiveFrom(int socket, T* value) {
    return recv(socket, value, sizeof(*value), /*flags=*/0) == sizeof(*value);
}

[[noreturn]] void sleepAsApp(int socket) {
    if (geteuid() == 0 && setresuid(kAppUid, kAppUid, kAppUid) != 0) _exit(1);
    sendTo(socket, getpid());
    while (true)
        pause();
}

void serve(int socket) {
    std::vector<pid_t> children;
    for (int request; receiveFrom(socket, &request);) {
        for (int i = 0; i < request; i++)
            children.push_back(startChild([socket] { sleepAsApp(socket); }));
        if (request != kStopAll) continue;
        for (pid_t pid : children)
            stopChild(pid);
        children.clear();
        sendTo(socket, kStopAll);
    }
}

}  // namespace

Nursery::Nursery() {
    int sockets[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, sockets) != 0) {
        perror("socketpair");
        exit(1);
    }
    mPid = startChild([&] {
        close(sockets[0]);
        serve(sockets[1]);
    });
    mSocket = sockets[0];
    close(sockets[1]);
}

Nursery::~Nursery() {
    stopAll();
    stopChild(mPid);
    close(mSocket);
}

std::vector<int> Nursery::start(int count) {
    sendTo(mSocket, count);
    std::vector<int> pids(static_cast<size_t>(count));
    for (int& pid : pids) {
        if (receiveFrom(mSocket, &pid)) continue;
        fprintf(stderr, "a process did not start\n");
        exit(1);
    }
    return pids;
}

void Nursery::stopAll() {
    sendTo(mSocket, kStopAll);
    int stopped;
    if (receiveFrom(mSocket, &stopped)) return;
    fprintf(stderr, "the nursery is gone\n");
    exit(1);
}

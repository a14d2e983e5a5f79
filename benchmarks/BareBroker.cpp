// SPDX-License-Identifier: Apache-2.0
#include "BareBroker.h"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "ChildProcess.h"

namespace {

constexpr size_t kMessageSize = 64;

std::array<int, 2> makePair() {
    std::array<int, 2> ends;
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        perror("socketpair");
        exit(1);
    }
    return ends;
}

void echo(int socket) {
    char message[kMessageSize];
    while (recv(socket, message, sizeof(message), 0) > 0) {
        if (send(socket, message, sizeof(message), MSG_NOSIGNAL) < 0) return;
    }
}

void relay(int client, int server) {
    const std::array<int, 2> from = {client, server};
    const std::array<int, 2> to = {server, client};
    const int epoll = epoll_create1(EPOLL_CLOEXEC);
    for (uint32_t i = 0; i < from.size(); i++) {
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.u32 = i;
        epoll_ctl(epoll, EPOLL_CTL_ADD, from[i], &event);
    }
    while (true) {
        epoll_event events[8];
        const int count = epoll_wait(epoll, events, 8, -1);
        for (int i = 0; i < count; i++) {
            char message[kMessageSize];
            const uint32_t side = events[i].data.u32;
            if (recv(from[side], message, sizeof(message), 0) <= 0) return;
            if (send(to[side], message, sizeof(message), MSG_NOSIGNAL) < 0) return;
        }
    }
}

void roundTrip(int socket) {
    char message[kMessageSize] = {};
    if (send(socket, message, sizeof(message), MSG_NOSIGNAL) < 0 ||
        recv(socket, message, sizeof(message), 0) <= 0) {
        perror("bare round trip");
        exit(1);
    }
}

}  // namespace

BareBroker::BareBroker() {
    const auto client = makePair();
    const auto server = makePair();
    mBroker = startChild([&] {
        close(client[0]);
        close(server[1]);
        relay(client[1], server[0]);
    });
    mServer = startChild([&] { echo(server[1]); });
    mSocket = client[0];
    for (int end : {client[1], server[0], server[1]})
        close(end);
}

BareBroker::~BareBroker() {
    stopChild(mBroker);
    stopChild(mServer);
    close(mSocket);
}

void BareBroker::call() const {
    roundTrip(mSocket);
}

BarePair::BarePair() {
    const auto ends = makePair();
    mServer = startChild([&] { echo(ends[1]); });
    mSocket = ends[0];
    close(ends[1]);
}

BarePair::~BarePair() {
    stopChild(mServer);
    close(mSocket);
}

void BarePair::call() const {
    roundTrip(mSocket);
}

// SPDX-License-Identifier: Apache-2.0
//
// The anchor of calls through the embedded driver: the least that any broker of sockets does.
//
//      client ── 64 bytes ──▶ broker (epoll) ── 64 bytes ──▶ server
//             ◀── 64 bytes ──                ◀── 64 bytes ──
#pragma once

#include <sys/types.h>

/** Three processes, of which the caller is the client. */
class BareBroker {
public:
    BareBroker();
    ~BareBroker();
    BareBroker(const BareBroker&) = delete;
    BareBroker& operator=(const BareBroker&) = delete;

    /** One request and its answer. */
    void call() const;

private:
    int mSocket;
    pid_t mBroker;
    pid_t mServer;
};

/** Two processes, no broker: the floor of any request and answer over a socket. */
class BarePair {
public:
    BarePair();
    ~BarePair();
    BarePair(const BarePair&) = delete;
    BarePair& operator=(const BarePair&) = delete;

    /** One request and its answer. */
    void call() const;

private:
    int mSocket;
    pid_t mServer;
};

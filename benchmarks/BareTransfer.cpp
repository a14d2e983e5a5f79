// SPDX-License-Identifier: Apache-2.0
#include "BareTransfer.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "ChildProcess.h"

namespace {

bool sendAll(int socket, const std::vector<char>& bytes) {
    for (size_t done = 0; done < bytes.size();) {
        const ssize_t sent = send(socket, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (sent <= 0) return false;
        done += size_t(sent);
    }
    return true;
}

bool receiveAll(int socket, std::vector<char>* bytes) {
    for (size_t done = 0; done < bytes->size();) {
        const ssize_t received =
                recv(socket, bytes->data() + done, bytes->size() - done, /*flags=*/0);
        if (received <= 0) return false;
        done += size_t(received);
    }
    return true;
}

}  // namespace

BareTransfer::BareTransfer(size_t size) : mBytes(size, 'x') {
    int ends[2];
    // A stream: a record of the larger sizes does not fit a socket's buffer.
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
        perror("socketpair");
        exit(1);
    }
    mServer = startChild([&] {
        close(ends[0]);
        while (receiveAll(ends[1], &mBytes) && sendAll(ends[1], mBytes)) {
        }
    });
    mSocket = ends[0];
    close(ends[1]);
}

BareTransfer::~BareTransfer() {
    stopChild(mServer);
    close(mSocket);
}

void BareTransfer::call() {
    if (sendAll(mSocket, mBytes) && receiveAll(mSocket, &mBytes)) return;
    perror("bare transfer");
    exit(1);
}

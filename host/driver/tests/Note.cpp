// SPDX-License-Identifier: Apache-2.0
#include "Note.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace binderhost::tests {

using android::base::unique_fd;

namespace {

struct Head {
    uint64_t bytes;
    uint64_t descriptors;
};

/** In one message of a socket; fewer than it can take. */
constexpr size_t kTogether = 128;

bool sendAll(int socket, const void* bytes, size_t size) {
    const char* at = static_cast<const char*>(bytes);
    while (size > 0) {
        const ssize_t sent = TEMP_FAILURE_RETRY(::send(socket, at, size, MSG_NOSIGNAL));
        if (sent <= 0) return false;
        at += sent;
        size -= static_cast<size_t>(sent);
    }
    return true;
}

bool receiveAll(int socket, void* bytes, size_t size) {
    char* at = static_cast<char*>(bytes);
    while (size > 0) {
        const ssize_t got = TEMP_FAILURE_RETRY(recv(socket, at, size, 0));
        if (got <= 0) return false;
        at += got;
        size -= static_cast<size_t>(got);
    }
    return true;
}

struct Rights {
    alignas(cmsghdr) std::array<char, CMSG_SPACE(kTogether * sizeof(int))> room{};
    char byte = 'd';
    iovec part{&byte, 1};
    msghdr message{};

    Rights() {
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = room.data();
        message.msg_controllen = room.size();
    }
};

bool sendDescriptors(int socket, const int* descriptors, size_t count) {
    Rights rights;
    rights.message.msg_controllen = CMSG_SPACE(count * sizeof(int));
    cmsghdr* head = CMSG_FIRSTHDR(&rights.message);
    head->cmsg_level = SOL_SOCKET;
    head->cmsg_type = SCM_RIGHTS;
    head->cmsg_len = CMSG_LEN(count * sizeof(int));
    std::memcpy(CMSG_DATA(head), descriptors, count * sizeof(int));
    return TEMP_FAILURE_RETRY(sendmsg(socket, &rights.message, MSG_NOSIGNAL)) == 1;
}

bool receiveDescriptors(int socket, std::vector<unique_fd>* out) {
    Rights rights;
    if (TEMP_FAILURE_RETRY(recvmsg(socket, &rights.message, MSG_CMSG_CLOEXEC)) != 1) return false;
    const cmsghdr* head = CMSG_FIRSTHDR(&rights.message);
    if (!head || (rights.message.msg_flags & MSG_CTRUNC)) {
        throw std::runtime_error("descriptors of a note were lost");
    }
    for (size_t at = 0; at < head->cmsg_len - CMSG_LEN(0); at += sizeof(int)) {
        int each = -1;
        std::memcpy(&each, CMSG_DATA(head) + at, sizeof(each));
        out->emplace_back(each);
    }
    return true;
}

}  // namespace

bool Note::send(int socket) const {
    const Head head{mBytes.size(), enclosed.size()};
    if (!sendAll(socket, &head, sizeof(head))) return false;
    for (size_t at = 0; at < enclosed.size(); at += kTogether) {
        const size_t count = std::min(kTogether, enclosed.size() - at);
        if (!sendDescriptors(socket, enclosed.data() + at, count)) return false;
    }
    return sendAll(socket, mBytes.data(), mBytes.size());
}

bool Note::receive(int socket, int deadline) {
    pollfd wait{socket, POLLIN, 0};
    if (TEMP_FAILURE_RETRY(poll(&wait, 1, deadline)) == 0) {
        throw std::runtime_error("no answer in " + std::to_string(deadline) + " ms");
    }
    Head head{};
    if (!receiveAll(socket, &head, sizeof(head))) return false;
    received.clear();
    while (received.size() < head.descriptors) {
        if (!receiveDescriptors(socket, &received)) return false;
    }
    mTaken = 0;
    mBytes.resize(head.bytes);
    return receiveAll(socket, mBytes.data(), mBytes.size());
}

}  // namespace binderhost::tests

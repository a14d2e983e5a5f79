// SPDX-License-Identifier: Apache-2.0
#include "embedded/Socket.h"

#include <sys/un.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "embedded/Frame.h"

namespace binderhost {
namespace {

constexpr size_t kControlBytes =
        CMSG_SPACE(sizeof(ucred)) + CMSG_SPACE(frame::kMaxDescriptors * sizeof(int));

void takeControl(const cmsghdr& control, Received* out) {
    if (control.cmsg_level != SOL_SOCKET) return;
    const size_t size = control.cmsg_len - CMSG_LEN(0);
    if (control.cmsg_type == SCM_CREDENTIALS && size >= sizeof(ucred)) {
        ucred credentials{};
        std::memcpy(&credentials, CMSG_DATA(&control), sizeof(credentials));
        out->credentials = credentials;
    } else if (control.cmsg_type == SCM_RIGHTS) {
        for (size_t at = 0; at + sizeof(int) <= size; at += sizeof(int)) {
            int descriptor = -1;
            std::memcpy(&descriptor, CMSG_DATA(&control) + at, sizeof(descriptor));
            out->descriptors.emplace_back(descriptor);
        }
    }
}

}  // namespace

int sendRecord(int socket, std::span<const iovec> parts, std::span<const int> descriptors,
               const ucred* credentials, int flags) {
    if (!credentials && descriptors.empty() && parts.size() == 1) {
        // The kernel has less to copy and to check.
        const iovec& part = parts.front();
        return send(socket, part.iov_base, part.iov_len, flags | MSG_NOSIGNAL) < 0 ? -errno : 0;
    }
    alignas(cmsghdr) char control[kControlBytes];
    msghdr message{};
    message.msg_iov = const_cast<iovec*>(parts.data());
    message.msg_iovlen = parts.size();
    size_t used = 0;
    auto append = [&](int type, const void* data, size_t size) {
        auto* header = reinterpret_cast<cmsghdr*>(control + used);
        std::memset(header, 0, CMSG_SPACE(size));
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = type;
        header->cmsg_len = CMSG_LEN(size);
        std::memcpy(CMSG_DATA(header), data, size);
        used += CMSG_SPACE(size);
    };
    if (descriptors.size() > frame::kMaxDescriptors) return -E2BIG;
    if (credentials) append(SCM_CREDENTIALS, credentials, sizeof(*credentials));
    if (!descriptors.empty()) append(SCM_RIGHTS, descriptors.data(), descriptors.size_bytes());
    if (used) {
        message.msg_control = control;
        message.msg_controllen = used;
    }
    return sendmsg(socket, &message, flags | MSG_NOSIGNAL) < 0 ? -errno : 0;
}

int receiveRecord(int socket, std::span<uint8_t> room, int flags, Received* out) {
    alignas(cmsghdr) char control[kControlBytes];
    iovec part{room.data(), room.size()};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof(control);
    out->size = 0;
    out->cut = false;
    out->descriptorsLost = false;
    out->credentials.reset();
    out->descriptors.clear();
    const ssize_t size = recvmsg(socket, &message, flags | MSG_CMSG_CLOEXEC);
    if (size < 0) return -errno;
    out->size = static_cast<size_t>(size);
    out->cut = (message.msg_flags & MSG_TRUNC) != 0;
    out->descriptorsLost = (message.msg_flags & MSG_CTRUNC) != 0;
    for (cmsghdr* at = CMSG_FIRSTHDR(&message); at; at = CMSG_NXTHDR(&message, at)) {
        takeControl(*at, out);
    }
    return 0;
}

int connectTo(int pathDescriptor, int timeoutSeconds, unique_fd* out) {
    unique_fd socketFd(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    if (!socketFd.ok()) return -errno;
    const timeval timeout{timeoutSeconds, 0};
    if (setsockopt(socketFd.get(), SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof(timeout))) {
        return -errno;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    // The path may lie where this process can no longer go, or be longer than an address holds.
    std::snprintf(address.sun_path, sizeof(address.sun_path), "/proc/self/fd/%d", pathDescriptor);
    if (connect(socketFd.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address))) {
        return -errno;
    }
    const timeval forever{};
    if (setsockopt(socketFd.get(), SOL_SOCKET, SO_SNDTIMEO, &forever, sizeof(forever))) {
        return -errno;
    }
    *out = std::move(socketFd);
    return 0;
}

}  // namespace binderhost

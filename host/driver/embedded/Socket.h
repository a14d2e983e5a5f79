// SPDX-License-Identifier: Apache-2.0
//
// Records over a socket: the few system calls that both ends share.
//
// Usage: the driver sends with credentials, the hub without; both receive with receiveRecord(),
// which never leaves a descriptor behind: what arrived is in the result, also when the control
// data was cut short.
#pragma once

#include <android-base/unique_fd.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <sys/uio.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace binderhost {

using android::base::unique_fd;

struct Received {
    size_t size = 0;   // 0: the other side has hung up
    bool cut = false;  // the record was longer than the room for it
    bool descriptorsLost = false;
    std::optional<ucred> credentials;
    std::vector<unique_fd> descriptors;
};

/** 0 or a negative errno. The record goes out whole or not at all. */
[[nodiscard]] int sendRecord(int socket, std::span<const iovec> parts,
                             std::span<const int> descriptors, const ucred* credentials, int flags);

/** 0 or a negative errno (-EAGAIN, -EINTR, ...); `out` is reset first. */
[[nodiscard]] int receiveRecord(int socket, std::span<uint8_t> room, int flags, Received* out);

/** Connects to the socket that an O_PATH descriptor names. 0 or a negative errno. */
[[nodiscard]] int connectTo(int pathDescriptor, int timeoutSeconds, unique_fd* out);

}  // namespace binderhost

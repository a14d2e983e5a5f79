// SPDX-License-Identifier: Apache-2.0
#include "embedded/HubConnection.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "embedded/ByteReader.h"
#include "embedded/Socket.h"
#include "embedded/StatsClient.h"

namespace binderhost {
namespace {

/** 0 when readable in time; a hub that hangs, or something else on its path, must not hang us. */
int awaitReadable(int socket) {
    pollfd each{socket, POLLIN, 0};
    int count = 0;
    do {
        count = poll(&each, 1, kAnswerSeconds * 1000);
    } while (count < 0 && errno == EINTR);
    if (count < 0) return -errno;
    return count == 0 ? -ETIMEDOUT : 0;
}

}  // namespace

unique_fd findHub(const std::string& path, std::string* error) {
    unique_fd found(open(path.c_str(), O_PATH | O_CLOEXEC));
    if (!found.ok()) {
        *error = "no binder hub at " + path + " (" + std::strerror(errno) +
                 "): start one with: binderhub --socket " + path;
        return {};
    }
    struct stat status {};
    if (fstat(found.get(), &status) == 0 && S_ISSOCK(status.st_mode)) return found;
    *error = path +
             " is not a binder hub's socket: start a hub with: binderhub --socket PATH, and set "
             "BINDER_DRIVER to that path";
    return {};
}

ucred ownCredentials() {
    return {getpid(), geteuid(), getegid()};
}

int receiveAnswer(int socket, frame::Answer* out, std::vector<unique_fd>* descriptors) {
    if (const int status = awaitReadable(socket)) return status;
    uint8_t room[sizeof(frame::Answer)];
    Received received;
    const int status = receiveRecord(socket, room, /*flags=*/0, &received);
    if (status == -ECONNRESET) return -ECONNREFUSED;
    if (status) return status;
    if (received.size == 0) return -ECONNREFUSED;
    if (descriptors) *descriptors = std::move(received.descriptors);
    ByteReader reader({room, received.size});
    const bool sound = reader.take(out) && out->header.magic == frame::kMagic &&
                       out->header.kind == frame::Kind::Answer && out->version == frame::kVersion;
    return sound ? 0 : -EPROTO;
}

int askBytes(int socket, std::span<const uint8_t> request, frame::Answer* out,
             std::vector<unique_fd>* descriptors) {
    const iovec part{const_cast<uint8_t*>(request.data()), request.size()};
    const ucred credentials = ownCredentials();
    int status = 0;
    do {
        status = sendRecord(socket, {&part, 1}, {}, &credentials, /*flags=*/0);
    } while (status == -EINTR);
    if (status == -EPIPE || status == -ECONNRESET) return -ECONNREFUSED;
    return status ? status : receiveAnswer(socket, out, descriptors);
}

bool readHubStats(const std::string& path, std::string* out, std::string* error) {
    const unique_fd place = findHub(path, error);
    if (!place.ok()) return false;
    unique_fd socket;
    int status = connectTo(place.get(), kAnswerSeconds, &socket);
    frame::Header request{.kind = frame::Kind::Stats};
    const iovec part{&request, sizeof(request)};
    const ucred credentials = ownCredentials();
    if (!status) status = sendRecord(socket.get(), {&part, 1}, {}, &credentials, /*flags=*/0);
    if (!status) status = awaitReadable(socket.get());
    uint8_t room[4096];
    Received received;
    if (!status) status = receiveRecord(socket.get(), room, /*flags=*/0, &received);
    frame::Header header;
    ByteReader reader({room, received.size});
    if (status || !reader.take(&header) || header.magic != frame::kMagic) {
        *error =
                "no binder hub answers on " + path + ": start one with: binderhub --socket " + path;
        return false;
    }
    out->assign(room + sizeof(header), room + received.size);
    return true;
}

}  // namespace binderhost

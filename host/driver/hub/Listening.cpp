// SPDX-License-Identifier: Apache-2.0
#include "hub/Listening.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "embedded/Socket.h"

namespace binderhost::hub {
namespace {

std::string reason() {
    return std::strerror(errno);
}

/** True when the place is free for a new socket. */
bool makeRoom(const std::string& path, std::string* error) {
    const unique_fd place(open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!place.ok()) {
        if (errno == ENOENT) return true;
        *error = "cannot look at " + path + ": " + reason();
        return false;
    }
    struct stat status {};
    if (fstat(place.get(), &status)) {
        *error = "cannot look at " + path + ": " + reason();
        return false;
    }
    if (!S_ISSOCK(status.st_mode)) {
        *error = path + " exists and is not a socket";
        return false;
    }
    if (status.st_uid != geteuid()) {
        *error = path + " belongs to another user";
        return false;
    }
    unique_fd probe;
    const int reached = connectTo(place.get(), /*timeoutSeconds=*/1, &probe);
    if (reached != -ECONNREFUSED) {
        *error = "a hub already listens on " + path;
        return false;
    }
    if (unlink(path.c_str())) {
        *error = "cannot remove the dead socket " + path + ": " + reason();
        return false;
    }
    return true;
}

}  // namespace

unique_fd listenAt(const std::string& path, OpenTo whom, std::string* error) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof(address.sun_path)) {
        *error = "a socket's path has 1 to " + std::to_string(sizeof(address.sun_path) - 1) +
                 " bytes: " + path;
        return {};
    }
    std::memcpy(address.sun_path, path.data(), path.size());
    const size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const unique_fd lock(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!lock.ok() || flock(lock.get(), LOCK_EX)) {
        *error = "cannot use the folder " + folder + ": " + reason();
        return {};
    }
    if (!makeRoom(path, error)) return {};
    unique_fd listener(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int on = 1;
    // Nobody can connect before it listens.
    const mode_t mode = whom == OpenTo::All ? 0666 : 0600;
    if (!listener.ok() ||
        bind(listener.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) ||
        chmod(path.c_str(), mode) ||
        setsockopt(listener.get(), SOL_SOCKET, SO_PASSCRED, &on, sizeof(on)) ||
        listen(listener.get(), SOMAXCONN)) {
        *error = "cannot listen on " + path + ": " + reason();
        return {};
    }
    return listener;
}

bool makePrivateFolder(const std::string& folder, std::string* error) {
    constexpr mode_t kMode = 0700;
    if (mkdir(folder.c_str(), kMode) && errno != EEXIST) {
        *error = "cannot make the folder " + folder + ": " + reason();
        return false;
    }
    struct stat status {};
    if (lstat(folder.c_str(), &status) || !S_ISDIR(status.st_mode) || status.st_uid != geteuid() ||
        (status.st_mode & 077) != 0) {
        *error = folder + " is not a folder that only its owner, this user, can enter";
        return false;
    }
    return true;
}

}  // namespace binderhost::hub

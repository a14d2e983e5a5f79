// SPDX-License-Identifier: Apache-2.0
#include "Note.h"

#include <poll.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "embedded/Socket.h"

namespace binderhost::tests {
namespace {

/** False when the other side is gone; with `deadline` an error when nothing comes in time. */
bool receiveFrom(int socket, int deadline, uint64_t* count, Received* out) {
    pollfd wait{socket, POLLIN, 0};
    if (TEMP_FAILURE_RETRY(poll(&wait, 1, deadline)) == 0) {
        throw std::runtime_error("no answer in " + std::to_string(deadline) + " ms");
    }
    int status = 0;
    do {
        status = receiveRecord(socket, {reinterpret_cast<uint8_t*>(count), sizeof(*count)},
                               /*flags=*/0, out);
    } while (status == -EINTR);
    return status == 0 && out->size != 0;
}

}  // namespace

bool Note::send(int socket) const {
    // The bytes are no record's: one has less room than a test's messages.
    const unique_fd bytes(memfd_create("note", MFD_CLOEXEC));
    if (write(bytes.get(), mBytes.data(), mBytes.size()) != ssize_t(mBytes.size())) return false;
    uint64_t count = enclosed.size();
    const iovec part{&count, sizeof(count)};
    const int file = bytes.get();
    return sendRecord(socket, {&part, 1}, {&file, 1}, nullptr, /*flags=*/0) == 0 &&
           (count == 0 || sendRecord(socket, {&part, 1}, enclosed, nullptr, /*flags=*/0) == 0);
}

bool Note::receive(int socket, int deadline) {
    mTaken = 0;
    mBytes.clear();
    received.clear();
    uint64_t count = 0;
    Received first, second;
    struct stat status {};
    if (!receiveFrom(socket, deadline, &count, &first)) return false;
    if (first.descriptors.empty() || fstat(first.descriptors[0].get(), &status) != 0) return false;
    mBytes.resize(static_cast<size_t>(status.st_size));
    if (pread(first.descriptors[0].get(), mBytes.data(), mBytes.size(), 0) != status.st_size) {
        return false;
    }
    if (count == 0) return true;
    if (!receiveFrom(socket, deadline, &count, &second)) return false;
    if (second.descriptors.size() != count) throw std::runtime_error("a note lost descriptors");
    received = std::move(second.descriptors);
    return true;
}

}  // namespace binderhost::tests

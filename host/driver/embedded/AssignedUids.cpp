// SPDX-License-Identifier: Apache-2.0
#include "driver/AssignedUids.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "embedded/HubConnection.h"
#include "embedded/Socket.h"
#include "embedded/UidTableLayout.h"

namespace binderhost {
namespace {

/** Asks for the file; 0 or a negative errno. */
int fetch(int place, unique_fd* out) {
    unique_fd socket;
    if (const int status = connectTo(place, kAnswerSeconds, &socket)) return status;
    const frame::Header request{.kind = frame::Kind::AssignedUids};
    frame::Answer answer;
    std::vector<unique_fd> descriptors;
    if (const int status = ask(socket.get(), request, &answer, &descriptors)) return status;
    if (answer.status) return answer.status;
    if (descriptors.size() != 1) return -EPROTO;
    *out = std::move(descriptors.front());
    return 0;
}

/** Reading beyond the end of a file that could shrink would be fatal. */
bool holdsATable(int file) {
    struct stat status {};
    const int seals = fcntl(file, F_GET_SEALS);
    return seals >= 0 && (seals & F_SEAL_SHRINK) != 0 && fstat(file, &status) == 0 &&
           static_cast<uint64_t>(status.st_size) >= sizeof(uidtable::Table);
}

}  // namespace

std::unique_ptr<const AssignedUids> AssignedUids::open(const std::string& path,
                                                       std::string* error) {
    const unique_fd place = findHub(path, error);
    if (!place.ok()) return nullptr;
    unique_fd file;
    int status = fetch(place.get(), &file);
    if (status == 0 && !holdsATable(file.get())) status = -EPROTO;
    if (status) {
        *error = "the hub at " + path + " hands out no table of uids: " + std::strerror(-status);
        return nullptr;
    }
    void* table = mmap(nullptr, sizeof(uidtable::Table), PROT_READ, MAP_SHARED, file.get(),
                       /*offset=*/0);
    if (table == MAP_FAILED) {
        *error = std::string("cannot map the table of uids: ") + std::strerror(errno);
        return nullptr;
    }
    return std::unique_ptr<const AssignedUids>(
            new AssignedUids(static_cast<const uidtable::Table*>(table)));
}

AssignedUids::~AssignedUids() {
    munmap(const_cast<uidtable::Table*>(mTable), sizeof(*mTable));
}

std::optional<uid_t> AssignedUids::of(pid_t pid, uint64_t folder) const {
    const auto number = static_cast<uint32_t>(pid);
    const uidtable::Bucket& bucket = mTable->buckets[uidtable::bucketOf(number)];
    for (size_t row = 0; row < uidtable::kRows; row++) {
        const uint64_t key = bucket.keys[row].load();
        if (key == 0 || uidtable::pidOf(key) != number) continue;
        const bool same = bucket.folders[row].load() == folder && bucket.keys[row].load() == key;
        if (same) return uidtable::uidOf(key);
    }
    return std::nullopt;
}

uid_t AssignedUids::ofThisProcess() const {
    struct stat folder {};
    if (stat("/proc/self", &folder)) return kOthersUid;
    return of(getpid(), folder.st_ino).value_or(kOthersUid);
}

}  // namespace binderhost

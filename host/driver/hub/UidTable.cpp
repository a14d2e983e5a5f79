// SPDX-License-Identifier: Apache-2.0
#include "hub/UidTable.h"

#include <fcntl.h>
#include <unistd.h>

namespace binderhost::hub {

using android::base::unique_fd;

UidTable::UidTable(unique_fd file)
      : mFile(std::move(file)), mTable(mFile.get(), PROT_READ | PROT_WRITE) {}

std::unique_ptr<UidTable> UidTable::make() {
    unique_fd file(memfd_create("binder-uids", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (!file.ok() || ftruncate(file.get(), sizeof(uidtable::Table))) return nullptr;
    std::unique_ptr<UidTable> made(new UidTable(std::move(file)));
    // What is mapped already stays writable.
    constexpr int kSeals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_FUTURE_WRITE | F_SEAL_SEAL;
    if (!made->mTable.ok() || fcntl(made->mFile.get(), F_ADD_SEALS, kSeals)) return nullptr;
    return made;
}

bool UidTable::put(pid_t pid, uid_t uid, uint64_t folder) {
    const auto number = static_cast<uint32_t>(pid);
    uidtable::Bucket& bucket = mTable->buckets[uidtable::bucketOf(number)];
    size_t place = uidtable::kRows;
    for (size_t row = 0; row < uidtable::kRows; row++) {
        const uint64_t key = bucket.keys[row].load();
        if (uidtable::pidOf(key) == number) {
            place = row;
            break;
        }
        if (key == 0 && place == uidtable::kRows) place = row;
    }
    if (place == uidtable::kRows) return false;
    if (bucket.folders[place].load() != folder) {
        bucket.keys[place].store(0);
        bucket.folders[place].store(folder);
    }
    bucket.keys[place].store(uidtable::keyOf(number, uid));
    return true;
}

void UidTable::erase(pid_t pid) {
    const auto number = static_cast<uint32_t>(pid);
    for (auto& key : mTable->buckets[uidtable::bucketOf(number)].keys) {
        if (uidtable::pidOf(key.load()) == number) key.store(0);
    }
}

unique_fd UidTable::share() const {
    return unique_fd(fcntl(mFile.get(), F_DUPFD_CLOEXEC, 0));
}

}  // namespace binderhost::hub

// SPDX-License-Identifier: Apache-2.0
#include "hub/Assignments.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>
#include <utility>

namespace binderhost::hub {

using android::base::unique_fd;

namespace {

bool hasEnded(const unique_fd& process) {
    pollfd look{process.get(), POLLIN, 0};
    return poll(&look, 1, 0) != 0;
}

/** Its parent has taken note of its end: from now on the pid may be another's. */
bool isReaped(const unique_fd& process) {
    return syscall(SYS_pidfd_send_signal, process.get(), 0, nullptr, 0) != 0 && errno == ESRCH;
}

struct Facts {
    pid_t parent = 0;
    uid_t realUid = 0;
};

std::optional<Facts> readFacts(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    Facts facts;
    int found = 0;
    for (std::string line; std::getline(status, line);) {
        std::istringstream words(line);
        std::string name;
        words >> name;
        if (name == "PPid:" && words >> facts.parent) found++;
        if (name == "Uid:" && words >> facts.realUid) found++;
    }
    if (found != 2) return std::nullopt;
    return facts;
}

/** Why something of a process could not be opened. */
Assignments::Status goneOrTooMany(int error) {
    return error == EMFILE || error == ENFILE ? Assignments::Status::TooMany
                                              : Assignments::Status::Gone;
}

/** Uids are signed numbers to those that are told them. */
bool canBeHad(uid_t uid) {
    return uid <= static_cast<uid_t>(std::numeric_limits<int32_t>::max());
}

}  // namespace

std::unique_ptr<Assignments> Assignments::make(pid_t launcher, uid_t owner) {
    std::unique_ptr<UidTable> table = UidTable::make();
    if (!table) return nullptr;
    return std::unique_ptr<Assignments>(new Assignments(launcher, owner, std::move(table)));
}

Assignments::Status Assignments::check(pid_t pid, Entry* out) const {
    if (pid <= 0) return Status::Gone;
    out->process.reset(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
    // What is a thread of another process is none.
    if (!out->process.ok()) return goneOrTooMany(errno);
    const std::string path = "/proc/" + std::to_string(pid);
    errno = 0;
    out->folder.reset(open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    struct stat folder {};
    const std::optional<Facts> facts = readFacts(pid);
    if (!out->folder.ok() || !facts) return goneOrTooMany(errno);
    // What was read is this process's when it still lives afterwards.
    if (fstat(out->folder.get(), &folder) || hasEnded(out->process)) return Status::Gone;
    if (facts->parent != mLauncher) return Status::NotAChild;
    if (facts->realUid != mOwner) return Status::OtherUser;
    out->number = folder.st_ino;
    return Status::Done;
}

Assignments::Status Assignments::assign(pid_t pid, uid_t uid, bool connected) {
    sweep();
    if (!canBeHad(uid)) return Status::NoUid;
    Entry entry;
    if (const Status status = check(pid, &entry); status != Status::Done) return status;
    if (find(pid)) return Status::AlreadyAssigned;
    if (connected) return Status::AlreadyConnected;
    if (!mTable->put(pid, uid, entry.number)) return Status::TooMany;
    entry.uid = uid;
    mEntries.insert_or_assign(pid, std::move(entry));
    return Status::Done;
}

Assignments::Status Assignments::reassign(pid_t pid, uid_t uid, bool connected) {
    if (!canBeHad(uid)) return Status::NoUid;
    Entry* entry = find(pid);
    if (!entry) return Status::NotAssigned;
    if (hasEnded(entry->process)) return Status::Gone;
    entry->next = uid;
    if (!connected) disconnected(pid);
    return Status::Done;
}

Assignments::Entry* Assignments::find(pid_t pid) {
    auto at = mEntries.find(pid);
    return at == mEntries.end() || isReaped(at->second.process) ? nullptr : &at->second;
}

std::optional<uid_t> Assignments::uidOf(pid_t pid) const {
    auto at = mEntries.find(pid);
    if (at == mEntries.end() || isReaped(at->second.process)) return std::nullopt;
    return at->second.uid;
}

unique_fd Assignments::endOf(pid_t pid) const {
    auto at = mEntries.find(pid);
    if (at == mEntries.end()) return {};
    return unique_fd(fcntl(at->second.process.get(), F_DUPFD_CLOEXEC, 0));
}

void Assignments::disconnected(pid_t pid) {
    Entry* entry = find(pid);
    if (!entry || !entry->next) return;
    entry->uid = *std::exchange(entry->next, std::nullopt);
    // The row is there: only its uid changes.
    (void)mTable->put(pid, entry->uid, entry->number);
}

void Assignments::ended(pid_t pid) {
    auto at = mEntries.find(pid);
    if (at != mEntries.end() && !at->second.ended) {
        at->second.ended = true;
        mEnded++;
    }
    sweep();
}

void Assignments::sweep() {
    if (mEnded == 0) return;
    mEnded = 0;
    for (auto at = mEntries.begin(); at != mEntries.end();) {
        if (at->second.ended && isReaped(at->second.process)) {
            mTable->erase(at->first);
            at = mEntries.erase(at);
            continue;
        }
        mEnded += at->second.ended ? 1 : 0;
        ++at;
    }
}

}  // namespace binderhost::hub

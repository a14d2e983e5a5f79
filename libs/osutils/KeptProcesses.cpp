// SPDX-License-Identifier: Apache-2.0
//
// Kept processes: the table, and who has to leave it.
#include "KeptProcesses.h"

#include <errno.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <utility>

namespace NQS::OS {

namespace {

uid_t ownerOf(const char* path) {
    struct stat status;
    return stat(path, &status) == 0 ? status.st_uid : 0;
}

}  // namespace

KeptProcesses::KeptProcesses(const char* root, size_t most)
      : mRoot(root), mMost(most), mGoneUid(ownerOf(root)) {}

std::optional<int> KeptProcesses::uid(int pid) {
    const Kept kept = find(pid);
    if (kept == nullptr) return std::nullopt;
    const std::optional<int> uid = kept->uid();
    if (!uid) drop(pid, kept);
    return uid;
}

std::string KeptProcesses::commandName(int pid) {
    const Kept kept = find(pid);
    if (kept == nullptr) return {};
    std::optional<std::string> name = kept->commandName();
    if (name) return *std::move(name);
    drop(pid, kept);
    return {};
}

std::optional<int> KeptProcesses::keep(int pid, bool (*isProcess)(int pid)) {
    if (!makeRoom()) return std::nullopt;
    Kept kept = KeptProcess::open(mRoot, pid, mGoneUid);
    if (kept == nullptr) {
        if (errno == EMFILE || errno == ENFILE) clear();
        return std::nullopt;
    }
    // In this order: what lives after the question lived during it, under this pid.
    if (!isProcess(pid)) return std::nullopt;
    const std::optional<int> uid = kept->uid();
    if (uid) insert(pid, std::move(kept));
    return uid;
}

void KeptProcesses::drop(int pid) {
    Kept dropped;
    const std::lock_guard<std::mutex> lock(mMutex);
    const auto found = mIndex.find(pid);
    if (found != mIndex.end()) dropped = takeLocked(found->second);
}

void KeptProcesses::drop(int pid, const Kept& kept) {
    Kept dropped;
    const std::lock_guard<std::mutex> lock(mMutex);
    const auto found = mIndex.find(pid);
    if (found == mIndex.end() || mEntries[found->second].kept != kept) return;
    dropped = takeLocked(found->second);
}

size_t KeptProcesses::size() {
    const std::lock_guard<std::mutex> lock(mMutex);
    return mEntries.size();
}

size_t KeptProcesses::most() const {
    struct rlimit files;
    if (getrlimit(RLIMIT_NOFILE, &files) != 0) return 0;
    return static_cast<size_t>(std::min<rlim_t>(mMost, files.rlim_cur / 4));
}

KeptProcesses::Kept KeptProcesses::find(int pid) {
    Kept found;
    Entry suspect{};
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        const auto index = mIndex.find(pid);
        if (index != mIndex.end()) found = mEntries[index->second].kept;
        if (++mQuestions % kQuestionsPerLook == 0) suspect = nextLocked();
    }
    if (suspect.kept != nullptr && !suspect.kept->uid()) drop(suspect.pid, suspect.kept);
    return found;
}

bool KeptProcesses::makeRoom() {
    const size_t most = this->most();
    std::vector<Kept> surplus;
    Entry victim{};
    bool leaves = false;
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        // After the limit was lowered.
        while (mEntries.size() > most)
            surplus.push_back(takeLocked(mEntries.size() - 1));
        if (mEntries.size() < most) return true;
        victim = nextLocked();
        if (victim.kept == nullptr) return false;
        leaves = ++mTurnedAway % kNewcomers == 0;
    }
    if (!leaves && victim.kept->uid()) return false;
    drop(victim.pid, victim.kept);
    return true;
}

void KeptProcesses::insert(int pid, Kept kept) {
    Kept replaced;
    const std::lock_guard<std::mutex> lock(mMutex);
    const auto found = mIndex.find(pid);
    if (found != mIndex.end()) {
        replaced = std::exchange(mEntries[found->second].kept, std::move(kept));
    } else if (mEntries.size() < mMost) {
        mIndex.emplace(pid, mEntries.size());
        mEntries.push_back({pid, std::move(kept)});
    }
}

void KeptProcesses::clear() {
    std::vector<Entry> dropped;
    const std::lock_guard<std::mutex> lock(mMutex);
    dropped.swap(mEntries);
    mIndex.clear();
}

KeptProcesses::Entry KeptProcesses::nextLocked() {
    if (mEntries.empty()) return {};
    return mEntries[mHand++ % mEntries.size()];
}

KeptProcesses::Kept KeptProcesses::takeLocked(size_t index) {
    Kept taken = std::move(mEntries[index].kept);
    mIndex.erase(mEntries[index].pid);
    if (index + 1 != mEntries.size()) {
        mEntries[index] = std::move(mEntries.back());
        mIndex[mEntries[index].pid] = index;
    }
    mEntries.pop_back();
    return taken;
}

}  // namespace NQS::OS

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

std::optional<KeptProcesses::Owner> KeptProcesses::owner(int pid) {
    const Kept kept = find(pid);
    if (kept == nullptr) return std::nullopt;
    const std::optional<Owner> owner = kept->owner();
    if (!owner) drop(pid, kept);
    return owner;
}

std::string KeptProcesses::commandName(int pid) {
    const Kept kept = find(pid);
    if (kept == nullptr) return {};
    std::optional<std::string> name = kept->commandName();
    if (name) return *std::move(name);
    drop(pid, kept);
    return {};
}

std::optional<KeptProcesses::Owner> KeptProcesses::keep(int pid, bool (*isProcess)(int pid)) {
    if (!makeRoom()) return std::nullopt;
    Kept kept = KeptProcess::open(mRoot, pid, mGoneUid);
    if (kept == nullptr) {
        if (errno == EMFILE || errno == ENFILE) clear();
        return std::nullopt;
    }
    // In this order: what lives after the question lived during it, under this pid.
    if (!isProcess(pid)) return std::nullopt;
    const std::optional<Owner> owner = kept->owner();
    if (owner) insert(pid, std::move(kept));
    return owner;
}

void KeptProcesses::drop(int pid) {
    Kept dropped;
    const std::lock_guard<std::mutex> lock(mMutex);
    dropped = takeLocked(pid);
}

void KeptProcesses::drop(int pid, const Kept& kept) {
    Kept dropped;
    const std::lock_guard<std::mutex> lock(mMutex);
    if (atLocked(pid) == kept) dropped = takeLocked(pid);
}

size_t KeptProcesses::size() {
    const std::lock_guard<std::mutex> lock(mMutex);
    return mPids.size();
}

size_t KeptProcesses::most() const {
    struct rlimit files;
    if (getrlimit(RLIMIT_NOFILE, &files) != 0) return 0;
    return static_cast<size_t>(std::min<rlim_t>(mMost, files.rlim_cur / 4));
}

KeptProcesses::Kept KeptProcesses::find(int pid) {
    Kept found;
    Kept suspect;
    int suspectPid = 0;
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        found = atLocked(pid);
        if (++mQuestions % kQuestionsPerLook == 0) {
            suspectPid = nextLocked();
            suspect = atLocked(suspectPid);
        }
    }
    if (suspect != nullptr && !suspect->owner()) drop(suspectPid, suspect);
    return found;
}

bool KeptProcesses::hasKnownRoom() {
    const std::lock_guard<std::mutex> lock(mMutex);
    return mPids.size() < mKnownMost && ++mAdditions % kAdditionsPerLimit != 0;
}

bool KeptProcesses::makeRoom() {
    if (hasKnownRoom()) return true;
    const size_t most = this->most();
    std::vector<Kept> surplus;
    int victimPid = 0;
    Kept victim;
    bool leaves = false;
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mKnownMost = most;
        // After the limit was lowered.
        while (mPids.size() > most)
            surplus.push_back(takeLocked(mPids.back()));
        if (mPids.size() < most) return true;
        victimPid = nextLocked();
        victim = atLocked(victimPid);
        if (victim == nullptr) return false;
        leaves = ++mTurnedAway % kNewcomers == 0;
    }
    if (!leaves && victim->owner()) return false;
    drop(victimPid, victim);
    return true;
}

void KeptProcesses::insert(int pid, Kept kept) {
    Kept replaced;
    const std::lock_guard<std::mutex> lock(mMutex);
    const auto found = mEntries.find(pid);
    if (found != mEntries.end()) {
        replaced = std::exchange(found->second.kept, std::move(kept));
    } else if (mPids.size() < mMost) {
        mEntries.emplace(pid, Entry{std::move(kept), mPids.size()});
        mPids.push_back(pid);
    }
}

void KeptProcesses::clear() {
    std::unordered_map<int, Entry> dropped;
    const std::lock_guard<std::mutex> lock(mMutex);
    dropped.swap(mEntries);
    mPids.clear();
}

int KeptProcesses::nextLocked() {
    return mPids.empty() ? 0 : mPids[mHand++ % mPids.size()];
}

KeptProcesses::Kept KeptProcesses::atLocked(int pid) {
    const auto found = mEntries.find(pid);
    return found == mEntries.end() ? nullptr : found->second.kept;
}

KeptProcesses::Kept KeptProcesses::takeLocked(int pid) {
    auto taken = mEntries.extract(pid);
    if (taken.empty()) return nullptr;
    const size_t index = taken.mapped().index;
    const int last = mPids.back();
    mPids[index] = last;
    mPids.pop_back();
    if (last != pid) mEntries.at(last).index = index;
    return std::move(taken.mapped().kept);
}

}  // namespace NQS::OS

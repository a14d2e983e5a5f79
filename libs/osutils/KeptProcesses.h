// SPDX-License-Identifier: Apache-2.0
//
// Kept processes: the known processes' descriptors, by pid.
//
// Bound: kMost processes, and no more than a quarter of the soft limit of descriptors, so that
// these two a process leave half of them to everyone else. The limit is never changed; it is read
// when the table is full as far as is known, and else at one addition in kAdditionsPerLimit, so
// that one which is lowered is exceeded for so many at most. Memory is reckoned from the size of
// the structures:
//
//     soft limit    kept    descriptors    memory here    in the kernel
//     1024           256            512         32 KiB         0.6 MiB
//     32768         2048           4096        256 KiB         4.6 MiB
//
// Who goes: the dead, when they are asked about, when isProcessAlive() finds them so, and else by
// the hand that looks at one entry every kQuestionsPerLook questions. When all are alive and the
// table is full, a newcomer is mostly turned away and answered the slow way; one in kNewcomers
// takes the place under the hand. So a list longer than the table, asked over and over, finds
// nearly as many of its processes as the table holds, where the least recently used going first
// would lose each just before it is asked again; and yet a lasting change of processes gets in.
// When descriptors run out all are given up.
//
// Threads: any. The mutex guards the table and is held for no system call; entries are shared, so
// that one may be asked while it is dropped. One mutex will do: it is held for a hundredth of the
// time that the question itself takes.
#pragma once

#include <android-base/thread_annotations.h>
#include <stddef.h>
#include <sys/types.h>

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "KeptProcess.h"

namespace NQS::OS {

class KeptProcesses {
public:
    static constexpr size_t kMost = 2048;
    static constexpr unsigned kQuestionsPerLook = 128;
    static constexpr unsigned kNewcomers = 16;
    static constexpr unsigned kAdditionsPerLimit = 16;

    /** `root` must outlive this object; it is "/proc" but in tests, which may also keep fewer. */
    explicit KeptProcesses(const char* root, size_t most = kMost);
    KeptProcesses(const KeptProcesses&) = delete;
    KeptProcesses& operator=(const KeptProcesses&) = delete;

    using Owner = KernelProcess::Owner;

    /** Of a kept process that lives; otherwise nothing, and it is kept no longer. */
    [[nodiscard]] std::optional<Owner> owner(int pid) EXCLUDES(mMutex);

    /** The first string of its command line, if it has one; otherwise empty. */
    [[nodiscard]] std::string commandName(int pid) EXCLUDES(mMutex);

    /**
     * Keeps the process, if there is room and `isProcess(pid)` is true, and returns its owner.
     * Empty when it is not kept, which says nothing of the process.
     */
    [[nodiscard]] std::optional<Owner> keep(int pid, bool (*isProcess)(int pid)) EXCLUDES(mMutex);

    /** Forgets what is kept under the pid, if anything. */
    void drop(int pid) EXCLUDES(mMutex);

    [[nodiscard]] size_t size() EXCLUDES(mMutex);

private:
    using Kept = std::shared_ptr<const KeptProcess>;
    struct Entry {
        Kept kept;
        /** In mPids. */
        size_t index;
    };

    /** How many may be kept now. */
    [[nodiscard]] size_t most() const;
    /** Whether there is room as far as is known, and it is not time to ask again. */
    bool hasKnownRoom() EXCLUDES(mMutex);
    /** What is kept under the pid, or null; now and then looks whether some other one lives. */
    Kept find(int pid) EXCLUDES(mMutex);
    /** Whether a newcomer may be kept; drops one for it where need be. */
    bool makeRoom() EXCLUDES(mMutex);
    void insert(int pid, Kept kept) EXCLUDES(mMutex);
    void clear() EXCLUDES(mMutex);
    /** Drops exactly this one: another thread may have replaced it. */
    void drop(int pid, const Kept& kept) EXCLUDES(mMutex);
    /** The pid under the hand, which moves on; 0 when nothing is kept. */
    int nextLocked() REQUIRES(mMutex);
    /** Null when nothing is kept under the pid. */
    Kept atLocked(int pid) REQUIRES(mMutex);
    /** Takes one out; whoever calls lets go of it, and so closes it, without the mutex. */
    Kept takeLocked(int pid) REQUIRES(mMutex);

    const char* const mRoot;
    const size_t mMost;
    /** What the folder of a process that is gone says: root, as seen in this user namespace. */
    const uid_t mGoneUid;

    /** Guards all below. */
    std::mutex mMutex;
    std::unordered_map<int, Entry> mEntries GUARDED_BY(mMutex);
    /** Of all entries, in the order in which the hand goes round. */
    std::vector<int> mPids GUARDED_BY(mMutex);
    size_t mHand GUARDED_BY(mMutex) = 0;
    unsigned mQuestions GUARDED_BY(mMutex) = 0;
    unsigned mTurnedAway GUARDED_BY(mMutex) = 0;
    /** How many may be kept, when that was last asked. */
    size_t mKnownMost GUARDED_BY(mMutex) = 0;
    unsigned mAdditions GUARDED_BY(mMutex) = 0;
};

}  // namespace NQS::OS

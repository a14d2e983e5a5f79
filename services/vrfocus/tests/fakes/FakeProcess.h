// SPDX-License-Identifier: Apache-2.0
//
// Fake process table: made-up processes behind NQS::OS::Process.
//
// Linked in place of the process library. One table per program; a test clears it first. Any
// thread.
#pragma once

#include <osutils/ThreadAnnotations.h>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace NQS::OS {

class FakeProcessTable {
public:
    static FakeProcessTable& instance();

    /** Empty, with all counts at 0 and no hook. */
    void clear() EXCLUDES(mMutex);
    /** Starts a process, or changes one: a new uid under the same pid is a reused pid. */
    void set(int pid, int uid, const std::string& name) EXCLUDES(mMutex);
    void kill(int pid) EXCLUDES(mMutex);
    /** Run by each such question, with the pid and no lock held, before it is answered. */
    void setLivenessHook(std::function<void(int)> hook) EXCLUDES(mMutex);
    void setUidHook(std::function<void(int)> hook) EXCLUDES(mMutex);
    void setNameHook(std::function<void(int)> hook) EXCLUDES(mMutex);
    /** Liveness checks since the last clear(). */
    int livenessChecks() EXCLUDES(mMutex);
    /** Names that were asked for in their short form: none should be. */
    int shortNames() EXCLUDES(mMutex);

    std::optional<int> uidOf(int pid) EXCLUDES(mMutex);
    std::string nameOf(int pid, bool full) EXCLUDES(mMutex);
    bool isAlive(int pid) EXCLUDES(mMutex);

private:
    struct Entry {
        int uid;
        std::string name;
    };

    using Hook = std::function<void(int)>;
    /** Runs the hook without the lock. */
    void run(Hook FakeProcessTable::*hook, int pid) EXCLUDES(mMutex);

    std::mutex mMutex;
    std::map<int, Entry> mProcesses GUARDED_BY(mMutex);
    Hook mLivenessHook GUARDED_BY(mMutex);
    Hook mUidHook GUARDED_BY(mMutex);
    Hook mNameHook GUARDED_BY(mMutex);
    int mLivenessChecks GUARDED_BY(mMutex) = 0;
    int mShortNames GUARDED_BY(mMutex) = 0;
};

}  // namespace NQS::OS

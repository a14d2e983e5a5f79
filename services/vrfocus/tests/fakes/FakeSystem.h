// SPDX-License-Identifier: Apache-2.0
//
// Fake system: made-up processes, properties and the log, linked in place of their libraries.
//
// One of each per program; a test clears them first. Any thread.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "CallLog.h"
#include "ValueMutex.h"

namespace NQS::OS {

/** The processes behind NQS::OS::Process. */
class FakeProcessTable {
public:
    static FakeProcessTable& instance();

    using Hook = std::function<void(int)>;

    /** Empty, with all counts at 0 and no hook. */
    void clear() {
        mState.access([](State& state) { state = State(); });
    }
    /** Starts a process, or changes one: a new uid under the same pid is a reused pid. */
    void set(int pid, int uid, const std::string& name) {
        mState.access([&](State& state) { state.processes[pid] = {uid, name}; });
    }
    void kill(int pid) {
        mState.access([&](State& state) { state.processes.erase(pid); });
    }
    /** Run by each such question, with the pid and no lock held, before it is answered. */
    void setLivenessHook(const Hook& hook) { setHook(&State::onLiveness, hook); }
    void setUidHook(const Hook& hook) { setHook(&State::onUid, hook); }
    void setNameHook(const Hook& hook) { setHook(&State::onName, hook); }
    /** Liveness checks since the last clear(). */
    int livenessChecks() {
        return mState.access([](State& state) { return state.livenessChecks; });
    }
    /** Names that were asked for in their short form: none should be. */
    int shortNames() {
        return mState.access([](State& state) { return state.shortNames; });
    }

    std::optional<int> uidOf(int pid);
    std::string nameOf(int pid, bool full);
    bool isAlive(int pid);

private:
    struct State {
        /** By pid: uid and name. */
        std::map<int, std::pair<int, std::string>> processes;
        Hook onLiveness, onUid, onName;
        int livenessChecks = 0;
        int shortNames = 0;
    };

    void setHook(Hook State::*which, const Hook& hook) {
        mState.access([&](State& state) { state.*which = hook; });
    }
    void run(Hook State::*hook, int pid);

    ValueMutexBase<State> mState;
};

/** Boolean system properties, and what was read of them. */
class FakeProperties {
public:
    static FakeProperties& instance();

    void clear() {
        mValues.access([](auto& values) { values.clear(); });
        mReads.take();
    }
    void set(const std::string& name, bool value) {
        mValues.access([&](auto& values) { values[name] = value; });
    }
    bool get(const std::string& name, bool defaultValue);
    /** Names in the order in which they were read since the last take. */
    std::vector<std::string> takeReads() { return mReads.take(); }

private:
    ValueMutexBase<std::map<std::string, bool>> mValues;
    CallLog mReads;
};

/** The lines of the tag "VrFocus": priority letter, space, text. Others, the runtime's, go to
 *  stderr. */
CallLog& fakeLog();

}  // namespace NQS::OS

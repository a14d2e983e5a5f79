// SPDX-License-Identifier: Apache-2.0
//
// Fake process table, and the process library's questions answered from it.
#include "FakeProcess.h"

#include <osutils/Process.h>

#include <utility>

namespace NQS::OS {

FakeProcessTable& FakeProcessTable::instance() {
    static FakeProcessTable table;
    return table;
}

void FakeProcessTable::clear() {
    const std::lock_guard<std::mutex> lock(mMutex);
    mProcesses.clear();
    mLivenessHook = nullptr;
    mUidHook = nullptr;
    mNameHook = nullptr;
    mLivenessChecks = 0;
    mShortNames = 0;
}

void FakeProcessTable::set(int pid, int uid, const std::string& name) {
    const std::lock_guard<std::mutex> lock(mMutex);
    mProcesses[pid] = {uid, name};
}

void FakeProcessTable::kill(int pid) {
    const std::lock_guard<std::mutex> lock(mMutex);
    mProcesses.erase(pid);
}

void FakeProcessTable::setLivenessHook(std::function<void(int)> hook) {
    const std::lock_guard<std::mutex> lock(mMutex);
    mLivenessHook = std::move(hook);
}

void FakeProcessTable::setUidHook(std::function<void(int)> hook) {
    const std::lock_guard<std::mutex> lock(mMutex);
    mUidHook = std::move(hook);
}

void FakeProcessTable::setNameHook(std::function<void(int)> hook) {
    const std::lock_guard<std::mutex> lock(mMutex);
    mNameHook = std::move(hook);
}

int FakeProcessTable::livenessChecks() {
    const std::lock_guard<std::mutex> lock(mMutex);
    return mLivenessChecks;
}

int FakeProcessTable::shortNames() {
    const std::lock_guard<std::mutex> lock(mMutex);
    return mShortNames;
}

void FakeProcessTable::run(Hook FakeProcessTable::*hook, int pid) {
    Hook function;
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        function = this->*hook;
    }
    if (function) function(pid);
}

std::optional<int> FakeProcessTable::uidOf(int pid) {
    run(&FakeProcessTable::mUidHook, pid);
    const std::lock_guard<std::mutex> lock(mMutex);
    const auto process = mProcesses.find(pid);
    if (process == mProcesses.end()) return std::nullopt;
    return process->second.uid;
}

std::string FakeProcessTable::nameOf(int pid, bool full) {
    run(&FakeProcessTable::mNameHook, pid);
    const std::lock_guard<std::mutex> lock(mMutex);
    if (!full) ++mShortNames;
    const auto process = mProcesses.find(pid);
    return process == mProcesses.end() ? "" : process->second.name;
}

bool FakeProcessTable::isAlive(int pid) {
    run(&FakeProcessTable::mLivenessHook, pid);
    const std::lock_guard<std::mutex> lock(mMutex);
    ++mLivenessChecks;
    return mProcesses.count(pid) != 0;
}

std::optional<int> Process::getProcessUid(int pid) {
    return FakeProcessTable::instance().uidOf(pid);
}

std::string Process::getProcessName(int pid, bool full) {
    return FakeProcessTable::instance().nameOf(pid, full);
}

bool Process::isProcessAlive(int pid) {
    return FakeProcessTable::instance().isAlive(pid);
}

}  // namespace NQS::OS

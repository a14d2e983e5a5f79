// SPDX-License-Identifier: Apache-2.0
//
// Fake system: the functions of the libraries that it stands in for.
#include "FakeSystem.h"

#include <log/log.h>
#include <osutils/Process.h>

#include <array>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace NQS::OS {

FakeProcessTable& FakeProcessTable::instance() {
    static FakeProcessTable table;
    return table;
}

void FakeProcessTable::run(Hook State::*hook, int pid) {
    const Hook function = mState.access([&](State& state) { return state.*hook; });
    if (function) function(pid);
}

std::optional<int> FakeProcessTable::uidOf(int pid) {
    run(&State::onUid, pid);
    return mState.access([&](State& state) -> std::optional<int> {
        const auto process = state.processes.find(pid);
        if (process == state.processes.end()) return std::nullopt;
        return process->second.first;
    });
}

std::string FakeProcessTable::nameOf(int pid, bool full) {
    run(&State::onName, pid);
    return mState.access([&](State& state) -> std::string {
        if (!full) ++state.shortNames;
        const auto process = state.processes.find(pid);
        return process == state.processes.end() ? "" : process->second.second;
    });
}

bool FakeProcessTable::isAlive(int pid) {
    run(&State::onLiveness, pid);
    return mState.access([&](State& state) {
        ++state.livenessChecks;
        return state.processes.contains(pid);
    });
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

FakeProperties& FakeProperties::instance() {
    static FakeProperties properties;
    return properties;
}

bool FakeProperties::get(const std::string& name, bool defaultValue) {
    mReads.add(name);
    return mValues.access([&](auto& values) {
        const auto value = values.find(name);
        return value == values.end() ? defaultValue : value->second;
    });
}

CallLog& fakeLog() {
    // Never destroyed: threads of the runtime may log until the very end.
    static CallLog* const log = new CallLog;
    return *log;
}

}  // namespace NQS::OS

extern "C" int8_t property_get_bool(const char* key, int8_t defaultValue) {
    return NQS::OS::FakeProperties::instance().get(key, defaultValue != 0) ? 1 : 0;
}

extern "C" int __android_log_print(int priority, const char* tag, const char* format, ...) {
    std::array<char, 1024> text{};
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    if (tag != nullptr && strcmp(tag, "VrFocus") == 0) {
        constexpr char kLetters[] = "??VDIWEF";
        NQS::OS::fakeLog().add(std::string(1, kLetters[priority]) + " " + text.data());
    } else {
        fprintf(stderr, "%s: %s\n", tag == nullptr ? "" : tag, text.data());
    }
    return length;
}

// SPDX-License-Identifier: Apache-2.0
//
// Fake log: keeps the lines of the daemon's tag.
#include "FakeLog.h"

#include <log/log.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <utility>

namespace NQS::OS {

FakeLog& FakeLog::instance() {
    // Never destroyed: threads of the runtime may log until the very end.
    static FakeLog* const log = new FakeLog;
    return *log;
}

void FakeLog::add(int priority, const std::string& text) {
    constexpr char kLetters[] = "??VDIWEF";
    const std::lock_guard<std::mutex> lock(mMutex);
    mLines.push_back(std::string(1, kLetters[priority]) + " " + text);
}

std::vector<std::string> FakeLog::take() {
    const std::lock_guard<std::mutex> lock(mMutex);
    return std::exchange(mLines, {});
}

}  // namespace NQS::OS

extern "C" int __android_log_print(int priority, const char* tag, const char* format, ...) {
    std::array<char, 1024> text{};
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    if (tag != nullptr && strcmp(tag, "VrFocus") == 0) {
        NQS::OS::FakeLog::instance().add(priority, text.data());
    } else {
        fprintf(stderr, "%s: %s\n", tag == nullptr ? "" : tag, text.data());
    }
    return length;
}

// SPDX-License-Identifier: Apache-2.0
//
// The least level that a program logs: HOST_LOG_LEVEL, one letter of VDIWEF (as logcat names them).
//
// Problem: the log library of a Linux machine leaves out what is below INFO and reads no
// configuration, while the device's log keeps DEBUG. A program that is linked with this object has
// the level set before main(). Unset: the library's own. Another text is told of on standard error,
// and the library's level stays.
#include <android/log.h>
#include <stdlib.h>

#include <cstdio>
#include <string_view>

namespace {

constexpr std::string_view kLetters = "VDIWEF";

[[maybe_unused]] const bool kIsSet = [] {
    const char* level = getenv("HOST_LOG_LEVEL");
    if (level == nullptr) return false;
    const std::string_view text(level);
    const size_t index = text.size() == 1 ? kLetters.find(text) : std::string_view::npos;
    if (index == std::string_view::npos) {
        std::fprintf(stderr, "HOST_LOG_LEVEL is '%s': one of V D I W E F was expected\n", level);
        return false;
    }
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE + static_cast<int>(index));
    return true;
}();

}  // namespace

// SPDX-License-Identifier: Apache-2.0
//
// The log library's default tag, set before there is a second thread.
//
// Problem: liblog makes the tag of messages that name none at the first of them, in a static
// variable of a function. Its guard is not seen by the thread sanitizer, as the library is not
// built with it: two threads that each log their first message look like a race on the tag.
//
// Usage: linked into every program of the sanitizer's build. The tag is the one that the library
// would take, the program's name.
#include <android/log.h>

#include <cerrno>

namespace {

[[maybe_unused]] const bool kIsSet = [] {
    __android_log_set_default_tag(program_invocation_short_name);
    return true;
}();

}  // namespace

// SPDX-License-Identifier: Apache-2.0
//
// UTF-8: from the platform's strings to the daemon's.
#pragma once

#include <utils/String16.h>
#include <utils/String8.h>

#include <string>

namespace NQS::OS {

/** All of the text: a NUL inside is kept, so that it counts in comparisons. */
inline std::string toUtf8(const android::String16& text) {
    const android::String8 utf8(text);
    return {utf8.c_str(), utf8.size()};
}

}  // namespace NQS::OS

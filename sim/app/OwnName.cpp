// SPDX-License-Identifier: Apache-2.0
// The name under which this process is known.
#include "app/OwnName.h"

#include <string.h>
#include <sys/prctl.h>
#include <unistd.h>

namespace sim {
namespace {

constexpr size_t kShortNameLength = 15;

/** Moves an end over the strings that begin right there, one after the other. */
char* extended(char* end, char** strings) {
    for (; *strings != nullptr && *strings == end; ++strings)
        end += strlen(*strings) + 1;
    return end;
}

}  // namespace

OwnName::OwnName(char** argv) : mStart(argv[0]) {
    mSize = static_cast<size_t>(extended(extended(mStart, argv), environ) - mStart);
    for (char** entry = environ; *entry != nullptr; ++entry)
        mStrings.emplace_back(*entry);
    for (std::string& string : mStrings)
        mEnvironment.push_back(string.data());
    mEnvironment.push_back(nullptr);
    environ = mEnvironment.data();
}

bool OwnName::set(const std::string& name) {
    if (name.empty() || name.size() >= mSize) return false;
    memset(mStart, 0, mSize);
    memcpy(mStart, name.data(), name.size());
    setShort(name);
    return true;
}

void OwnName::setShort(const std::string& name) {
    const size_t start = name.size() > kShortNameLength ? name.size() - kShortNameLength : 0;
    prctl(PR_SET_NAME, name.c_str() + start);
}

}  // namespace sim

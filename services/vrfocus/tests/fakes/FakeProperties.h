// SPDX-License-Identifier: Apache-2.0
//
// Fake properties: boolean system properties that a test sets, and what was read of them.
//
// Linked in place of the property library. One set per program; a test clears it first. Any thread.
#pragma once

#include <osutils/ThreadAnnotations.h>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace NQS::OS {

class FakeProperties {
public:
    static FakeProperties& instance();

    void clear() EXCLUDES(mMutex);
    void set(const std::string& name, bool value) EXCLUDES(mMutex);
    bool get(const std::string& name, bool defaultValue) EXCLUDES(mMutex);
    /** Names in the order in which they were read since the last take. */
    std::vector<std::string> takeReads() EXCLUDES(mMutex);

private:
    std::mutex mMutex;
    std::map<std::string, bool> mValues GUARDED_BY(mMutex);
    std::vector<std::string> mReads GUARDED_BY(mMutex);
};

}  // namespace NQS::OS

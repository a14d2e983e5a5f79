// SPDX-License-Identifier: Apache-2.0
//
// Call log: the order in which fakes were called, as lines of text. Any thread.
#pragma once

#include <android-base/thread_annotations.h>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace NQS::OS {

class CallLog {
public:
    void add(const std::string& call) EXCLUDES(mMutex) {
        std::lock_guard lock(mMutex);
        mCalls.push_back(call);
    }

    /** What was logged since the last take. */
    std::vector<std::string> take() EXCLUDES(mMutex) {
        std::lock_guard lock(mMutex);
        return std::exchange(mCalls, {});
    }

private:
    std::mutex mMutex;
    std::vector<std::string> mCalls GUARDED_BY(mMutex);
};

}  // namespace NQS::OS

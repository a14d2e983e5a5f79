// SPDX-License-Identifier: Apache-2.0
//
// Fake log: the lines that the code under test wrote.
//
// Linked in place of liblog's print function. Lines of the tag "VrFocus" are kept; all others, the
// runtime's, go to stderr. One log per program; a test takes what earlier tests left. Any thread.
#pragma once

#include <osutils/ThreadAnnotations.h>
#include <mutex>
#include <string>
#include <vector>

namespace NQS::OS {

class FakeLog {
public:
    static FakeLog& instance();

    void add(int priority, const std::string& text) EXCLUDES(mMutex);
    /** The lines since the last take, each as priority letter, space, text: "D onDisplay...". */
    std::vector<std::string> take() EXCLUDES(mMutex);

private:
    std::mutex mMutex;
    std::vector<std::string> mLines GUARDED_BY(mMutex);
};

}  // namespace NQS::OS

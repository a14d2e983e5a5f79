// SPDX-License-Identifier: Apache-2.0
//
// TestHub: a hub of a test's own, in a folder of its own, gone with the test.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <map>
#include <string>

namespace binderhost::tests {

using Stats = std::map<std::string, uint64_t>;

/**
 * Asks again and again until the answer is right or a deadline passes, and returns the last one.
 * Each look is a round trip: a wait for the thing, not for time to pass.
 */
[[nodiscard]] Stats lookUntil(const std::function<Stats()>& look,
                              const std::function<bool(const Stats&)>& right);

class TestHub {
public:
    /** controlFd: given to the hub for its control connection; stays the caller's. */
    explicit TestHub(int controlFd = -1);
    ~TestHub();
    TestHub(const TestHub&) = delete;
    TestHub& operator=(const TestHub&) = delete;

    void startHub();
    void stopHub(int signal);

    [[nodiscard]] const std::string& folder() const { return mFolder; }
    [[nodiscard]] std::string path() const { return mFolder + "/hub"; }
    [[nodiscard]] pid_t hubPid() const { return mHub; }

    /** What the hub holds. Its answer is younger than all frames that were sent before. */
    [[nodiscard]] Stats stats() const;
    /** Asks until a number of the hub has this value, or a deadline passes. */
    void awaitStat(const std::string& name, uint64_t value) const;

private:
    std::string mFolder;
    int mControlFd = -1;
    pid_t mHub = -1;
};

}  // namespace binderhost::tests

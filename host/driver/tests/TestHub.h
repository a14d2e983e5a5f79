// SPDX-License-Identifier: Apache-2.0
//
// TestHub: a hub of a test's own, in a folder of its own, gone with the test.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "Child.h"

namespace binderhost::tests {

using Stats = std::map<std::string, uint64_t>;

/**
 * Asks again and again until the answer is right or a deadline passes, and returns the last one.
 * Each look is a round trip: a wait for the thing, not for time to pass.
 */
[[nodiscard]] Stats lookUntil(const std::function<Stats()>& look,
                              const std::function<bool(const Stats&)>& right);

/**
 * What the hub at a path holds; nothing when it refuses to say, as a full one does. Its answer is
 * younger than all frames that were sent before.
 */
[[nodiscard]] Stats statsAt(const std::string& path);
/** Asks until a number of the hub has this value, or a deadline passes. */
void awaitStatAt(const std::string& path, const std::string& name, uint64_t value);

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
    [[nodiscard]] pid_t hubPid() const { return mHub->pid(); }

    [[nodiscard]] Stats stats() const;
    void awaitStat(const std::string& name, uint64_t value) const {
        awaitStatAt(path(), name, value);
    }

private:
    std::string mFolder;
    int mControlFd = -1;
    std::unique_ptr<Child> mHub;
};

/** For tests of the hub itself, each with one of its own. */
class HubFixture : public ::testing::Test, protected TestHub {};

}  // namespace binderhost::tests

// SPDX-License-Identifier: Apache-2.0
//
// HubFixture: a hub of the test's own, in a folder of its own, gone with the test.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <map>
#include <string>

namespace binderhost::tests {

class HubFixture : public ::testing::Test {
protected:
    HubFixture();
    ~HubFixture() override;

    void startHub();
    void stopHub(int signal);

    [[nodiscard]] const std::string& folder() const { return mFolder; }
    [[nodiscard]] std::string path() const { return mFolder + "/hub"; }
    [[nodiscard]] pid_t hubPid() const { return mHub; }

    /** What the hub holds. Its answer is younger than all frames that were sent before. */
    [[nodiscard]] std::map<std::string, uint64_t> stats() const;
    /** Asks until a number of the hub has this value, or a deadline passes. */
    void awaitStat(const std::string& name, uint64_t value) const;
    /** Asks until the hub holds nothing any more, or a deadline passes. */
    void expectEmptyHub() const;

private:
    std::string mFolder;
    pid_t mHub = -1;
};

}  // namespace binderhost::tests

// SPDX-License-Identifier: Apache-2.0
//
// Stack test: a tool, called on a sample stack of the test's own.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/SampleStack.h"

namespace tools {

class StackTest : public testing::Test {
protected:
    explicit StackTest(const std::string& tool) : mTool(tool) {}

    /** The hub, the service manager and one process with these services. */
    ToolProcess& startAll(const std::vector<std::string>& services = {"sample"}) {
        mStack.startHub();
        mStack.startServiceManager();
        return mStack.startServices(services);
    }

    void call(const std::vector<std::string>& arguments) { call(arguments, mStack.surroundings()); }
    void call(const std::vector<std::string>& arguments, const Surroundings& around) {
        std::vector<std::string> words{mTool};
        words.insert(words.end(), arguments.begin(), arguments.end());
        mSeen = runTool(words, around);
    }
    /** Of the latest call. */
    void expectSeen(int status, const testing::Matcher<std::string>& out,
                    const testing::Matcher<std::string>& err) const {
        EXPECT_EQ(mSeen.status, status);
        EXPECT_THAT(mSeen.out, out);
        EXPECT_THAT(mSeen.err, err);
    }

    SampleStack mStack;

private:
    const std::string mTool;
    Transcript mSeen;
};

}  // namespace tools

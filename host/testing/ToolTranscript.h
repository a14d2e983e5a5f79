// SPDX-License-Identifier: Apache-2.0
//
// Tool transcript: a tool as a function over streams, and what it printed at its latest call.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace hosttesting {

class ToolTranscript : public testing::Test {
protected:
    /** `tool` gets the two streams and gives the exit status. */
    template <typename Tool>
    void transcribe(const Tool& tool) {
        std::ostringstream out, err;
        mStatus = tool(out, err);
        mOut = out.str();
        mErr = err.str();
    }
    void expectPrinted(const testing::Matcher<std::string>& text) const {
        EXPECT_EQ(mStatus, 0);
        EXPECT_THAT(mOut, text);
        EXPECT_EQ(mErr, "");
    }
    void expectFailed(int status, const testing::Matcher<std::string>& message) const {
        EXPECT_EQ(mStatus, status);
        EXPECT_EQ(mOut, "");
        EXPECT_THAT(mErr, message);
    }

    int mStatus = -1;
    std::string mOut, mErr;
};

}  // namespace hosttesting

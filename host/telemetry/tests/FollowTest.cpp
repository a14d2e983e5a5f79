// SPDX-License-Identifier: Apache-2.0
//
// Following a sink: a file that is not there yet, grows, is replaced, is cut, and a reader that
// leaves.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <unistd.h>

#include "FollowedTool.h"
#include "TempSink.h"

namespace hosttelemetry {

using test::FollowedTool;
using test::report;
using test::TempSink;
using testing::EndsWith;
using testing::Optional;

namespace {

/** Reports `letter` and expects to see it next. */
void expectSeen(FollowedTool& tool, char letter) {
    ASSERT_EQ(report(9, std::string(1, letter)), 0);
    EXPECT_THAT(tool.nextLine(),
                Optional(EndsWith(",\"id\":9,\"bytes\":\"" + toHex({&letter, 1}) + "\"}")));
}

void append(const TempSink& sink, const std::string& text) {
    FILE* const file = fopen(sink.path().c_str(), "ae");
    if (file == nullptr || fputs(text.c_str(), file) < 0 || fclose(file) != 0) abort();
}

}  // namespace

TEST(Follow, PrintsWhatIsThereAndThenEachEventAsItComes) {
    const TempSink sink;
    ASSERT_EQ(report(9, "a"), 0);
    FollowedTool tool(sink.path());
    EXPECT_THAT(tool.nextLine(), Optional(EndsWith("\"61\"}")));
    for (const char letter : {'b', 'c', 'd'})
        expectSeen(tool, letter);
}

TEST(Follow, WaitsForAFileThatIsNotThereYet) {
    const TempSink sink;
    FollowedTool tool(sink.path() + "-moved");
    FollowedTool other(sink.path());
    expectSeen(other, 'a');
    ASSERT_EQ(rename(sink.path().c_str(), (sink.path() + "-moved").c_str()), 0);
    EXPECT_THAT(tool.nextLine(), Optional(EndsWith("\"61\"}")));
}

TEST(Follow, WaitsForTheRestOfALine) {
    const TempSink sink;
    FollowedTool tool(sink.path());
    append(sink, "@1 9 1 61\n@2 9 2 62");
    EXPECT_EQ(tool.nextLine(), "{\"time_us\":1,\"id\":9,\"bytes\":\"61\"}");
    append(sink, "63\n");
    EXPECT_EQ(tool.nextLine(), "{\"time_us\":2,\"id\":9,\"bytes\":\"6263\"}");
}

TEST(Follow, ReadsAReplacedAndACutFileFromItsBeginning) {
    const TempSink sink;
    FollowedTool tool(sink.path());
    append(sink, "@1 9 1 61\n@2 9 1 6");
    EXPECT_EQ(tool.nextLine(), "{\"time_us\":1,\"id\":9,\"bytes\":\"61\"}");
    ASSERT_EQ(unlink(sink.path().c_str()), 0);
    expectSeen(tool, 'b');
    expectSeen(tool, 'c');
    ASSERT_EQ(truncate(sink.path().c_str(), 0), 0);
    append(sink, "@4 9 1 64\n");
    EXPECT_EQ(tool.nextLine(), "{\"time_us\":4,\"id\":9,\"bytes\":\"64\"}");
}

TEST(Follow, EndsWhenItsReaderHasGone) {
    const TempSink sink;
    FollowedTool tool(sink.path());
    expectSeen(tool, 'a');
    tool.hangUp();
    EXPECT_EQ(tool.wait(), 0);
}

}  // namespace hosttelemetry

// SPDX-License-Identifier: Apache-2.0
//
// Options of dumpsys, understood and refused.
#include "dumpsys/DumpsysOptions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tools {

using std::chrono::milliseconds;
using Action = DumpsysOptions::Action;

TEST(DumpsysOptions, TimeoutIsOfSecondsOrMilliseconds) {
    const struct {
        std::vector<std::string> arguments;
        milliseconds timeout;
    } kRows[] = {
            {{"x"}, milliseconds(10'000)},
            {{"-t", "1", "x"}, milliseconds(1'000)},
            {{"-t3", "x"}, milliseconds(3'000)},
            {{"-T", "1", "x"}, milliseconds(1)},
            {{"-T250", "x"}, milliseconds(250)},
            {{"-t", "1", "-T", "5", "x"}, milliseconds(5)},
            {{"-t", "2147483", "x"}, milliseconds(2'147'483'000)},
            {{"x", "-t", "1"}, milliseconds(10'000)},
    };
    for (const auto& row : kRows) {
        std::string error;
        const auto options = parseDumpsysOptions(row.arguments, &error);
        ASSERT_TRUE(options) << error;
        EXPECT_EQ(options->timeout, row.timeout);
        EXPECT_EQ(options->action, Action::One);
    }
}

TEST(DumpsysOptions, ServiceIsTheFirstWordThatIsNoOption) {
    std::string error;
    const auto options = parseDumpsysOptions({"--pid", "--", "-x", "--pid", "--"}, &error);
    ASSERT_TRUE(options) << error;
    EXPECT_EQ(options->action, Action::One);
    EXPECT_TRUE(options->pid);
    EXPECT_EQ(options->service, "-x");
    EXPECT_EQ(options->arguments.size(), 2u);
}

TEST(DumpsysOptions, NamesToSkipStandBehindEachOtherOrWithCommas) {
    std::string error;
    const auto options = parseDumpsysOptions({"--skip", "--pid", "a,b,", "c", "-t"}, &error);
    ASSERT_TRUE(options) << error;
    EXPECT_EQ(options->action, Action::All);
    EXPECT_TRUE(options->pid);
    EXPECT_THAT(options->skipped, testing::ElementsAre("-t", "a", "b", "c"));
}

TEST(DumpsysOptions, WrongCommandLinesAreRefusedWithAReason) {
    const struct {
        std::vector<std::string> arguments;
        const char* error;
    } kRows[] = {
            {{"--thread", "x"}, "unknown option '--thread'"},
            {{"--clients", "x"}, "unknown option '--clients'"},
            {{"-x"}, "unknown option '-x'"},
            {{"-"}, "unknown option '-'"},
            {{"-t"}, "-t wants a number of seconds"},
            {{"-T"}, "-T wants a number of milliseconds"},
            {{"-t", "0", "x"}, "invalid timeout (seconds): '0'"},
            {{"-t", "-1", "x"}, "invalid timeout (seconds): '-1'"},
            {{"-t", "1s", "x"}, "invalid timeout (seconds): '1s'"},
            {{"-t", "", "x"}, "invalid timeout (seconds): ''"},
            {{"-t", "2147484", "x"}, "invalid timeout (seconds): '2147484'"},
            {{"-T", "99999999999", "x"}, "invalid timeout (milliseconds): '99999999999'"},
            {{"--skip"}, "--skip wants names of services"},
            {{"--skip", ","}, "--skip wants names of services"},
            {{"-l", "x"}, "-l goes with nothing else"},
            {{"-l", "--pid"}, "-l goes with nothing else"},
            {{"-l", "--skip", "x"}, "-l goes with nothing else"},
            {{"-l", "--help"}, "-l goes with nothing else"},
            {{"--help", "x"}, "--help goes with nothing else"},
            {{"x", "\xff"}, "argument '\xff' is not UTF-8"},
    };
    for (const auto& row : kRows) {
        std::string error;
        EXPECT_FALSE(parseDumpsysOptions(row.arguments, &error)) << row.error;
        EXPECT_EQ(error, row.error);
    }
}

}  // namespace tools

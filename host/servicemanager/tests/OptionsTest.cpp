// SPDX-License-Identifier: Apache-2.0
//
// Options: command lines that are ones, and those that are none.
#include "../Options.h"

#include <gtest/gtest.h>

namespace servicemanager {

TEST(Options, GoodCommandLinesAreTaken) {
    std::string error;
    const auto plain = parseOptions({}, &error);
    ASSERT_TRUE(plain);
    EXPECT_FALSE(plain->help);
    EXPECT_EQ(plain->readyFd, std::nullopt);

    const auto ready = parseOptions({"--ready-fd", "7"}, &error);
    ASSERT_TRUE(ready);
    EXPECT_EQ(ready->readyFd, 7);

    const auto help = parseOptions({"--help"}, &error);
    ASSERT_TRUE(help);
    EXPECT_TRUE(help->help);
}

TEST(Options, WrongOnesAreExplained) {
    const std::vector<std::string> rows[] = {
            {"--ready-fd"},
            {"--ready-fd", "x"},
            {"--ready-fd", "-1"},
            {"--ready-fd", "7x"},
            {"--what"},
            {"-h"},
            {"foo"},
            {""},
            {"--ready-fd=7"},
    };
    for (const auto& row : rows) {
        std::string error;
        EXPECT_FALSE(parseOptions(row, &error)) << row[0];
        EXPECT_NE(error, "") << row[0];
    }
}

}  // namespace servicemanager

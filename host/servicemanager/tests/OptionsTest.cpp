// SPDX-License-Identifier: Apache-2.0
//
// Options: command lines that are ones, and those that are none.
#include "../Options.h"

#include <gtest/gtest.h>

namespace servicemanager {

TEST(Options, GoodCommandLinesAreTaken) {
    const struct {
        std::vector<std::string> words;
        bool help;
        std::optional<int> readyFd;
    } rows[] = {{{}, false, {}}, {{"--ready-fd", "7"}, false, 7}, {{"--help"}, true, {}}};
    for (const auto& row : rows) {
        std::string error;
        const auto options = parseOptions(row.words, &error);
        ASSERT_TRUE(options) << error;
        EXPECT_EQ(options->help, row.help);
        EXPECT_EQ(options->readyFd, row.readyFd);
    }
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

// SPDX-License-Identifier: Apache-2.0
// Shortening: what is needed stays, all else goes, and the tries end.
#include "Shortening.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

namespace oracle {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

Lines manyWith(size_t count, const std::vector<std::pair<size_t, std::string>>& needed) {
    Lines lines(count, "other");
    for (const auto& [at, line] : needed)
        lines[at] = line;
    return lines;
}

/** Shows when all of these are there in this order. */
bool holdsInOrder(const Lines& lines, const Lines& needed) {
    size_t found = 0;
    for (const std::string& line : lines) {
        if (found < needed.size() && line == needed[found]) ++found;
    }
    return found == needed.size();
}

TEST(ShorteningTest, WhatIsNeededStaysAndNothingElse) {
    struct Case {
        size_t count;
        std::vector<std::pair<size_t, std::string>> needed;
    };
    for (const Case& each : {Case{1, {{0, "a"}}},
                             {2, {{1, "a"}}},
                             {100, {{99, "a"}}},
                             {100, {{0, "a"}, {99, "b"}}},
                             {257, {{3, "a"}, {4, "b"}, {128, "c"}, {200, "d"}}}}) {
        Lines needed;
        for (const auto& [at, line] : each.needed)
            needed.push_back(line);
        const auto shows = [&](const Lines& lines) { return holdsInOrder(lines, needed); };
        EXPECT_EQ(shortened(manyWith(each.count, each.needed), shows, /*tries=*/1000), needed)
                << each.count;
    }
}

TEST(ShorteningTest, OneThatCanGoOnlyAfterAnotherGoesToo) {
    // "a" shows it alone, but not in the company of "b" without "c".
    const auto shows = [](const Lines& lines) {
        const auto has = [&](const char* line) {
            return std::find(lines.begin(), lines.end(), line) != lines.end();
        };
        return has("a") && has("b") == has("c");
    };
    EXPECT_THAT(shortened({"a", "c", "x", "b"}, shows, /*tries=*/1000), SizeIs(3));
    EXPECT_THAT(shortened({"x", "a", "y", "b", "c", "z"}, shows, /*tries=*/1000), ElementsAre("a"));
}

TEST(ShorteningTest, NoMoreTriesAreMadeThanAllowed) {
    int tries = 0;
    const Lines lines = shortened(
            manyWith(64, {}),
            [&](const Lines& candidate) {
                ++tries;
                return candidate.size() >= 60;
            },
            /*tries=*/10);
    EXPECT_EQ(tries, 10);
    EXPECT_GE(lines.size(), 60);
}

TEST(ShorteningTest, WaitingForSomethingStaysWithWhatBringsItAbout) {
    const Lines lines{"kill activity", "restart activity", "wait until connected activity",
                      "wait until connected display", "show"};
    EXPECT_THAT(unitsOf(lines), ElementsAre(SizeIs(1), SizeIs(3), SizeIs(1)));
    const auto shows = [](const Lines& candidate) {
        return holdsInOrder(candidate, {"restart activity"});
    };
    EXPECT_THAT(shortened(lines, shows, /*tries=*/100), SizeIs(3));
}

}  // namespace
}  // namespace oracle

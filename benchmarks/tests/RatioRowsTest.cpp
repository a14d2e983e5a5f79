// SPDX-License-Identifier: Apache-2.0
//
// What the rows of the table of benchmarks say.
#include "RatioRows.h"

#include <gmock/gmock.h>

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

struct VerdictCase {
    const char* about;
    double goal;
    double stretch;
    double measured;  // beside an anchor of 100
    const char* verdict;
};

TEST(RatioRows, ARowEndsWithItsVerdict) {
    const VerdictCase cases[] = {
            {"no goal", 0, 0, 900, "shown"},
            {"below the goal", 1.5, 0, 120, "met"},
            {"at the goal", 1.5, 0, 150, "met"},
            {"above the goal", 1.5, 0, 151, "missed"},
            {"between goal and stretch", 1.5, 1.25, 126, "met"},
            {"at the stretch", 1.5, 1.25, 125, "stretch"},
            {"below the stretch", 1.5, 1.25, 50, "stretch"},
            {"above both", 1.5, 1.25, 200, "missed"},
    };
    for (const VerdictCase& each : cases) {
        const PairedBenchmark pair{
                .name = "work", .anchor = "anchor", .goal = each.goal, .stretch = each.stretch};
        EXPECT_THAT(pairRow(pair, each.measured, /*anchor=*/100),
                    EndsWith(std::string(" ") + each.verdict))
                << each.about;
    }
}

TEST(RatioRows, AHeadingIsToldFromTheRowsThatHaveAGoal) {
    EXPECT_THAT(pairHeading(), StartsWith("work "));
    for (const char* verdict : {" stretch", " met", " missed"})
        EXPECT_THAT(pairHeading(), Not(EndsWith(verdict)));
}

TEST(RatioRows, ARowShowsBothTimesTheirRatioAndTheAims) {
    const PairedBenchmark pair{.name = "notify/10/manual_time:held",
                               .anchor = "look/10/iterations:5/manual_time",
                               .goal = 2.4,
                               .stretch = 2};
    const std::string row = pairRow(pair, 30, 12);
    EXPECT_THAT(row, StartsWith("notify/10:held "));
    for (const char* part : {" 30.00 ", " look/10 ", " 12.00 ", " 2.50 ", " 2.40 ", " 2.00 "})
        EXPECT_THAT(row, HasSubstr(part));
    EXPECT_EQ(row.rfind("2.00") + 4, pairHeading().find("stretch") + 7) << "columns stand below";
}

TEST(RatioRows, LinearGrowthIsShownAsTimeAnItem) {
    const Growth growth{.name = "notify",
                        .expected = Growth::Expected::Linear,
                        .sizes = {10, 1000},
                        .suffix = "/manual_time"};
    const std::string row = growthRow(growth, {{10, 50}, {1000, 5000}});
    EXPECT_THAT(row, HasSubstr(" 10: 5.00  1000: 5.00 "));
    EXPECT_THAT(row, HasSubstr("time x100.00, size x100"));
    EXPECT_THAT(row, EndsWith("n^1.00"));
}

TEST(RatioRows, LogarithmicGrowthIsShownBesideTheLogarithm) {
    const Growth growth{
            .name = "lookup", .expected = Growth::Expected::Logarithmic, .sizes = {10, 100, 1000}};
    const std::string row = growthRow(growth, {{10, 40}, {100, 80}, {1000, 120}});
    EXPECT_THAT(row, HasSubstr(" 10: 40.00  100: 80.00  1000: 120.00 "));
    EXPECT_THAT(row, HasSubstr("time x3.00, size x100, its logarithm x3.00"));
    EXPECT_THAT(row, EndsWith("n^0.24"));
}

}  // namespace

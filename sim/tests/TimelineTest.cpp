// SPDX-License-Identifier: Apache-2.0
// The timeline as it is read: plain and in colours, with what has changed marked.
#include "session/Timeline.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>

namespace sim {
namespace {

std::string written(bool colours, const std::function<void(Timeline&)>& write) {
    char* text = nullptr;
    size_t size = 0;
    FILE* stream = open_memstream(&text, &size);
    Timeline timeline(stream, colours);
    write(timeline);
    fclose(stream);
    const std::string result(text, size);
    free(text);
    return result;
}

const std::vector<Timeline::App> kApps{{"com.a", 41, 10050}, {"com.long.name", 4242, 10061}};

TEST(TimelineTest, aStepReadsAsATable) {
    const std::string text = written(/*colours=*/false, [](Timeline& timeline) {
        timeline.step(3, 15, "Something happens");
        timeline.event("com.a starts");
        timeline.answers(kApps,
                         {{{"com.a", kBoth}, {"com.long.name", kHeadOnly}}, "", "com.a", ""});
    });
    EXPECT_EQ(text,
              "\n"
              " 3/15  Something happens\n"
              "       - com.a starts\n"
              "       app              pid    uid  head  input\n"
              "       com.a             41  10050  yes   yes\n"
              "       com.long.name   4242  10061  yes   -\n"
              "       immersive none   top com.a\n");
}

TEST(TimelineTest, whatDiffersFromTheStepBeforeIsMarkedAndTheDeadAreGone) {
    const std::string text = written(/*colours=*/false, [](Timeline& timeline) {
        timeline.answers(kApps, {{{"com.a", kNoFocus}, {"com.long.name", kBoth}}, "", "com.a", ""});
        timeline.step(2, 2, "Next");
        timeline.answers(kApps, {{{"com.a", kHeadOnly}}, "com.a", "com.a", ""});
    });
    EXPECT_EQ(text.substr(text.find(" 2/2")),
              " 2/2  Next\n"
              "       app              pid    uid  head  input\n"
              "       com.a             41  10050  yes*  -\n"
              "       com.long.name   4242  10061  (gone)\n"
              "       immersive com.a*   top com.a\n");
}

TEST(TimelineTest, escapeSequencesAreWrittenOnlyWhereColoursAreWanted) {
    const auto all = [](Timeline& timeline) {
        timeline.ready("vrfocus", 1);
        timeline.step(1, 1, "Step");
        timeline.event("event");
        timeline.answers(kApps, {{{"com.a", kBoth}}, "", "", ""});
        timeline.success("done");
    };
    EXPECT_EQ(written(/*colours=*/false, all).find('\033'), std::string::npos);
    EXPECT_NE(written(/*colours=*/true, all).find('\033'), std::string::npos);
}

TEST(TimelineTest, aFileWantsNoColours) {
    FILE* file = tmpfile();
    ASSERT_NE(file, nullptr);
    EXPECT_FALSE(Timeline::wantsColours(file));
    fclose(file);
}

}  // namespace
}  // namespace sim

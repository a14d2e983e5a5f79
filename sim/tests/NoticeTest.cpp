// SPDX-License-Identifier: Apache-2.0
// Notices as messages, and who sends which.
#include "world/Notice.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

namespace sim {
namespace {

using Kind = Notice::Kind;

TEST(NoticeTest, everyKindHasItsSenderAndComesBackEqual) {
    const std::vector<std::pair<Kind, const char*>> rows{
            {Kind::ForegroundActivities, "activity"},
            {Kind::ForegroundServices, "activity"},
            {Kind::ProcessDied, "activity"},
            {Kind::DisplayEvent, "display"},
            {Kind::FocusedWindow, "VelmarWindowManager"},
    };
    for (const auto& [kind, sender] : rows) {
        const Notice notice{kind, 1, 2, 3, -4};
        EXPECT_EQ(notice.sender(), sender);
        EXPECT_EQ(Notice::fromJson(notice.toJson()), notice) << sender;
    }
}

TEST(NoticeTest, anUnknownNameOrAMissingMemberIsNoNotice) {
    const Json::Value whole = Notice{}.toJson();
    for (const std::string& member : whole.getMemberNames()) {
        Json::Value cut = whole;
        cut.removeMember(member);
        EXPECT_EQ(Notice::fromJson(cut), std::nullopt) << member;
    }
    Json::Value renamed = whole;
    renamed["notice"] = "processBorn";
    EXPECT_EQ(Notice::fromJson(renamed), std::nullopt);
    EXPECT_EQ(Notice::fromJson(Json::Value("text")), std::nullopt);
}

}  // namespace
}  // namespace sim

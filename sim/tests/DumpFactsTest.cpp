// SPDX-License-Identifier: Apache-2.0
// Dumps that say the right thing, and dumps that say another.
#include "session/DumpFacts.h"

#include <gtest/gtest.h>

namespace sim {
namespace {

const DumpFacts kFacts{{"com.top", "com.app", 7, 10007, true}, {{0, {4, 5}}, {1, {}}}};

const char* const kText =
        "=== VrFocusService ===\n\n=== Clients ===\n"
        " Type: 0 Num: 2 PIDs:\n  4\n  5\n Type: 1 Num: 0 PIDs:\n\n=== Current State ===\n"
        " = Window Focus =\n\n = Top Activity =\n  com.top\n\n = Immersive App =\n"
        "  Package: com.app UID: 10007, PID: 7\n\n = Last 10 Immersive App History =\n";

const char* const kJson = R"({"types": [{"type": 0, "size": 2, "listeners": [4, 5]},
                                        {"type": 1, "size": 0, "listeners": []}],
     "focusPolicy": {"immersiveApp": "com.app", "topActivityPackage": "com.top"}})";

std::string replaced(std::string text, const std::string& from, const std::string& to) {
    const size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return text.replace(at, from.size(), to);
}

TEST(DumpFactsTest, theTextMustShowListenersTopActivityAndImmersiveApp) {
    EXPECT_TRUE(missingInText(kFacts, kText).empty());
    for (const auto& [from, to] : {std::pair("  5\n", ""),
                                   {"Num: 0 PIDs:\n", "Num: 1 PIDs:\n  4\n"},
                                   {"com.top", "com.other"},
                                   {"PID: 7", "PID: 70"},
                                   {"=== VrFocusService ===", ""}}) {
        EXPECT_EQ(missingInText(kFacts, replaced(kText, from, to)).size(), 1u) << from;
    }
    const DumpFacts none{{"com.top", "", 0, 0, false}, kFacts.listeners};
    EXPECT_EQ(missingInText(none, kText).size(), 1u) << "an app where none is due";
}

TEST(DumpFactsTest, theJsonMustParseAndShowTheSame) {
    EXPECT_TRUE(wrongInJson(kFacts, kJson).empty());
    for (const auto& [from, to] : {std::pair("[4, 5]", "[4]"),
                                   {"\"size\": 0", "\"size\": 1"},
                                   {"com.app", "com.other"},
                                   {"com.top", ""},
                                   {"\"focusPolicy\"", "\"policy\""}}) {
        EXPECT_EQ(wrongInJson(kFacts, replaced(kJson, from, to)).size(), 1u) << from;
    }
    EXPECT_EQ(wrongInJson(kFacts, "").size(), 1u);
    EXPECT_EQ(wrongInJson(kFacts, kText).size(), 1u);
}

}  // namespace
}  // namespace sim

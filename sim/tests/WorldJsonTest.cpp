// SPDX-License-Identifier: Apache-2.0
// The world as a message survives the way, and what is no world is refused.
#include <gtest/gtest.h>
#include <json/reader.h>

#include <memory>

#include "world/World.h"

namespace sim {
namespace {

World fullWorld() {
    World world;
    world.installPackage("com.a", {10050, {"P", "Q"}});
    world.installPackage("com.b", {10051, {}});
    world.addProcess(7, "com.a:x", 10050);
    world.addProcess(8, "com.b", 10051);
    static_cast<void>(world.addDisplay(2));
    static_cast<void>(world.startActivity(7, 0));
    static_cast<void>(world.startActivity(8, 0));
    static_cast<void>(world.startActivity(8, 2));
    static_cast<void>(world.setPanelService(7, true));
    static_cast<void>(world.focusWindowOf(8));
    return world;
}

Json::Value parsed(const std::string& text) {
    Json::Value value;
    std::string problem;
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    EXPECT_TRUE(reader->parse(text.data(), text.data() + text.size(), &value, &problem)) << problem;
    return value;
}

TEST(WorldJsonTest, aWorldComesBackEqual) {
    EXPECT_EQ(World::fromJson(World().toJson()), World());
    EXPECT_EQ(World::fromJson(fullWorld().toJson()), fullWorld());
}

TEST(WorldJsonTest, whatIsNoWorldIsRefused) {
    const std::vector<std::string> texts{
            "null",
            "[]",
            "{}",
            R"({"packages":[],"processes":[],"displays":[],"focusedPid":0})",
            R"({"packages":{},"processes":{},"displays":[],"focusedPid":0})",
            R"({"packages":{},"processes":[],"displays":[],"focusedPid":"0"})",
            R"({"packages":{"a":{"uid":1}},"processes":[],"displays":[],"focusedPid":0})",
            R"({"packages":{"a":{"uid":1,"permissions":[1]}},"processes":[],"displays":[],
                "focusedPid":0})",
            R"({"packages":{},"processes":[7],"displays":[],"focusedPid":0})",
            R"({"packages":{},"processes":[{"pid":7,"name":"a","uid":4294967296,
                "panelService":false}],"displays":[],"focusedPid":0})",
            R"({"packages":{},"processes":[],"displays":[{"id":0,"activities":[true]}],
                "focusedPid":0})",
            R"({"packages":{},"processes":[],"displays":[{"id":0,"activities":[7]}],
                "focusedPid":0})",
    };
    for (const std::string& text : texts) {
        EXPECT_EQ(World::fromJson(parsed(text)), std::nullopt) << text;
    }
}

TEST(WorldJsonTest, everySinglePartOfAWorldIsNeeded) {
    const Json::Value whole = fullWorld().toJson();
    for (const std::string& member : whole.getMemberNames()) {
        Json::Value cut = whole;
        cut.removeMember(member);
        EXPECT_EQ(World::fromJson(cut), std::nullopt) << member;
    }
}

}  // namespace
}  // namespace sim

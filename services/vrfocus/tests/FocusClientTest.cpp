// SPDX-License-Identifier: Apache-2.0
//
// The client model: orderings, moves, and the forms in which a client leaves the daemon.
#include <gtest/gtest.h>
#include <json/reader.h>
#include <json/writer.h>
#include <utils/String8.h>

#include <climits>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "FocusClient.h"
#include "FocusClientWithMetadata.h"
#include "FocusType.h"

namespace NQS::OS {
namespace {

using Types = std::set<FocusType>;

const Types kNone;
const Types kBoth = {FocusType::InputTracking, FocusType::HeadTracking};

FocusClientWithMetadata makeClient(int uid, int pid, const std::string& package = "com.app",
                                   const std::string& process = "com.app:remote") {
    return {uid, pid, package, process, kBoth, {FocusType::InputTracking}};
}

Json::Value parse(const std::string& text) {
    Json::Value value;
    std::string errors;
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    EXPECT_TRUE(reader->parse(text.data(), text.data() + text.size(), &value, &errors)) << errors;
    return value;
}

TEST(FocusClientTest, IsOrderedByUidThenPidBothSigned) {
    const std::vector<FocusClient> ascending = {
            {INT_MIN, INT_MIN}, {INT_MIN, -1}, {INT_MIN, INT_MAX}, {-1, 5},
            {0, INT_MIN},       {0, 0},        {0, INT_MAX},       {1, -1},
            {10050, 7},         {INT_MAX, -1}, {INT_MAX, 1},       {INT_MAX, INT_MAX},
    };
    for (size_t i = 0; i < ascending.size(); ++i) {
        for (size_t j = 0; j < ascending.size(); ++j) {
            EXPECT_EQ(ascending[i] < ascending[j], i < j) << i << " " << j;
            EXPECT_EQ(ascending[i] == ascending[j], i == j) << i << " " << j;
        }
    }
}

TEST(FocusClientWithMetadataTest, IsOrderedByIdentityAlone) {
    const FocusClientWithMetadata low = makeClient(1000, 50, "z", "z");
    const FocusClientWithMetadata high = makeClient(10050, 20, "a", "a");
    EXPECT_TRUE(low < high);
    EXPECT_FALSE(high < low);
    const FocusClientWithMetadata same = makeClient(1000, 50, "other", "other");
    EXPECT_FALSE(low < same);
    EXPECT_FALSE(same < low);
}

void expectContentsOf(const FocusClientWithMetadata& client) {
    EXPECT_EQ(client.client(), (FocusClient{10050, 7}));
    EXPECT_EQ(client.package, "com.app");
    EXPECT_EQ(client.process, "com.app:remote");
    EXPECT_EQ(client.backgroundAccess, kBoth);
    EXPECT_EQ(client.currentFocus, Types{FocusType::InputTracking});
}

void expectEmptied(const FocusClientWithMetadata& client) {
    EXPECT_EQ(client.package, "");
    EXPECT_EQ(client.process, "");
    EXPECT_EQ(client.backgroundAccess, kNone);
    EXPECT_EQ(client.currentFocus, kNone);
}

TEST(FocusClientWithMetadataTest, CopyLeavesTheSourceAlone) {
    const FocusClientWithMetadata source = makeClient(10050, 7);
    FocusClientWithMetadata copy(source);
    expectContentsOf(copy);
    copy.currentFocus.clear();
    expectContentsOf(source);
    copy = source;
    expectContentsOf(copy);
}

// NOLINTBEGIN(bugprone-use-after-move): what a moved-from client holds is what is tested.
TEST(FocusClientWithMetadataTest, MoveLeavesTheSourceEmptyHoweverLongItsStrings) {
    for (const size_t length : {size_t{1}, size_t{15}, size_t{16}, size_t{4096}}) {
        FocusClientWithMetadata source =
                makeClient(10050, 7, std::string(length, 'p'), std::string(length, 'q'));
        FocusClientWithMetadata target(std::move(source));
        EXPECT_EQ(std::exchange(target.package, "com.app"), std::string(length, 'p'));
        EXPECT_EQ(std::exchange(target.process, "com.app:remote"), std::string(length, 'q'));
        expectContentsOf(target);
        expectEmptied(source);
    }
}

TEST(FocusClientWithMetadataTest, MoveAssignmentReplacesAllAndLeavesTheSourceEmpty) {
    FocusClientWithMetadata source = makeClient(10050, 7);
    FocusClientWithMetadata target(1, 2, "old", "old", {}, {FocusType::HeadTracking});
    target = std::move(source);
    expectContentsOf(target);
    expectEmptied(source);
}
// NOLINTEND(bugprone-use-after-move)

TEST(FocusClientWithMetadataTest, MoveAssignmentToItselfKeepsTheContents) {
    FocusClientWithMetadata client = makeClient(10050, 7);
    FocusClientWithMetadata& alias = client;
    client = std::move(alias);
    expectContentsOf(client);
}

TEST(ToJsonTest, HoldsTheSixFieldsWithTypesAsAscendingNumbers) {
    const struct {
        FocusClientWithMetadata client;
        const char* json;
    } kRows[] = {
            {makeClient(10050, 4321),
             R"({"backgroundAccess":[0,1],"currentFocus":[1],"package":"com.app","pid":4321,)"
             R"("process":"com.app:remote","uid":10050})"},
            {{INT_MIN, -1, "", "", {}, {}},
             R"({"backgroundAccess":[],"currentFocus":[],"package":"","pid":-1,)"
             R"("process":"","uid":-2147483648})"},
    };
    Json::StreamWriterBuilder compact;
    compact["indentation"] = "";
    for (const auto& row : kRows)
        EXPECT_EQ(Json::writeString(compact, row.client.toJson()), row.json);
}

TEST(ToJsonTest, AnyBytesInANameGiveJsonThatParsesAndValidTextComesBackAsItWas) {
    const struct {
        std::string name;
        bool isValid;
    } kRows[] = {
            {"", true},
            {"quote\" back\\slash / tab\t newline\n bell\a delete\x7f", true},
            {std::string("nul\0inside", 10), true},
            {"gr\xC3\xBC\xC3\x9F", true},
            {"\xF4\x8F\xBF\xBF is the last code point", true},
            {"\xff\xfe no UTF-8", false},
            {"cut \xe2\x82", false},
            {"\xC0\x80 overlong", false},
            {"\xED\xA0\x80 half a surrogate pair", false},
            {"\xF5\x80\x80\x80 beyond Unicode", false},
            {std::string("\x80\0", 2), false},
    };
    for (const auto& [name, isValid] : kRows) {
        const Json::Value json = parse(makeClient(1, 2, name, name).toJson().toStyledString());
        EXPECT_TRUE(json["process"].isString());
        EXPECT_EQ(json["package"], json["process"]);
        EXPECT_EQ(json["uid"].asInt(), 1) << name;
        EXPECT_TRUE(!isValid || json["package"].asString() == name) << name;
    }
}

TEST(ToImmersiveAppTest, FillsAllFourFields) {
    for (const bool isTopActivity : {false, true}) {
        const auto app = makeClient(10050, 4321).toImmersiveApp(isTopActivity);
        EXPECT_EQ(app.packageName, android::String16("com.app"));
        EXPECT_EQ(app.pid, 4321);
        EXPECT_EQ(app.uid, 10050);
        EXPECT_EQ(app.isTopActivity, isTopActivity);
    }
}

TEST(ToImmersiveAppTest, ConvertsThePackageFromUtf8AsThePlatformDoesIt) {
    const struct {
        std::string package;
        android::String16 name;
    } kRows[] = {
            {"", android::String16()},
            {"gr\xC3\xBC\xC3\x9F", android::String16(u"gr\u00fc\u00df")},
            {"\xF4\x8F\xBF\xBF", android::String16(u"\U0010FFFF")},
            {"\xff\xfe", android::String16("\xff\xfe")},
            {"cut \xe2\x82", android::String16("cut \xe2\x82")},
            {"\xC0\x80", android::String16("\xC0\x80")},
    };
    for (const auto& row : kRows)
        EXPECT_EQ(makeClient(1, 2, row.package).toImmersiveApp(false).packageName, row.name);
}

}  // namespace
}  // namespace NQS::OS

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
            {INT_MIN, INT_MAX}, {-1, 5}, {0, INT_MIN}, {0, 0}, {0, INT_MAX}, {1, -1}, {INT_MAX, -1},
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

/** All fields but the identity. */
void expectContents(const FocusClientWithMetadata& client, const std::string& package,
                    const std::string& process, const Types& access, const Types& focus) {
    EXPECT_EQ(client.package, package);
    EXPECT_EQ(client.process, process);
    EXPECT_EQ(client.backgroundAccess, access);
    EXPECT_EQ(client.currentFocus, focus);
}

// NOLINTBEGIN(bugprone-use-after-move): what a moved-from client holds is what is tested.
TEST(FocusClientWithMetadataTest, MovesTakeAllAndLeaveTheSourceEmptyHoweverLongItsStrings) {
    for (const size_t length : {size_t{1}, size_t{15}, size_t{16}, size_t{4096}}) {
        const std::string package(length, 'p'), process(length, 'q');
        FocusClientWithMetadata source = makeClient(10050, 7, package, process);
        FocusClientWithMetadata made(std::move(source));
        expectContents(source, "", "", kNone, kNone);
        FocusClientWithMetadata target(1, 2, "old", "old", {}, {FocusType::HeadTracking});
        target = std::move(made);
        expectContents(made, "", "", kNone, kNone);
        FocusClientWithMetadata& alias = target;
        target = std::move(alias);
        expectContents(target, package, process, kBoth, {FocusType::InputTracking});
        EXPECT_EQ(target.client(), (FocusClient{10050, 7}));
    }
}
// NOLINTEND(bugprone-use-after-move)

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
            {"quote\" back\\slash newline\n bell\a", true},
            {std::string("nul\0inside", 10), true},
            {"\xF4\x8F\xBF\xBF is the last code point", true},
            {"\xff\xfe no UTF-8", false},
            {"cut \xe2\x82", false},
            {"\xC0\x80 overlong", false},
            {"\xED\xA0\x80 half a surrogate pair", false},
            {"\xF5\x80\x80\x80 beyond Unicode", false},
    };
    for (const auto& [name, isValid] : kRows) {
        const Json::Value json = parse(makeClient(1, 2, name, name).toJson().toStyledString());
        EXPECT_TRUE(json["process"].isString());
        EXPECT_EQ(json["package"], json["process"]);
        EXPECT_EQ(json["uid"].asInt(), 1) << name;
        EXPECT_TRUE(!isValid || json["package"].asString() == name) << name;
    }
}

TEST(ToImmersiveAppTest, FillsAllFieldsAndConvertsThePackageAsThePlatformDoesIt) {
    const std::pair<std::string, android::String16> rows[] = {
            {"", android::String16()},
            {"gr\xC3\xBC\xC3\x9F", android::String16(u"gr\u00fc\u00df")},
            {"\xF4\x8F\xBF\xBF", android::String16(u"\U0010FFFF")},
            {"cut \xe2\x82", android::String16("cut \xe2\x82")},
            {std::string("a\0b", 3), android::String16(u"a\0b", 3)},
    };
    for (const auto& [package, name] : rows) {
        for (const bool isTopActivity : {false, true}) {
            const auto app = makeClient(10050, 4321, package).toImmersiveApp(isTopActivity);
            EXPECT_EQ(app.packageName, name);
            EXPECT_EQ(app.packageName.size(), name.size()) << "comparing ends at a NUL";
            EXPECT_EQ(app.pid, 4321);
            EXPECT_EQ(app.uid, 10050);
            EXPECT_EQ(app.isTopActivity, isTopActivity);
        }
    }
}

}  // namespace
}  // namespace NQS::OS

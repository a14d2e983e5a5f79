// SPDX-License-Identifier: Apache-2.0
//
// The client model: orderings, moves, and the forms in which a client leaves the daemon.
#include <gtest/gtest.h>
#include <json/reader.h>
#include <utils/String8.h>

#include <algorithm>
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

TEST(FocusTypeTest, NamesAreIndexedByValue) {
    EXPECT_EQ(kFocusTypeNames.at(0), "HeadTracking");
    EXPECT_EQ(kFocusTypeNames.at(1), "InputTracking");
    EXPECT_EQ(static_cast<int>(FocusType::HeadTracking), 0);
    EXPECT_EQ(static_cast<int>(FocusType::InputTracking), 1);
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

TEST(FocusClientTest, EveryInsertionOrderGivesTheSameSet) {
    std::vector<FocusClient> clients = {{INT_MIN, -1}, {0, 0}, {INT_MAX, 1}};
    const std::vector<FocusClient> ascending = clients;
    do {
        const std::set<FocusClient> set(clients.begin(), clients.end());
        EXPECT_TRUE(std::equal(set.begin(), set.end(), ascending.begin(), ascending.end()));
    } while (std::next_permutation(clients.begin(), clients.end()));
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

TEST(FocusClientWithMetadataTest, SetKeepsOneRecordPerUidAndPid) {
    std::set<FocusClientWithMetadata> set;
    EXPECT_TRUE(set.insert(makeClient(10050, 7)).second);
    EXPECT_TRUE(set.insert(makeClient(1000, 7)).second);
    EXPECT_FALSE(set.insert(makeClient(1000, 7, "other")).second);
    ASSERT_EQ(set.size(), 2U);
    EXPECT_EQ(set.begin()->uid, 1000);
}

TEST(FocusClientWithMetadataTest, ClientIsTheFirstTwoFields) {
    EXPECT_EQ(makeClient(10050, 7).client(), (FocusClient{.uid = 10050, .pid = 7}));
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
TEST(FocusClientWithMetadataTest, MoveLeavesTheSourceEmpty) {
    FocusClientWithMetadata source = makeClient(10050, 7);
    const FocusClientWithMetadata target(std::move(source));
    expectContentsOf(target);
    expectEmptied(source);
}

TEST(FocusClientWithMetadataTest, MoveEmptiesStringsTooLongToBeKeptInPlaceAndShortOnes) {
    for (const size_t length : {size_t{1}, size_t{15}, size_t{16}, size_t{4096}}) {
        FocusClientWithMetadata source =
                makeClient(10050, 7, std::string(length, 'p'), std::string(length, 'q'));
        const FocusClientWithMetadata target(std::move(source));
        EXPECT_EQ(target.package, std::string(length, 'p'));
        EXPECT_EQ(target.process, std::string(length, 'q'));
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

TEST(ToJsonTest, HoldsAllSixFields) {
    const Json::Value json = parse(makeClient(10050, 4321).toJson().toStyledString());
    EXPECT_EQ(json.size(), 6U);
    EXPECT_EQ(json["uid"].asInt(), 10050);
    EXPECT_EQ(json["pid"].asInt(), 4321);
    EXPECT_EQ(json["process"].asString(), "com.app:remote");
    EXPECT_EQ(json["package"].asString(), "com.app");
    EXPECT_TRUE(json["uid"].isInt());
}

TEST(ToJsonTest, TypesAreAscendingNumbers) {
    const Json::Value json = parse(makeClient(1, 2).toJson().toStyledString());
    ASSERT_EQ(json["backgroundAccess"].size(), 2U);
    EXPECT_EQ(json["backgroundAccess"][0], Json::Value(0));
    EXPECT_EQ(json["backgroundAccess"][1], Json::Value(1));
    ASSERT_EQ(json["currentFocus"].size(), 1U);
    EXPECT_EQ(json["currentFocus"][0], Json::Value(1));
}

TEST(ToJsonTest, EmptySetsAreEmptyArrays) {
    const FocusClientWithMetadata client(1, 2, "", "", {}, {});
    for (const char* key : {"backgroundAccess", "currentFocus"}) {
        const Json::Value json = parse(client.toJson().toStyledString());
        EXPECT_TRUE(json[key].isArray()) << key;
        EXPECT_TRUE(json[key].empty()) << key;
    }
}

TEST(ToJsonTest, NegativeIdsStayNegative) {
    const Json::Value json = parse(makeClient(INT_MIN, -1).toJson().toStyledString());
    EXPECT_EQ(json["uid"].asInt(), INT_MIN);
    EXPECT_EQ(json["pid"].asInt(), -1);
}

TEST(ToJsonTest, AnyBytesInANameGiveJsonThatParses) {
    const std::vector<std::string> names = {
            "",
            "quote\" back\\slash / tab\t newline\n bell\a delete\x7f",
            std::string("nul\0inside", 10),
            "\xF4\x8F\xBF\xBF is the last code point",
            "\xff\xfe no UTF-8",
            "cut \xe2\x82",
            "\xC0\x80 overlong",
            "\xED\xA0\x80 half a surrogate pair",
            "\xF5\x80\x80\x80 beyond Unicode",
            std::string("\x80\0", 2),
    };
    for (const std::string& name : names) {
        const Json::Value json = parse(makeClient(1, 2, name, name).toJson().toStyledString());
        EXPECT_TRUE(json["process"].isString());
        EXPECT_EQ(json["package"], json["process"]);
        EXPECT_EQ(json["uid"].asInt(), 1) << name;
    }
}

TEST(ToJsonTest, ValidTextComesBackAsItWas) {
    for (const std::string& name :
         {std::string("\xF4\x8F\xBF\xBF"), std::string("gr\xC3\xBC\xC3\x9F"),
          std::string("nul\0inside", 10), std::string("\"\\\n")}) {
        const Json::Value json = parse(makeClient(1, 2, name).toJson().toStyledString());
        EXPECT_EQ(json["package"].asString(), name);
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

TEST(ToImmersiveAppTest, ConvertsThePackageFromUtf8) {
    struct Row {
        std::string package;
        android::String16 name;
    };
    const std::vector<Row> rows = {
            {"", android::String16()},
            {"gr\xC3\xBC\xC3\x9F", android::String16(u"gr\u00fc\u00df")},
            {"\xF4\x8F\xBF\xBF", android::String16(u"\U0010FFFF")},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(makeClient(1, 2, row.package).toImmersiveApp(false).packageName, row.name);
    }
}

TEST(ToImmersiveAppTest, InvalidUtf8ConvertsAsThePlatformDoesIt) {
    for (const char* package : {"\xff\xfe", "cut \xe2\x82", "\xC0\x80"}) {
        EXPECT_EQ(makeClient(1, 2, package).toImmersiveApp(false).packageName,
                  android::String16(package));
    }
}

}  // namespace
}  // namespace NQS::OS

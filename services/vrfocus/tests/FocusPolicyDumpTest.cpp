// SPDX-License-Identifier: Apache-2.0
//
// Policy dumps: the whole text and the whole object, byte for byte.
#include <gtest/gtest.h>
#include <json/reader.h>

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <regex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "DumpText.h"
#include "FocusPolicyText.h"
#include "FocusWorld.h"
#include "WatchedCall.h"

namespace NQS::OS {
namespace {

constexpr char kNothing[] = R"( = Window Focus =

 = Top Activity =
  

 = Immersive App =

 = Last 10 Immersive App History =

 = Foreground Activity = 

 = Foreground Panel App = 

 = Clients currently rendering = 

 = All Clients = 

 = Other = 
  Permissive: false
)";

constexpr char kEverything[] = R"( = Window Focus =
  Process: com.game:vr UID: 10001, PID: 101

 = Top Activity =
  com.mail

 = Immersive App =
  Package: com.mail UID: 10002, PID: 102

 = Last 10 Immersive App History =
  TIME Package: com.mail UID: 10002, PID: 102
  TIME Package: com.velmar.shellenv UID: 10004, PID: 104

 = Foreground Activity = 
  Process: com.game:vr UID: 10001, PID: 101
  Process: com.mail UID: 10002, PID: 102

 = Foreground Panel App = 
  Process: com.chat UID: 10003, PID: 103

 = Clients currently rendering = 
  Process: com.mail UID: 10002, PID: 102
  Process: com.game:vr UID: 10001, PID: 101

 = All Clients = 
  Process: com.game:vr UID: 10001, PID: 101
    Background Access: None
    Current Focus: HeadTracking
  Process: com.mail UID: 10002, PID: 102
    Background Access: None
    Current Focus: HeadTracking InputTracking
  Process: com.chat UID: 10003, PID: 103
    Background Access: InputTracking
    Current Focus: None
  Process: com.velmar.shellenv UID: 10004, PID: 104
    Background Access: HeadTracking InputTracking
    Current Focus: None

 = Other = 
  Permissive: true
)";

class PolicyDumpTest : public ::testing::Test {
protected:
    /** The dump, with every time replaced by TIME. */
    std::string dump() {
        const std::string text = dumpText([this](int fd) { mWorld.policy->dump(fd, {}); });
        static const std::regex kTime(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3})");
        return std::regex_replace(text, kTime, "TIME");
    }

    /** A state in which every section has something to say. */
    void fillWorld() {
        const FocusClient game = mWorld.run(10001, 101, "com.game:vr", "com.game");
        const FocusClient mail = mWorld.run(10002, 102, "com.mail");
        const FocusClient chat = mWorld.run(10003, 103, "com.chat");
        const FocusClient shell = mWorld.runKnown(10004, 104, "com.velmar.shellenv");
        const FocusClient gone{10009, 109};
        mWorld.grantPermission(chat, "com.velmar.permission.ACCESS_BACKGROUND_INPUT_TRACKING");
        mWorld.setPanel(chat, true);
        mWorld.tracker->foreground = {shell};
        mWorld.policy->getImmersiveApp();
        mWorld.tracker->foreground = {game, mail, gone};
        mWorld.tracker->rendering = {gone, mail, game};
        mWorld.tracker->windowFocus = game;
        std::vector<ClientStatus> out;
        mWorld.policy->computeFocusState(FocusType::HeadTracking, {101, 102}, out);
        mWorld.policy->computeFocusState(FocusType::InputTracking, {102}, out);
        mWorld.clients->buildClientInfo(chat.pid);
        FakeProperties::instance().set("ro.debuggable", true);
        FakeProperties::instance().set("debug.nqs.vrfocus.permissive", true);
    }

    FocusWorld mWorld;
};

TEST_F(PolicyDumpTest, TheTextOfAnEmptyWorldHasHeadingsOnly) {
    EXPECT_EQ(dump(), kNothing);
}

TEST_F(PolicyDumpTest, TheTextShowsEverySectionAndLeavesUnknownClientsOut) {
    fillWorld();
    EXPECT_EQ(dump(), kEverything);
}

TEST_F(PolicyDumpTest, ArgumentsMakeNoDifference) {
    android::Vector<android::String16> args;
    args.push_back(android::String16("json"));
    EXPECT_EQ(dumpText([&](int fd) { mWorld.policy->dump(fd, args); }), kNothing);
}

TEST_F(PolicyDumpTest, DumpingChoosesNothing) {
    const FocusClient game = mWorld.run(10001, 101, "com.game");
    mWorld.tracker->foreground = mWorld.tracker->rendering = {game};
    const std::string text = dump();
    EXPECT_EQ(historyPids(text), std::vector<int>());
    EXPECT_EQ(mWorld.policy->dumpJson()["immersiveApp"].asString(), "");
}

TEST_F(PolicyDumpTest, TheHistoryTellsWhenEachChoiceWasMade) {
    const FocusClient game = mWorld.run(10001, 101, "com.game");
    mWorld.tracker->foreground = mWorld.tracker->rendering = {game};
    const std::string before = localTimeText(std::chrono::system_clock::now());
    mWorld.policy->getImmersiveApp();
    const std::string after = localTimeText(std::chrono::system_clock::now());
    const std::string text = dumpText([this](int fd) { mWorld.policy->dump(fd, {}); });
    const std::string heading = "History =\n  ";
    const std::size_t line = text.find(heading);
    ASSERT_NE(line, std::string::npos);
    const std::string time = text.substr(line + heading.size(), before.size());
    EXPECT_LE(before, time);
    EXPECT_LE(time, after);
}

TEST_F(PolicyDumpTest, TheTextShowsPermissiveModeAsItCounts) {
    const struct {
        bool debuggable, permissive;
        const char* text;
    } kRows[] = {{false, true, "false"}, {true, false, "false"}, {true, true, "true"}};
    for (const auto& row : kRows) {
        FakeProperties::instance().set("ro.debuggable", row.debuggable);
        FakeProperties::instance().set("debug.nqs.vrfocus.permissive", row.permissive);
        const std::string last = std::string("  Permissive: ") + row.text + "\n";
        EXPECT_TRUE(dump().ends_with(last)) << row.debuggable << row.permissive;
    }
}

TEST_F(PolicyDumpTest, TheObjectOfAnEmptyWorldHasEmptyArrays) {
    EXPECT_EQ(mWorld.policy->dumpJson().toStyledString(),
              R"({
	"allClients" : [],
	"foregroundActivities" : [],
	"foregroundPanelApps" : [],
	"immersiveApp" : "",
	"renderingClients" : [],
	"topActivityPackage" : "",
	"windowFocus" : -1
}
)");
}

TEST_F(PolicyDumpTest, TheObjectShowsTheSameFactsAsPids) {
    fillWorld();
    Json::Value json = mWorld.policy->dumpJson();
    Json::Value clients;
    ASSERT_TRUE(json.removeMember("allClients", &clients));
    EXPECT_EQ(json.toStyledString(),
              R"({
	"foregroundActivities" : 
	[
		101,
		102
	],
	"foregroundPanelApps" : 
	[
		103
	],
	"immersiveApp" : "com.mail",
	"renderingClients" : 
	[
		102,
		101
	],
	"topActivityPackage" : "com.mail",
	"windowFocus" : 101
}
)");
    ASSERT_EQ(clients.size(), 4u);
    EXPECT_EQ(clients[1]["pid"].asInt(), 102);
    EXPECT_EQ(clients[1]["currentFocus"].size(), 2u);
    EXPECT_EQ(clients[2]["package"].asString(), "com.chat");
}

TEST_F(PolicyDumpTest, TheObjectParsesAgainWhateverBytesAProcessCallsItself) {
    mWorld.runKnown(2000, 101, "\xff\xfe\"\n\xc3\xa4\xf4\x8f\xbf\xbf", "com.game");
    Json::Value parsed;
    std::string errors;
    const std::string text = mWorld.policy->dumpJson().toStyledString();
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    EXPECT_TRUE(reader->parse(text.data(), text.data() + text.size(), &parsed, &errors)) << errors;
    EXPECT_EQ(parsed["allClients"].size(), 1u);
}

TEST_F(PolicyDumpTest, TheTextIsWrittenUnderTheLockFromTheImmersiveAppOn) {
    std::unique_ptr<WatchedCall> choice;
    mWorld.tracker->onWindowFocusAsked = [&] {
        // The first section is written without it: another thread still gets through.
        WatchedCall free([this] { mWorld.policy->getImmersiveApp(); });
        EXPECT_TRUE(free.ends());
    };
    mWorld.tracker->onRenderingAsked = [&, asked = 0]() mutable {
        if (++asked != 2) return;
        choice = std::make_unique<WatchedCall>([this] { mWorld.policy->getImmersiveApp(); });
        EXPECT_TRUE(choice->waitsIn(*mWorld.policy));
    };
    EXPECT_EQ(dump(), kNothing);
    ASSERT_NE(choice, nullptr);
    EXPECT_TRUE(choice->ends());
}

TEST_F(PolicyDumpTest, TheTextsLockComesAfterTheTopActivityAndIsHeldForTheLastClient) {
    const FocusClient game = mWorld.runKnown(10001, 101, "com.game");
    mWorld.tracker->foreground = {game};
    std::unique_ptr<WatchedCall> waiting;
    // The table runs copies of its hook, which share this.
    bool isAsked = false;
    const auto askForTheLastClient = [&](int) {
        if (std::exchange(isAsked, true)) return;
        waiting = std::make_unique<WatchedCall>([this] { mWorld.policy->getImmersiveApp(); });
        EXPECT_TRUE(waiting->waitsIn(*mWorld.policy));
    };
    mWorld.clients->onBuild = [&, first = true](int pid) mutable {
        if (pid != game.pid || !std::exchange(first, false)) return;
        WatchedCall free([this] { mWorld.policy->getImmersiveApp(); });
        EXPECT_TRUE(free.ends());
        // From here on the dump alone looks who lives: for the section of all clients.
        FakeProcessTable::instance().setLivenessHook(askForTheLastClient);
    };
    dump();
    ASSERT_NE(waiting, nullptr);
    EXPECT_TRUE(waiting->ends());
}

TEST_F(PolicyDumpTest, TheObjectIsMadeWithoutTheLockButForTheStoredApp) {
    mWorld.tracker->foreground = {mWorld.run(10001, 101, "com.game")};
    int done = 0;
    // At each question of the dump, not at the choice's own.
    const auto choose = [&, dumper = std::this_thread::get_id()] {
        if (std::this_thread::get_id() != dumper) return;
        WatchedCall choice([this] { mWorld.policy->getImmersiveApp(); });
        if (choice.ends()) ++done;
    };
    mWorld.tracker->onWindowFocusAsked = choose;
    mWorld.tracker->onRenderingAsked = choose;
    mWorld.clients->onBuild = [&](int) { choose(); };
    mWorld.policy->dumpJson();
    // Window focus and its record, the top activity's record, the foreground's, rendering.
    EXPECT_EQ(done, 5);
}

TEST_F(PolicyDumpTest, BothAskTheOverridableTopActivityAndTheObjectHoldsItWhole) {
    class Fixed : public FocusPolicy {
    public:
        using FocusPolicy::FocusPolicy;
        android::String16 getTopActivity() override { return android::String16(u"a\0b", 3); }
    };
    Fixed policy(mWorld.tracker, mWorld.clients);
    EXPECT_EQ(policy.dumpJson()["topActivityPackage"].asString(), std::string("a\0b", 3));
    const std::string text = dumpText([&](int fd) { policy.dump(fd, {}); });
    EXPECT_NE(text.find(" = Top Activity =\n  a\n"), std::string::npos) << text;
}

class LocalTimeTextTest : public ::testing::Test {
protected:
    LocalTimeTextTest() {
        if (const char* zone = std::getenv("TZ")) mZone = zone;
    }
    ~LocalTimeTextTest() override {
        if (mZone.empty()) {
            unsetenv("TZ");
        } else {
            setenv("TZ", mZone.c_str(), /*overwrite=*/1);
        }
    }
    static std::string textOf(const char* zone, int64_t micros) {
        setenv("TZ", zone, /*overwrite=*/1);
        return localTimeText(
                std::chrono::system_clock::time_point(std::chrono::microseconds(micros)));
    }

private:
    std::string mZone;
};

TEST_F(LocalTimeTextTest, TimesAreLocalWithMillisecondsOfThreeDigits) {
    const struct {
        int64_t micros;
        const char* text;
    } kRows[] = {
            {0, "1970-01-01 03:30:00.000"},
            {999, "1970-01-01 03:30:00.000"},
            {1000, "1970-01-01 03:30:00.001"},
            {1709647629042999, "2024-03-05 17:37:09.042"},
            {1709647629999999, "2024-03-05 17:37:09.999"},
            // A clock that was never set may stand before the epoch.
            {-1, "1970-01-01 03:29:59.999"},
            {-42000, "1970-01-01 03:29:59.958"},
            {-1000000, "1970-01-01 03:29:59.000"},
    };
    for (const auto& row : kRows) {
        EXPECT_EQ(textOf("XYZ-3:30", row.micros), row.text) << row.micros;
    }
}

TEST_F(LocalTimeTextTest, TheZoneIsThatOfTheMoment) {
    constexpr int64_t kMarch = 1709647629042000;
    constexpr int64_t kJuly = kMarch + int64_t{120} * 24 * 3600 * 1'000'000;
    const struct {
        const char* zone;
        int64_t micros;
        const char* text;
    } kRows[] = {
            {"KTM-5:45", kMarch, "2024-03-05 19:52:09.042"},
            {"APIA-13", kMarch, "2024-03-06 03:07:09.042"},
            {"PAGO11", kMarch, "2024-03-05 03:07:09.042"},
            // With summer time from the end of March to the end of October.
            {"CET-1CEST,M3.5.0,M10.5.0/3", kMarch, "2024-03-05 15:07:09.042"},
            {"CET-1CEST,M3.5.0,M10.5.0/3", kJuly, "2024-07-03 16:07:09.042"},
    };
    for (const auto& row : kRows) {
        EXPECT_EQ(textOf(row.zone, row.micros), row.text) << row.zone;
    }
}

}  // namespace
}  // namespace NQS::OS

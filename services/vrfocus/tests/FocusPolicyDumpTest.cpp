// SPDX-License-Identifier: Apache-2.0
//
// Policy dumps: the whole text and the whole object, byte for byte.
#include <gtest/gtest.h>

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
    std::string dump(const android::Vector<android::String16>& args = {}) {
        const std::string text = dumpText([&](int fd) { mWorld.policy->dump(fd, args); });
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
        mWorld.permission->grant("com.velmar.permission.ACCESS_BACKGROUND_INPUT_TRACKING",
                                 chat.uid);
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

TEST_F(PolicyDumpTest, TheObjectOfAnEmptyWorldHasEmptyArrays) {
    Json::Value arrays = mWorld.policy->dumpJson();
    for (const char* name :
         {"allClients", "foregroundActivities", "foregroundPanelApps", "renderingClients"}) {
        Json::Value array;
        EXPECT_TRUE(arrays.removeMember(name, &array) && array.isArray() && array.empty()) << name;
    }
    EXPECT_EQ(arrays.toStyledString(), R"({
	"immersiveApp" : "",
	"topActivityPackage" : "",
	"windowFocus" : -1
}
)");
}

TEST_F(PolicyDumpTest, DumpingChoosesNothingAndTheHistoryTellsWhenAChoiceWasMade) {
    const FocusClient game = mWorld.run(10001, 101, "com.game");
    mWorld.tracker->foreground = mWorld.tracker->rendering = {game};
    EXPECT_EQ(dump().find("TIME"), std::string::npos);
    EXPECT_EQ(mWorld.storedPackage(), "");
    const auto now = [] { return "  " + localTimeText(std::chrono::system_clock::now()); };
    const std::string before = now();
    mWorld.policy->getImmersiveApp();
    const std::string after = now();
    const std::string text = dumpText([this](int fd) { mWorld.policy->dump(fd, {}); });
    const std::string time = text.substr(text.find("  2"), before.size());
    EXPECT_LE(before, time);
    EXPECT_LE(time, after);
}

TEST_F(PolicyDumpTest, TheTextShowsEverySectionAndLeavesUnknownClientsOut) {
    fillWorld();
    EXPECT_EQ(dump(), kEverything);
    // Arguments are the service's to understand.
    android::Vector<android::String16> args;
    args.push_back(android::String16("json"));
    EXPECT_EQ(dump(args), kEverything);
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

TEST_F(PolicyDumpTest, TheTextIsWrittenUnderTheLockFromTheImmersiveAppToTheLastClient) {
    mWorld.tracker->foreground = {mWorld.runKnown(10001, 101, "com.game")};
    std::unique_ptr<WatchedCall> waiting;
    // The table runs copies of its hook, which share this.
    bool isAsked = false;
    const auto askForTheLastClient = [&](int) {
        if (std::exchange(isAsked, true)) return;
        waiting = std::make_unique<WatchedCall>([this] { mWorld.policy->getImmersiveApp(); });
        EXPECT_TRUE(waiting->waitsIn(*mWorld.policy));
    };
    // Window focus and its record, then the top activity's record: after it comes the lock.
    mWorld.clients->onBuild = [&, builds = 0, dumper = std::this_thread::get_id()](int) mutable {
        if (std::this_thread::get_id() != dumper || ++builds > 2) return;
        WatchedCall free([this] { mWorld.policy->getImmersiveApp(); });
        EXPECT_TRUE(free.ends());
        // From here on the dump alone looks who lives: for the section of all clients.
        if (builds == 2) mWorld.processes.setLivenessHook(askForTheLastClient);
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
        mZone.empty() ? unsetenv("TZ") : setenv("TZ", mZone.c_str(), /*overwrite=*/1);
    }

private:
    std::string mZone;
};

TEST_F(LocalTimeTextTest, TimesAreOfTheMomentsZoneWithMillisecondsOfThreeDigits) {
    constexpr int64_t kMarch = 1709647629042999;
    const struct {
        const char* zone;
        int64_t micros;
        const char* text;
    } kRows[] = {
            {"XYZ-3:30", 999, "1970-01-01 03:30:00.000"},
            {"XYZ-3:30", 1000, "1970-01-01 03:30:00.001"},
            {"XYZ-3:30", 1709647629999999, "2024-03-05 17:37:09.999"},
            // A clock that was never set may stand before the epoch.
            {"XYZ-3:30", -1, "1970-01-01 03:29:59.999"},
            {"XYZ-3:30", -1000000, "1970-01-01 03:29:59.000"},
            {"PAGO11", kMarch, "2024-03-05 03:07:09.042"},
            // With summer time from the end of March to the end of October.
            {"CET-1CEST,M3.5.0,M10.5.0/3", kMarch, "2024-03-05 15:07:09.042"},
            {"CET-1CEST,M3.5.0,M10.5.0/3", kMarch + int64_t{120} * 86400 * 1'000'000,
             "2024-07-03 16:07:09.042"},
    };
    for (const auto& row : kRows) {
        setenv("TZ", row.zone, /*overwrite=*/1);
        const std::chrono::system_clock::time_point time{std::chrono::microseconds(row.micros)};
        EXPECT_EQ(localTimeText(time), row.text) << row.micros;
    }
}

}  // namespace
}  // namespace NQS::OS

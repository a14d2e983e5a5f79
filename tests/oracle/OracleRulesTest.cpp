// SPDX-License-Identifier: Apache-2.0
// The oracle itself, in situations worked out by hand.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/reader.h>

#include <functional>
#include <memory>
#include <sstream>

#include "Oracle.h"

namespace oracle {
namespace {

using Service = Oracle::Service;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr int kShell = 50;  // pids
constexpr int kGame = 60;
constexpr int kPanel = 70;
constexpr int kLock = 80;
constexpr int kAudio = 90;
constexpr int kUids = 10000;  // an app's uid is this and its pid
constexpr int kAudioUid = 1041;
constexpr int kCast = 4;  // a display

const char* const kHead = "com.velmar.permission.ACCESS_BACKGROUND_HEAD_TRACKING";
const char* const kShellPackage = "com.velmar.shellenv";

/** A headset and what the oracle is told of it: every change with the notices that it brings. */
struct Story {
    Story() {
        for (const Service service :
             {Service::Activity, Service::Display, Service::Permission, Service::Window})
            oracle.serviceConnected(service);
        install(kShellPackage, kUids + kShell);
        install("com.game", kUids + kGame);
        install("com.panel", kUids + kPanel, {kHead});
        install("com.velmar.os.vrlockscreen", kUids + kLock);
        start(kShell, kShellPackage);
        start(kGame, "com.game");
        start(kPanel, "com.panel");
        start(kLock, "com.velmar.os.vrlockscreen");
    }

    void install(const std::string& name, int uid, std::set<std::string> permissions = {}) {
        world.installPackage(name, {uid, std::move(permissions)});
        oracle.servicesAnswerFrom(world);
    }
    void start(int pid, const std::string& name) {
        world.addProcess(pid, name, kUids + pid);
        oracle.servicesAnswerFrom(world);
        oracle.processStarted(pid, kUids + pid, name);
    }
    void native(int pid, const std::string& path, int uid) {
        oracle.processStarted(pid, uid, path);
    }
    void end(int pid) {
        oracle.processEnded(pid);
        tell(world.removeProcess(pid));
    }
    void front(int pid, int display = 0) { tell(world.startActivity(pid, display)); }
    void addDisplay(int display) { tell(world.addDisplay(display)); }
    void panel(int pid) { tell(world.setPanelService(pid, /*running=*/true)); }
    void window(int pid) { tell(world.focusWindowOf(pid)); }
    void tell(const std::vector<sim::Notice>& notices) {
        oracle.servicesAnswerFrom(world);
        for (const sim::Notice& notice : notices)
            oracle.noticed(notice);
    }

    /** Those with focus of all of this story's processes and some that never were. */
    std::vector<int> focused(int type) {
        std::vector<int> pids;
        for (const Verdict& verdict :
             oracle.clientFocusStatus(type, {kAudio, kLock, kPanel, kGame, kShell, kGame, 7, 0}))
            if (verdict.hasFocus) pids.push_back(verdict.pid);
        return pids;
    }
    int immersive() {
        const std::optional<ImmersiveApp> app = oracle.immersiveApp();
        return app ? app->pid : 0;
    }

    sim::World world;
    Oracle oracle;
};

struct Situation {
    const char* what;
    std::function<void(Story&)> happens;
    std::vector<int> head;   // pids with this focus, by uid
    std::vector<int> input;  // besides the shell, who may track in the background always
    int immersive = 0;       // pid, 0: none
    std::string top;
};

std::vector<Situation> inFront() {
    return {
            {"nothing has happened", [](Story&) {}, {kShell, kPanel}, {kShell}, 0, ""},
            {"the shell on top, which needs not render",
             [](Story& s) { s.front(kShell); },
             {kShell, kPanel},
             {kShell},
             kShell,
             kShellPackage},
            {"a game on top has all focus, but is no immersive app until it renders",
             [](Story& s) { s.front(kGame); },
             {kShell, kGame, kPanel},
             {kShell, kGame},
             0,
             "com.game"},
            {"the game renders, the shell waits behind",
             [](Story& s) {
                 s.front(kShell);
                 s.front(kGame);
                 s.oracle.appStateSet(kGame, kVisible);
             },
             {kShell, kGame, kPanel},
             {kShell, kGame},
             kGame,
             "com.game"},
            {"a state that is neither visible nor stopping",
             [](Story& s) {
                 s.front(kGame);
                 s.oracle.appStateSet(kGame, 1);
             },
             {kShell, kGame, kPanel},
             {kShell, kGame},
             0,
             "com.game"},
            {"the window alone gives the head only",
             [](Story& s) { s.window(kGame); },
             {kShell, kGame, kPanel},
             {kShell},
             0,
             ""},
            {"a system overlay with the window wins over the game",
             [](Story& s) {
                 s.front(kGame);
                 s.oracle.appStateSet(kGame, kVisible);
                 s.oracle.appStateSet(kLock, kVisible);
                 s.window(kLock);
             },
             {kShell, kGame, kPanel, kLock},
             {kShell, kGame, kLock},  // the immersive app, while the main display has focus
             kLock,
             "com.game"},
            {"a rendering overlay without the window does not",
             [](Story& s) {
                 s.front(kGame);
                 s.oracle.appStateSet(kGame, kVisible);
                 s.oracle.appStateSet(kLock, kVisible);
             },
             {kShell, kGame, kPanel},
             {kShell, kGame},
             kGame,
             "com.game"},
            {"what takes the name of an overlay is one, though it was met before",
             [](Story& s) {
                 s.front(kGame);
                 s.oracle.processRenamed(kGame, "com.android.settings");
                 s.oracle.appStateSet(kGame, kVisible);
                 s.window(kGame);
                 s.front(kPanel);
             },
             {kShell, kGame, kPanel},
             {kShell, kGame, kPanel},
             kGame,
             "com.panel"},
            {"the shell under another name is on top by its package",
             [](Story& s) {
                 s.front(kShell);
                 s.oracle.processRenamed(kShell, "shell");
             },
             {kShell, kPanel},
             {kShell},
             kShell,
             kShellPackage},
            {"a panel has all focus beside the game",
             [](Story& s) {
                 s.front(kGame);
                 s.panel(kPanel);
             },
             {kShell, kGame, kPanel},
             {kShell, kGame, kPanel},
             0,
             "com.game"},
            {"a notice with a wrong uid, which services deny",
             [](Story& s) {
                 s.front(kPanel);
                 s.tell({{sim::Notice::Kind::ForegroundActivities, kGame, 5, 0, 1}});
             },
             {kShell, kPanel},
             {kShell, kPanel},
             0,
             "com.panel"},
    };
}

std::vector<Situation> displays() {
    return {
            {"on a display that was not granted: the head only",
             [](Story& s) {
                 s.addDisplay(kCast);
                 s.front(kGame, kCast);
             },
             {kShell, kGame, kPanel},
             {kShell},
             0,
             ""},
            {"on a granted display",
             [](Story& s) {
                 s.addDisplay(kCast);
                 s.oracle.trackingGranted(kCast);
                 s.front(kGame, kCast);
             },
             {kShell, kGame, kPanel},
             {kShell, kGame},
             0,
             ""},
            {"granted after it came up: not looked at again",
             [](Story& s) {
                 s.addDisplay(kCast);
                 s.front(kGame, kCast);
                 s.oracle.trackingGranted(kCast);
             },
             {kShell, kGame, kPanel},
             {kShell},
             0,
             ""},
            {"the main display loses tracking: the immersive app loses input, nobody else",
             [](Story& s) {
                 s.front(kGame);
                 s.oracle.appStateSet(kGame, kVisible);
                 s.panel(kPanel);
                 s.oracle.trackingRevoked(0);
             },
             {kShell, kGame, kPanel},
             {kShell, kPanel},
             kGame,
             "com.game"},
            {"and gets it back",
             [](Story& s) {
                 s.front(kGame);
                 s.oracle.appStateSet(kGame, kVisible);
                 s.oracle.trackingRevoked(0);
                 s.oracle.trackingGranted(0);
             },
             {kShell, kGame, kPanel},
             {kShell, kGame},
             kGame,
             "com.game"},
    };
}

std::vector<Situation> identities() {
    return {
            {"the audio server under its uid",
             [](Story& s) { s.native(kAudio, "/system/bin/audioserver", kAudioUid); },
             {kAudio, kShell, kPanel},
             {kAudio, kShell},
             0,
             ""},
            {"the system server has a package of its own",
             [](Story& s) {
                 s.start(kAudio, "system_server");
                 s.front(kAudio);
             },
             {kShell, kPanel, kAudio},
             {kShell, kAudio},
             0,
             "android.uid.system:1000"},
            {"the audio server under another",
             [](Story& s) { s.native(kAudio, "/system/bin/audioserver", 1000); },
             {kShell, kPanel},
             {kShell},
             0,
             ""},
            {"any process of root",
             [](Story& s) { s.native(kAudio, "/bin/anything", 0); },
             {kAudio, kShell, kPanel},
             {kAudio, kShell},
             0,
             ""},
            {"a permission granted to a process that is known already",
             [](Story& s) {
                 s.front(kGame);
                 s.install("com.game", kUids + kGame, {kHead});
                 s.front(kPanel);
             },
             {kShell, kPanel},
             {kShell, kPanel},
             0,
             "com.panel"},
            {"no permission manager when the panel is met",
             [](Story& s) {
                 s.oracle.serviceDisconnected(Service::Permission);
                 s.focused(kHeadTracking);
                 s.oracle.serviceConnected(Service::Permission);
             },
             {},
             {},
             0,
             ""},
            {"permissive on a build that allows it",
             [](Story& s) { s.oracle.propertiesAre(true, true); },
             {kShell, kGame, kPanel, kLock},
             {kShell, kGame, kPanel, kLock},
             0,
             ""},
            {"permissive on one that does not",
             [](Story& s) { s.oracle.propertiesAre(false, true); },
             {kShell, kPanel},
             {kShell},
             0,
             ""},
    };
}

std::vector<Situation> losses() {
    return {
            {"the game dies on top of the shell",
             [](Story& s) {
                 s.front(kShell);
                 s.front(kGame);
                 s.oracle.appStateSet(kGame, kVisible);
                 s.end(kGame);
             },
             {kShell, kPanel},
             {kShell},
             kShell,
             kShellPackage},
            {"a pid that comes back under another uid inherits nothing but the top of the list",
             [](Story& s) {
                 s.front(kGame);
                 s.oracle.processEnded(kGame);
                 s.oracle.processStarted(kGame, 10099, "com.other");
             },
             {kShell, kPanel, kGame},  // as the newest in the foreground, whatever its uid
             {kShell},
             0,
             ""},
            {"no activity manager: what it told is forgotten, but not who was on top of anything",
             [](Story& s) {
                 s.panel(kPanel);
                 s.front(kGame);
                 s.oracle.serviceDisconnected(Service::Activity);
             },
             {kShell, kGame, kPanel},
             {kShell},
             0,
             ""},
            {"no window manager",
             [](Story& s) {
                 s.window(kGame);
                 s.oracle.serviceDisconnected(Service::Window);
             },
             {kShell, kPanel},
             {kShell},
             0,
             ""},
            {"a stopping client puts the first with a covered activity in the foreground",
             [](Story& s) {
                 s.front(kGame);
                 s.tell({{sim::Notice::Kind::ForegroundActivities, kShell, kUids + kShell, 0, 1}});
                 (void)s.world.startActivity(kShell, 0);
                 (void)s.world.startActivity(kGame, 0);
                 s.tell({});
                 s.oracle.appStateSet(kLock, kStopping);
             },
             {kShell, kGame, kPanel},
             {kShell, kGame},
             kShell,
             kShellPackage},
            {"a new daemon knows nothing that it was not told again",
             [](Story& s) {
                 s.window(kLock);
                 s.front(kGame);
                 s.oracle.daemonRestarted();
             },
             {kShell, kPanel},
             {kShell},
             0,
             "com.game"},
    };
}

class OracleRules : public testing::TestWithParam<Situation> {};

TEST_P(OracleRules, AnswersAsWorkedOutByHand) {
    const Situation& situation = GetParam();
    SCOPED_TRACE(situation.what);
    Story story;
    situation.happens(story);
    EXPECT_EQ(story.focused(kHeadTracking), situation.head);
    EXPECT_EQ(story.focused(kInputTracking), situation.input);
    EXPECT_EQ(story.immersive(), situation.immersive);
    EXPECT_EQ(story.oracle.topActivity(), situation.top);
}

TEST_P(OracleRules, AnswersTheSameToTheSame) {
    const auto tell = [] {
        auto story = std::make_unique<Story>();
        GetParam().happens(*story);
        return story;
    };
    const std::unique_ptr<Story> one = tell();
    const std::unique_ptr<Story> other = tell();
    const Json::Value first = one->oracle.jsonDump();
    EXPECT_EQ(first, other->oracle.jsonDump());
    EXPECT_EQ(first, one->oracle.jsonDump()) << "a dump changed what is dumped";
    EXPECT_EQ(one->focused(kInputTracking), other->focused(kInputTracking));
    EXPECT_EQ(one->oracle.jsonDump(), other->oracle.jsonDump());
}

INSTANTIATE_TEST_SUITE_P(InFront, OracleRules, testing::ValuesIn(inFront()));
INSTANTIATE_TEST_SUITE_P(Displays, OracleRules, testing::ValuesIn(displays()));
INSTANTIATE_TEST_SUITE_P(Identities, OracleRules, testing::ValuesIn(identities()));
INSTANTIATE_TEST_SUITE_P(Losses, OracleRules, testing::ValuesIn(losses()));

TEST(OracleTest, SharedUidsAreToldApartByTheProcessName) {
    Story story;
    story.install("com.twin.a", kUids + kGame);
    story.start(kGame, "com.twin.a:remote");
    story.oracle.appStateSet(kGame, kVisible);
    story.front(kGame);
    EXPECT_EQ(story.oracle.topActivity(), "com.twin.a:remote");
    EXPECT_EQ(story.oracle.immersiveApp()->package, "com.twin.a:remote");
    EXPECT_THAT(story.oracle.foregroundApps(), ElementsAre("com.twin.a:remote"));
}

TEST(OracleTest, TheDisplayManagerIsAskedWhileADisplayIsGrantedAndNeverAgainAfterItsDeath) {
    Story story;
    story.addDisplay(kCast);
    story.oracle.trackingGranted(kCast);
    EXPECT_TRUE(story.oracle.watchesDisplays());
    story.tell(story.world.removeDisplay(kCast));
    EXPECT_FALSE(story.oracle.watchesDisplays());

    story.oracle.trackingGranted(kCast);
    story.oracle.serviceDisconnected(Service::Display);
    story.oracle.serviceConnected(Service::Display);
    story.oracle.trackingGranted(kCast + 1);
    EXPECT_FALSE(story.oracle.watchesDisplays());
    story.oracle.trackingRevoked(kCast);
    story.oracle.trackingRevoked(kCast + 1);
    story.oracle.trackingGranted(kCast);
    EXPECT_TRUE(story.oracle.watchesDisplays());
}

TEST(OracleTest, TheDumpShowsWhatIsKnown) {
    Story story;
    story.oracle.listenerRegistered(kGame, kInputTracking);
    story.oracle.listenerUnregistered(kPanel, kHeadTracking);
    story.oracle.appStateSet(kGame, kVisible);
    story.front(kGame);
    story.panel(kPanel);
    story.window(kGame);
    EXPECT_THAT(story.focused(kHeadTracking), ElementsAre(kShell, kGame, kPanel));
    story.oracle.processRenamed(kGame, "renamed");  // the record keeps the name
    story.end(kShell);
    story.end(kLock);
    Json::Value expected;
    std::istringstream text(R"({
        "types": [{"type": 0, "size": 0, "listeners": []},
                  {"type": 1, "size": 1, "listeners": [60]}],
        "focusPolicy": {
            "windowFocus": 60, "topActivityPackage": "com.game", "immersiveApp": "com.game",
            "foregroundActivities": [60], "foregroundPanelApps": [70], "renderingClients": [60],
            "allClients": [
                {"uid": 10060, "pid": 60, "process": "com.game", "package": "com.game",
                 "backgroundAccess": [], "currentFocus": [0]},
                {"uid": 10070, "pid": 70, "process": "com.panel", "package": "com.panel",
                 "backgroundAccess": [0], "currentFocus": [0]}]}})");
    text >> expected;
    EXPECT_EQ(story.oracle.jsonDump(), expected);
    story.oracle.processEnded(kGame);
    EXPECT_THAT(story.oracle.jsonDump()["types"][1]["listeners"], IsEmpty());
}

}  // namespace
}  // namespace oracle

// SPDX-License-Identifier: Apache-2.0
//
// Random commands of the scenario language, each legal where it stands.
//
//      RandomCommands commands(seed);
//      repeat: play(commands.next());
//
// It keeps a small model of what its commands have done: who runs, what is where, which services
// are away. So it needs nobody to ask, and the same seed and situation give the same lines on every
// machine. Where the status of a call is known for sure it is stated, so that a wrong one fails;
// else the line says "status=any".
//
// What it takes away it brings back: a killed service, the daemon or a hung app is away for a few
// commands, and calls are refused for a few; the hub and the service manager come back at once with
// all that went with them. After a return it is waited until the daemon has found the service,
// where that can be known. Unless the daemon has found the display manager for sure no display but
// the first is granted or revoked: it insists on it then. The daemon's questions are never made to
// fail.
//
// Faults are drawn only where what comes of them is certain: calls that are refused, not those that
// are answered with nonsense or never; notices lost, doubled or reordered, but of those of displays
// only lost ones, since a doubled one can cross the end of the daemon's wish to hear of them.
//
// Between its lines nothing else may be done to the headset, besides questions. One thread.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "scenario/RandomCast.h"
#include "scenario/RandomRights.h"

namespace sim::scenario {

/** What is the case before the first random command. */
struct RandomStart {
    struct App {
        int uid = 0;
        std::string process;
        bool runs = true;
        bool isHung = false;
        bool isNative = false;
    };
    std::map<std::string, App> apps;                  // all that were ever started
    std::map<std::string, int> packages;              // installed; to uids
    std::set<int> displays{0};                        // the main one among them
    std::map<int, std::set<std::string>> activities;  // by display
    std::set<std::string> panels;                     // apps
    std::set<std::string> away;                       // system processes that do not run
    bool isBooted = false;      // properties that only a boot can set have been
    bool canReusePids = false;  // whether "reuse" may be drawn
    bool canAwait = true;       // whether "wait until connected" works for every service
    bool hasHub = false;        // whether there is one to be killed
};

class RandomCommands {
public:
    explicit RandomCommands(uint64_t seed, RandomStart start = {});

    /** The next command, without a line end; it counts as done from here on. */
    [[nodiscard]] std::string next();

private:
    using App = RandomStart::App;
    /** A kind of command: how often, and how it is made; an empty text: not possible now. */
    struct Kind {
        int weight = 0;
        std::string (RandomCommands::*make)() = nullptr;
        bool needsDaemon = false;
    };
    static const std::vector<Kind>& kinds();

    static constexpr int kHighestDisplay = 4;
    static constexpr const char* kDaemon = "vrfocus";
    static constexpr const char* kActivity = "activity";
    static constexpr const char* kDisplay = "display";
    static constexpr const char* kPermission = "permission";
    static constexpr const char* kWindow = "VelmarWindowManager";
    static constexpr const char* kReadFocus = "read-focus";
    static constexpr const char* kGrantTracking = "grant-tracking";

    // Chance.
    [[nodiscard]] int below(int bound) { return static_cast<int>(mChance() % bound); }
    [[nodiscard]] bool oneIn(int count) { return below(count) == 0; }
    template <typename Container>
    [[nodiscard]] auto oneOf(const Container& container) {
        return *std::next(container.begin(), below(static_cast<int>(container.size())));
    }
    [[nodiscard]] std::string anApp(bool (*fits)(const App&));
    [[nodiscard]] std::string anActive();
    [[nodiscard]] std::string anOverlay();
    [[nodiscard]] int aDisplayFor(bool isGrant);
    [[nodiscard]] int aDisplayToShowOn();
    [[nodiscard]] std::string permissions(const std::string& wish);
    /** Those between commas. */
    [[nodiscard]] static std::set<std::string> wordsIn(const std::string& text);

    // Kinds of commands (from install() on in RandomSystemCommands.cpp, from killService() on in
    // RandomFaults.cpp).
    [[nodiscard]] std::string start();
    [[nodiscard]] std::string stop();
    [[nodiscard]] std::string crash();
    [[nodiscard]] std::string hang();
    [[nodiscard]] std::string resume();
    [[nodiscard]] std::string rename();
    [[nodiscard]] std::string reuse();
    [[nodiscard]] std::string report();
    [[nodiscard]] std::string askFocus();
    [[nodiscard]] std::string askOther();
    [[nodiscard]] std::string listen();
    [[nodiscard]] std::string unlisten();
    [[nodiscard]] std::string grant();
    [[nodiscard]] std::string install();
    [[nodiscard]] std::string allow();
    [[nodiscard]] std::string front();
    [[nodiscard]] std::string back();
    [[nodiscard]] std::string window();
    [[nodiscard]] std::string panel();
    [[nodiscard]] std::string display();
    [[nodiscard]] std::string property();
    [[nodiscard]] std::string quietly();
    [[nodiscard]] std::string noticeOfActivities();
    [[nodiscard]] std::string noticeOfDisplay();
    [[nodiscard]] std::string noticeOfWindow();
    [[nodiscard]] std::string say();
    [[nodiscard]] std::string killService();
    [[nodiscard]] std::string killDaemon();
    [[nodiscard]] std::string restartGround();
    [[nodiscard]] std::string refuseCalls();
    [[nodiscard]] std::string replayNotices();

    // What they change in the model.
    void begin(const Role& role, const std::string& permissions);
    void end(const std::string& name);
    [[nodiscard]] std::string comeBack();
    [[nodiscard]] std::string answerAgain();
    void forgetDaemon();
    void await(const std::string& service);
    void lapse(int display);
    [[nodiscard]] bool isAway(const char* process) const { return mAway.contains(process); }

    // What is known of calls.
    using Answer = RandomRights::Answer;
    [[nodiscard]] Answer answerTo(const std::string& name, const std::string& permission) const;
    /** The option for the status of a call that needs a permission. */
    [[nodiscard]] std::string status(const std::string& name, const std::string& permission,
                                     bool isIllegal = false);

    std::mt19937_64 mChance;
    std::map<std::string, App> mApps;
    std::set<std::string> mUnsure;  // apps of before, and those that run under another name
    RandomRights mRights;
    std::map<int, std::set<std::string>> mActivities;  // by display
    std::set<std::string> mPanels;
    // Displays that were granted, and those that had been, as far as one can know: likelier to be
    // used than others, since it shows on them what counts.
    std::set<int> mGranted;
    std::set<int> mLapsed;
    std::map<std::string, bool> mListeners;  // "NAME KIND", to whether it is registered for sure
    std::map<std::string, int> mAway;        // system processes, to how many commands more
    std::map<std::string, int> mRefusing;    // services that refuse calls, the same
    bool mIsDisplaySure = true;              // the daemon has found the display manager
    bool mIsBooted;
    bool mIsPermissive = false;
    bool mCanReusePids;
    bool mCanAwait;
    bool mHasHub;
    std::deque<std::string> mNext;  // commands that follow from the last one
};

}  // namespace sim::scenario

// SPDX-License-Identifier: Apache-2.0
// The built-in session.
#include "session/BuiltInSession.h"

#include "session/SessionError.h"

namespace sim {
namespace {

const char* const kShell = "com.velmar.shellenv";
const char* const kLockScreen = "com.velmar.os.vrlockscreen";
const char* const kGame = "com.orbit.racer";
const char* const kCoach = "com.pulse.coach:tracking";
const char* const kBrowser = "com.lumen.browser";
const char* const kCaster = "com.vista.caster";
constexpr int kCastDisplay = 2;
constexpr int kRemovalsMask = 2;  // what the daemon asks of the display manager
constexpr int kSecurity = -1;     // exception of a call without permission

const char* const kReadFocus = "com.velmar.permission.READ_FOCUS_STATE";
const char* const kGrantTracking = "com.velmar.permission.GRANT_TRACKING_SERVICE_ACCESS_TO_DISPLAY";
const char* const kBackgroundHead = "com.velmar.permission.ACCESS_BACKGROUND_HEAD_TRACKING";

}  // namespace

BuiltInSession::BuiltInSession(Headset& headset, Timeline& timeline)
      : mHeadset(headset), mTimeline(timeline) {
    mHeadset.install(kShell, 10050, {kReadFocus, kGrantTracking});
    mHeadset.install(kLockScreen, 10051);
    mHeadset.install(kGame, 10061);
    mHeadset.install("com.pulse.coach", 10062, {kBackgroundHead});
    mHeadset.install(kBrowser, 10063);
    mHeadset.install(kCaster, 10064);
}

void BuiltInSession::play() {
    const std::vector<Step> all = steps();
    int number = 0;
    for (const Step& step : all) {
        mTimeline.step(++number, static_cast<int>(all.size()), step.title);
        try {
            step.act();
            const Answers got = mHeadset.expect(kShell, step.expected);
            mTimeline.answers(rows(), got);
        } catch (const SessionError& error) {
            throw SessionError("step " + std::to_string(number) + " (" + step.title +
                               "): " + error.what());
        }
    }
}

std::vector<BuiltInSession::Step> BuiltInSession::steps() {
    std::vector<Step> steps;
    // The shell may track in the background as every process of its package may.
    steps.push_back({"The shell comes to the front",
                     [this] {
                         mHeadset.startApp(kShell);
                         mHeadset.showActivity(kShell);
                     },
                     {{{kShell, kBoth}}, kShell, kShell, ""}});
    appendGame(&steps);
    appendBackground(&steps);
    appendDisplay(&steps);
    appendFaults(&steps);
    return steps;
}

void BuiltInSession::appendGame(std::vector<Step>* steps) {
    // On top, but not rendering: no immersive app, since the shell is not on top any more.
    steps->push_back({"A game comes up",
                      [this] {
                          mHeadset.startApp(kGame);
                          mHeadset.showActivity(kGame);
                      },
                      {{{kShell, kBoth}, {kGame, kBoth}}, "", kGame, ""}});
    steps->push_back({"The game starts its XR session",
                      [this] { mHeadset.reportXrSession(kGame, Headset::kVisible); },
                      {{{kShell, kBoth}, {kGame, kBoth}}, kGame, kGame, ""}});
    steps->push_back({"The game asks who has focus, without the permission for it",
                      [this] { askWithoutPermission(); },
                      {{{kShell, kBoth}, {kGame, kBoth}}, kGame, kGame, ""}});
    // The overlay is no activity: the game stays in the foreground and keeps its focus.
    steps->push_back(
            {"The lock screen takes the window",
             [this] {
                 mHeadset.startApp(kLockScreen);
                 mHeadset.reportXrSession(kLockScreen, Headset::kVisible);
                 mHeadset.focusWindow(kLockScreen);
             },
             {{{kShell, kBoth}, {kGame, kBoth}, {kLockScreen, kBoth}}, kLockScreen, kGame, ""}});
    steps->push_back(
            {"The lock screen goes, the game has the window again",
             [this] {
                 mHeadset.reportXrSession(kLockScreen, Headset::kStopping);
                 mHeadset.focusWindow(kGame);
             },
             {{{kShell, kBoth}, {kGame, kBoth}, {kLockScreen, kNoFocus}}, kGame, kGame, ""}});
}

void BuiltInSession::appendBackground(std::vector<Step>* steps) {
    std::map<std::string, Verdict> focus{
            {kShell, kBoth}, {kGame, kBoth}, {kLockScreen, kNoFocus}, {kCoach, kHeadOnly}};
    steps->push_back({"A fitness coach tracks the head in the background, with permission",
                      [this] {
                          mHeadset.startApp(kCoach);
                          mHeadset.startBackgroundService(kCoach);
                      },
                      {focus, kGame, kGame, ""}});
    focus[kBrowser] = kBoth;
    steps->push_back({"A browser opens as a panel beside the game",
                      [this] {
                          mHeadset.startApp(kBrowser);
                          mHeadset.setPanelService(kBrowser, /*running=*/true);
                      },
                      {focus, kGame, kGame, ""}});
}

void BuiltInSession::appendDisplay(std::vector<Step>* steps) {
    std::map<std::string, Verdict> focus{{kShell, kBoth},         {kGame, kBoth},
                                         {kLockScreen, kNoFocus}, {kCoach, kHeadOnly},
                                         {kBrowser, kBoth},       {kCaster, kHeadOnly}};
    // A top activity anywhere is enough for the head, on a granted display also for input.
    steps->push_back({"A second display shows a caster, not granted yet",
                      [this] {
                          mHeadset.addDisplay(kCastDisplay);
                          mHeadset.startApp(kCaster);
                          mHeadset.showActivity(kCaster, kCastDisplay);
                      },
                      {focus, kGame, kGame, ""}});
    focus[kCaster] = kBoth;
    steps->push_back({"The shell grants the display tracking access, the caster comes up anew",
                      [this] {
                          mHeadset.grantTracking(kShell, kCastDisplay);
                          mHeadset.finishActivity(kCaster, kCastDisplay);
                          mHeadset.showActivity(kCaster, kCastDisplay);
                          mHeadset.awaitTrue("the daemon watches for removed displays", [this] {
                              return mHeadset.displayMask() == kRemovalsMask;
                          });
                      },
                      {focus, kGame, kGame, ""}});
    focus[kCaster] = kNoFocus;
    steps->push_back({"The second display is removed",
                      [this] {
                          mHeadset.removeDisplay(kCastDisplay);
                          mHeadset.awaitTrue("the daemon watches displays no more",
                                             [this] { return mHeadset.displayMask() == 0; });
                      },
                      {focus, kGame, kGame, ""}});
}

void BuiltInSession::appendFaults(std::vector<Step>* steps) {
    std::map<std::string, Verdict> focus{{kShell, kBoth},
                                         {kLockScreen, kNoFocus},
                                         {kCoach, kHeadOnly},
                                         {kBrowser, kBoth},
                                         {kCaster, kNoFocus}};
    steps->push_back({"The game crashes, the shell is in front again",
                      [this] { mHeadset.crashApp(kGame); },
                      {focus, kShell, kShell, ""}});
    // What the activity manager told is void; the shell is not known to be on top any more.
    focus[kBrowser] = kNoFocus;
    steps->push_back({"The activity manager is killed",
                      [this] { mHeadset.killService("activity"); },
                      {focus, "", "", ""}});
    // Nobody is in the foreground until told so, but the top activity can be asked for.
    steps->push_back({"The activity manager comes back",
                      [this] { mHeadset.restartService("activity"); },
                      {focus, kShell, kShell, ""}});
    focus[kBrowser] = kBoth;
    steps->push_back({"The activity manager reports its processes again",
                      [this] { mHeadset.reportActivitiesAgain(); },
                      {focus, kShell, kShell, ""}});
}

void BuiltInSession::askWithoutPermission() {
    Json::Value request(Json::objectValue);
    request["op"] = "getTopActivity";
    const int got = mHeadset.ask(kGame, request)["exception"].asInt();
    // Permissions are remembered per uid: under the shell's uid the game passes as the shell does.
    const int expected = mHeadset.uidOf(kGame) == mHeadset.uidOf(kShell) ? 0 : kSecurity;
    mTimeline.event(std::string(kGame) + " asks for the top activity: " +
                    (got == 0 ? "answered, since it shares the shell's uid"
                              : "exception " + std::to_string(got)));
    if (got != expected) {
        throw SessionError("getTopActivity without permission: expected exception " +
                           std::to_string(expected) + ", got " + std::to_string(got));
    }
}

std::vector<Timeline::App> BuiltInSession::rows() const {
    std::vector<Timeline::App> rows;
    for (const std::string& name : mHeadset.cast()) {
        rows.push_back({name, mHeadset.lastPidOf(name), mHeadset.uidOf(name)});
    }
    return rows;
}

}  // namespace sim

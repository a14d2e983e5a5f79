// SPDX-License-Identifier: Apache-2.0
// The built-in session: its steps.
#include <unistd.h>

#include "session/BuiltInSession.h"
#include "session/KnownPackages.h"

namespace sim {
namespace {

const char* const kLockScreen = "com.velmar.os.vrlockscreen";
const char* const kBrowser = "com.lumen.browser";
const char* const kCaster = "com.vista.caster";
constexpr int kCastDisplay = 2;
constexpr int kRemovalsMask = 2;  // what the daemon asks of the display manager
constexpr int kHeadTracking = 0;
constexpr int kInputTracking = 1;

}  // namespace

BuiltInSession::BuiltInSession(Headset& headset, Timeline& timeline)
      : mHeadset(headset), mTimeline(timeline) {
    mHeadset.install(kShell, 10050, {kReadFocus, kGrantTracking});
    mHeadset.install(kLockScreen, 10051);
    mHeadset.install(kGame, 10061);
    mHeadset.install(kCoachPackage, 10062, {kBackgroundHead, kReadFocus});
    mHeadset.install(kBrowser, 10063);
    mHeadset.install(kCaster, 10064);
    mHeadset.install(kTerminal, static_cast<int>(geteuid()), {kDump});
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
    steps.push_back({"The shell wants to be told of everything",
                     [this] {
                         mListening->startFocus(kShell, kHeadTracking);
                         mListening->startFocus(kShell, kInputTracking);
                         mListening->startTop(kShell);
                         mTimeline.event(std::string(kShell) + " registers three listeners");
                     },
                     {{{kShell, kBoth}}, kShell, kShell, ""}});
    appendGame(&steps);
    appendBackground(&steps);
    appendDisplay(&steps);
    appendListenersGo(&steps);
    appendFaults(&steps);
    appendDumps(&steps);
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
                      {{{kShell, kBoth}, {kGame, kBoth}}, kGame, kGame, ""},
                      {{kGame, kGame}}});
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
             {{{kShell, kBoth}, {kGame, kBoth}, {kLockScreen, kBoth}}, kLockScreen, kGame, ""},
             {{kGame, kGame}}});
    steps->push_back(
            {"The lock screen goes, the game has the window again",
             [this] {
                 mHeadset.reportXrSession(kLockScreen, Headset::kStopping);
                 mHeadset.focusWindow(kGame);
             },
             {{{kShell, kBoth}, {kGame, kBoth}, {kLockScreen, kNoFocus}}, kGame, kGame, ""},
             {{kGame, kGame}}});
}

void BuiltInSession::appendBackground(std::vector<Step>* steps) {
    std::map<std::string, Verdict> focus{
            {kShell, kBoth}, {kGame, kBoth}, {kLockScreen, kNoFocus}, {kCoach, kHeadOnly}};
    steps->push_back({"A fitness coach tracks the head in the background, and listens",
                      [this] {
                          mHeadset.startApp(kCoach);
                          mListening->startFocus(kCoach, kHeadTracking);
                          mListening->startTop(kCoach);
                          mTimeline.event(std::string(kCoach) + " registers two listeners");
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

void BuiltInSession::appendListenersGo(std::vector<Step>* steps) {
    std::map<std::string, Verdict> focus{{kShell, kBoth},         {kGame, kBoth},
                                         {kLockScreen, kNoFocus}, {kCoach, kHeadOnly},
                                         {kBrowser, kBoth},       {kCaster, kNoFocus}};
    steps->push_back({"The shell wants to hear of input focus no more",
                      [this] { unregisterTwice(); },
                      {focus, kGame, kGame, ""}});
    focus.erase(kCoach);
    steps->push_back({"The coach crashes, and its listeners with it",
                      [this] {
                          mListening->forget(kCoach);
                          mHeadset.crashApp(kCoach);
                      },
                      {focus, kGame, kGame, ""}});
    // Still on top, but nobody renders: the event names no app.
    steps->push_back({"The game pauses its XR session",
                      [this] { mHeadset.reportXrSession(kGame, Headset::kStopping); },
                      {focus, "", kGame, ""},
                      {{kGame, ""}}});
}

void BuiltInSession::appendFaults(std::vector<Step>* steps) {
    std::map<std::string, Verdict> focus{
            {kShell, kBoth}, {kLockScreen, kNoFocus}, {kBrowser, kBoth}, {kCaster, kNoFocus}};
    steps->push_back({"The game crashes, the shell is in front again",
                      [this] { mHeadset.crashApp(kGame); },
                      {focus, kShell, kShell, ""}});
    // What the activity manager told is void; the shell is not known to be on top any more. Of
    // that nobody is told.
    focus[kBrowser] = kNoFocus;
    steps->push_back({"The activity manager is killed",
                      [this] { mHeadset.killService("activity"); },
                      {focus, "", "", ""},
                      {},
                      Situation{kShell, kShell}});
    // Nobody is in the foreground until told so, but the top activity can be asked for.
    steps->push_back({"The activity manager comes back",
                      [this] { mHeadset.restartService("activity"); },
                      {focus, kShell, kShell, ""}});
    focus[kBrowser] = kBoth;
    steps->push_back({"The activity manager reports its processes again",
                      [this] { mHeadset.reportActivitiesAgain(); },
                      {focus, kShell, kShell, ""}});
}

void BuiltInSession::appendDumps(std::vector<Step>* steps) {
    const std::map<std::string, Verdict> focus{
            {kShell, kBoth}, {kLockScreen, kNoFocus}, {kBrowser, kBoth}, {kCaster, kNoFocus}};
    steps->push_back({"The daemon dumps its state, for people and for programs",
                      [this] {
                          showDump({"dumpsys", "vrfocus"}, {kShell, kShell});
                          showDump({"dumpsys", "vrfocus", "json"}, {kShell, kShell});
                          mHeadset.awaitTrue(
                                  "every event is in the telemetry, and no other",
                                  [this] { return mTelemetry->countAll() == mReported; });
                      },
                      {focus, kShell, kShell, ""}});
}

}  // namespace sim

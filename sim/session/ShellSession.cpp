// SPDX-License-Identifier: Apache-2.0
// A headset to look into, and a person's shell inside it.
#include "session/ShellSession.h"

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>

#include "session/KnownPackages.h"
#include "session/Listening.h"
#include "session/PersonsShell.h"
#include "session/SessionError.h"

namespace sim {
namespace {

constexpr int kHeadTracking = 0;
constexpr int kInputTracking = 1;

const char* remarkOn(const std::string& name) {
    if (name == kShell) return "listens to focus and the top activity";
    if (name == kCoach) return "tracks the head in the background; listens";
    return "in front, renders";
}

}  // namespace

ShellSession::ShellSession(Headset& headset, Timeline& timeline,
                           const std::vector<std::string>& command)
      : mHeadset(headset), mTimeline(timeline), mCommand(command) {
    mHeadset.install(kShell, 10050, {kReadFocus, kGrantTracking});
    mHeadset.install(kGame, 10061);
    mHeadset.install(kCoachPackage, 10062, {kBackgroundHead, kReadFocus});
    mHeadset.install(kTerminal, static_cast<int>(geteuid()), {kDump, kReadFocus, kGrantTracking});
}

void ShellSession::prepare() {
    Listening listening(mHeadset);
    mHeadset.startApp(kShell);
    mHeadset.showActivity(kShell);
    listening.startFocus(kShell, kHeadTracking);
    listening.startFocus(kShell, kInputTracking);
    listening.startTop(kShell);
    mHeadset.startApp(kCoach);
    listening.startFocus(kCoach, kHeadTracking);
    listening.startTop(kCoach);
    mHeadset.startApp(kGame);
    mHeadset.showActivity(kGame);
    mHeadset.reportXrSession(kGame, Headset::kVisible);
    mHeadset.expect(kShell,
                    {{{kShell, kBoth}, {kGame, kBoth}, {kCoach, kHeadOnly}}, kGame, kGame, ""});
}

void ShellSession::introduce() {
    mTimeline.line("A headset runs:");
    mTimeline.process(Stack::kDaemon, mHeadset.stack().daemonPid(), static_cast<int>(geteuid()),
                      "the focus daemon");
    for (const std::string& name : mHeadset.cast()) {
        mTimeline.process(name, mHeadset.lastPidOf(name), mHeadset.uidOf(name), remarkOn(name));
    }
    if (!PersonsShell::isInteractive(mCommand)) return;
    const std::string game = std::to_string(mHeadset.lastPidOf(kGame));
    mTimeline.line(
            "Try:\n"
            "  dumpsys vrfocus                what the daemon knows; as JSON: dumpsys vrfocus "
            "json\n"
            "  service list                   who serves here\n"
            "  service call vrfocus 8         the top activity; 7: the immersive app\n"
            "  service call vrfocus 1 i32 1 i32 1 i32 " +
            game +
            "\n"
            "                                 may the game have input? then revoke the main "
            "display,\n"
            "                                 service call vrfocus 11 i32 0, and ask again\n"
            "  setprop debug.nqs.vrfocus.permissive true\n"
            "                                 everybody may track: see the end of dumpsys vrfocus\n"
            "  telemetry --follow &           what the daemon reports\n"
            "  kill " +
            game +
            "\n"
            "                                 the game crashes: who is in front now?\n"
            "  exit                           ends all of it, and all that you have started in it");
}

int ShellSession::run() {
    PersonsShell shell(mHeadset.stack(), mCommand);
    StopSignals* stops = mHeadset.stack().stops();
    while (shell.process().running()) {
        std::vector<pollfd> watched{{shell.process().endFd(), POLLIN, 0},
                                    {stops == nullptr ? -1 : stops->fd(), POLLIN, 0}};
        for (const Stack::Member& member : mHeadset.stack().members()) {
            if (member.process->running()) watched.push_back({member.process->endFd(), POLLIN, 0});
        }
        for (const std::string& name : mHeadset.runningApps())
            watched.push_back({mHeadset.app(name).process().endFd(), POLLIN, 0});
        poll(watched.data(), watched.size(), /*timeout=*/-1);
        sayWhoHasEnded();
        if (watched[1].revents == 0) continue;
        const int number = stops->take();
        // Keys are for what runs in the shell.
        if (number == SIGINT || number == SIGQUIT || number == 0) continue;
        shell.hangUp();
        throw SessionStopped(number);
    }
    return shell.process().exitStatus().value_or(1);
}

void ShellSession::sayWhoHasEnded() {
    for (const Stack::Member& member : mHeadset.stack().members()) {
        const bool isTold = std::count(mEnded.begin(), mEnded.end(), member.process->pid()) > 0;
        if (!isTold && !member.process->running()) memberHasEnded(member);
    }
    for (const std::string& name : mHeadset.runningApps()) {
        if (!mHeadset.app(name).process().running()) appHasEnded(name);
    }
}

void ShellSession::appHasEnded(const std::string& name) {
    try {
        mHeadset.crashApp(name);
    } catch (const SessionError& error) {
        mTimeline.event(std::string("nobody was told: ") + error.what());
    }
}

void ShellSession::memberHasEnded(const Stack::Member& member) {
    mTimeline.event(member.name + " (pid " + std::to_string(member.process->pid()) +
                    ") has ended (" + member.process->ending() + ")");
    mEnded.push_back(member.process->pid());
    // A service that is known to be gone is asked nothing any more.
    if (mHeadset.stack().serviceRuns(member.name)) mHeadset.stack().killService(member.name);
}

}  // namespace sim

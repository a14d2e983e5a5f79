// SPDX-License-Identifier: Apache-2.0
// A headset to look into, and a person's shell inside it.
#include "scenario/ShellSession.h"

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>

#include "process/Orphans.h"
#include "scenario/Player.h"
#include "scenario/TextReporter.h"
#include "scenario/Vocabulary.h"
#include "session/EndWatch.h"
#include "session/KnownPackages.h"
#include "session/PersonsShell.h"
#include "session/SessionError.h"

namespace sim::scenario {
namespace {

/** The tools' package first, whose permissions the daemon remembers once it has asked for them.
 *  From the end on a person leads, who may hold up whatever they like. */
const char* const kPreparation =
        "allow com.android.shell read-focus grant-tracking\n"
        "start com.velmar.shellenv uid=10050 permissions=read-focus,grant-tracking\n"
        "front com.velmar.shellenv\n"
        "listen com.velmar.shellenv head\n"
        "listen com.velmar.shellenv input\n"
        "listen com.velmar.shellenv top\n"
        "start com.pulse.coach:tracking uid=10062 permissions=background-head,read-focus\n"
        "listen com.pulse.coach:tracking head\n"
        "listen com.pulse.coach:tracking top\n"
        "start com.orbit.racer uid=10061\n"
        "front com.orbit.racer\n"
        "report com.orbit.racer visible\n"
        "expect immersive com.orbit.racer\n"
        "expect focus com.orbit.racer both\n"
        "expect focus com.velmar.shellenv both\n"
        "expect focus com.pulse.coach:tracking head\n"
        "settle off\n";

const char* remarkOn(const std::string& name) {
    if (name == kShell) return "listens to focus and the top activity";
    if (name == kCoach) return "tracks the head in the background; listens";
    return "in front, renders";
}

std::string row(const std::string& name, int pid, int uid, const std::string& remark) {
    const auto column = [](std::string text, size_t width) {
        text.resize(std::max(width, text.size()), ' ');
        return text + " ";
    };
    return "  " + column(name, 24) + "pid " + column(std::to_string(pid), 7) + "uid " +
           column(std::to_string(uid), 7) + remark;
}

/** Says what happens, but not while the headset is prepared. */
class LaterEvents : public TextReporter {
public:
    explicit LaterEvents(Timeline& timeline) : TextReporter(timeline, /*echo=*/false) {}
    void begin() { mBegun = true; }
    void event(const std::string& text) override {
        if (mBegun) TextReporter::event(text);
    }
    void held(const Outcome&) override {}

private:
    bool mBegun = false;
};

/** One thread. Errors as Headset's. */
class ShellSession {
public:
    /** The headset runs and the apps have come up; all outlive this object. */
    ShellSession(Headset& headset, Timeline& timeline, const std::vector<std::string>& command)
          : mHeadset(headset), mTimeline(timeline), mCommand(command) {}

    /** What runs, and for somebody who types also what to try. */
    void introduce();
    /** Runs the shell to its end; the exit status of it. */
    int run();

private:
    /** SessionStopped when one tells the session to end. */
    void heedSignals(PersonsShell& shell);
    void sayWhoHasEnded();
    void appHasEnded(const std::string& name);

    Headset& mHeadset;
    Timeline& mTimeline;
    const std::vector<std::string>& mCommand;
    EndWatch mEnds;
};

void ShellSession::introduce() {
    mTimeline.line("A headset runs:");
    mTimeline.line(row(Stack::kDaemon, mHeadset.stack().daemonPid(), mHeadset.stack().systemUid(),
                       "the focus daemon"));
    for (const std::string& name : mHeadset.cast()) {
        if (name == kObserver) continue;
        mTimeline.line(row(name, mHeadset.lastPidOf(name), mHeadset.uidOf(name), remarkOn(name)));
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
        for (const int fd : mEnds.fds(mHeadset))
            watched.push_back({fd, POLLIN, 0});
        poll(watched.data(), watched.size(), /*timeout=*/-1);
        sayWhoHasEnded();
        heedSignals(shell);
    }
    heedSignals(shell);
    return shell.process().exitStatus().value_or(1);
}

void ShellSession::heedSignals(PersonsShell& shell) {
    StopSignals* stops = mHeadset.stack().stops();
    while (const int number = stops == nullptr ? 0 : stops->take()) {
        shell.hangUp();
        throw SessionStopped(number);
    }
}

void ShellSession::sayWhoHasEnded() {
    for (const EndWatch::Ended& ended : mEnds.take(mHeadset)) {
        if (ended.isApp) {
            appHasEnded(ended.name);
            continue;
        }
        mTimeline.remark(ended.text());
        // A service that is known to be gone is asked nothing any more.
        if (mHeadset.stack().serviceRuns(ended.name)) mHeadset.stack().killService(ended.name);
    }
}

void ShellSession::appHasEnded(const std::string& name) {
    try {
        mHeadset.crashApp(name);
    } catch (const SessionError& error) {
        mTimeline.remark(std::string("nobody was told: ") + error.what());
    }
}

void prepare(Player& player) {
    const Script script = Script::fromText("headset --shell", kPreparation);
    for (const Mistake& mistake : script.mistakes)
        throw SessionError(mistake.text());
    for (const Command& command : script.commands)
        player.play(command);
}

}  // namespace

int runShell(const Headset::Options& options, const std::vector<std::string>& command) {
    const Orphans orphans;
    Timeline timeline(stderr, Timeline::wantsColours(stderr));
    LaterEvents reporter(timeline);
    Player player(options, reporter);
    try {
        prepare(player);
        ShellSession session(player.headset(), timeline, command);
        session.introduce();
        reporter.begin();
        return session.run();
    } catch (const SessionStopped& stopped) {
        timeline.failure("stopped by signal " + std::to_string(stopped.signal()));
        return 128 + stopped.signal();
    } catch (const std::runtime_error& error) {  // a SessionError, or an expectation
        timeline.failure(error.what());
    }
    if (player.booted() != nullptr) {
        std::fputs(player.booted()->stack().logTails().c_str(), stderr);
    }
    return 1;
}

}  // namespace sim::scenario

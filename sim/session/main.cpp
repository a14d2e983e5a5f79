// SPDX-License-Identifier: Apache-2.0
//
// headset: plays the built-in session on a simulated headset.
//
// Exit status 0 when every expectation held, 1 when one did not or something could not be started,
// 2 for a wrong command line, 128 + N when ended by signal N.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>

#include "session/BuiltInSession.h"
#include "session/Headset.h"
#include "session/SessionError.h"
#include "session/StopSignals.h"
#include "session/Timeline.h"

namespace {

const char* const kUsage =
        "usage: headset [--help]\n"
        "\n"
        "Plays a session on a simulated headset: the focus daemon, the platform services around\n"
        "it and the apps are real processes that call each other. After every step the daemon is\n"
        "asked who has focus, and the answers are compared with those that are due.\n"
        "\n"
        "As root every app has a uid of its own; otherwise all run under yours.\n"
        "Exit status: 0 all answers were right, 1 one was not, 2 wrong usage.\n";

std::string programsFolder() {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path().string();
}

int playSession(sim::StopSignals& stops, sim::Timeline& timeline) {
    sim::Headset::Options options;
    options.stack.programs = programsFolder();
    options.stack.stops = &stops;
    bool booted = false;  // later starts are events of their steps
    options.stack.onReady = [&](const std::string& name, int pid) {
        if (!booted) timeline.ready(name, pid);
    };
    options.ownUids = sim::ChildProcess::canChangeUids();
    options.onEvent = [&](const std::string& line) { timeline.event(line); };
    timeline.line(std::string("Simulated headset, apps under ") +
                  (options.ownUids ? "their own uids" : "uid " + std::to_string(geteuid())));
    std::unique_ptr<sim::Headset> headset;
    try {
        headset = std::make_unique<sim::Headset>(options);
        sim::BuiltInSession session(*headset, timeline);
        headset->boot();
        booted = true;
        session.play();
    } catch (const sim::SessionError& error) {
        timeline.failure(error.what());
        if (headset != nullptr) std::fputs(headset->stack().logTails().c_str(), stderr);
        return 1;
    } catch (const sim::SessionStopped& stopped) {
        timeline.failure("stopped by signal " + std::to_string(stopped.signal()));
        return 128 + stopped.signal();
    }
    timeline.success("every answer was the one that was due");
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
        std::fputs(kUsage, stdout);
        return 0;
    }
    if (argc != 1) {
        std::fprintf(stderr, "headset: what is '%s'?\n%s", argv[1], kUsage);
        return 2;
    }
    sim::StopSignals stops;
    sim::Timeline timeline(stdout, sim::Timeline::wantsColours(stdout));
    return playSession(stops, timeline);
}

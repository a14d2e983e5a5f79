// SPDX-License-Identifier: Apache-2.0
//
// headset: a simulated headset, with the built-in session played on it or a shell inside it.
//
// Exit status 0 when every expectation held, 1 when one did not or something could not be started,
// 2 for a wrong command line, 128 + N when ended by signal N; with --shell that of the shell.
#include <driver/Driver.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "process/Orphans.h"
#include "session/BuiltInSession.h"
#include "session/Headset.h"
#include "session/SessionError.h"
#include "session/ShellSession.h"
#include "session/StopSignals.h"
#include "session/Timeline.h"

namespace {

const char* const kUsage =
        "usage: headset [--help | --shell [COMMAND [ARGUMENT...]]]\n"
        "\n"
        "Plays a session on a simulated headset: the focus daemon, the platform services around\n"
        "it and the apps are real processes that call each other. After every step the daemon is\n"
        "asked who has focus, and the answers are compared with those that are due; so is what\n"
        "it told its listeners and reported as telemetry.\n"
        "\n"
        "  --shell   boot the headset, start some apps and run COMMAND, else your $SHELL, inside\n"
        "            it: dumpsys, service, setprop, telemetry and the like reach its daemon\n"
        "\n"
        "As root every app has a uid of its own; otherwise all run under yours.\n"
        "With BINDER_DRIVER naming a binder device (/dev/binder) the calls go through the kernel;\n"
        "otherwise through a binderhub of the session's own.\n"
        "Exit status: 0 all answers were right, 1 one was not, 2 wrong usage; with --shell that\n"
        "of the shell or command.\n";

std::string programsFolder() {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path().string();
}

sim::Headset::Options optionsFor(sim::StopSignals& stops) {
    sim::Headset::Options options;
    options.stack.programs = programsFolder();
    options.stack.stops = &stops;
    const std::string driver = binderhost::driverPath();
    if (binderhost::namesDevice(driver)) options.stack.device = driver;
    options.ownUids = sim::ChildProcess::canChangeUids();
    return options;
}

/** Runs what may end early; the exit status. */
int guarded(sim::Timeline& timeline,
            const std::function<int(std::unique_ptr<sim::Headset>&)>& run) {
    std::unique_ptr<sim::Headset> headset;
    try {
        return run(headset);
    } catch (const sim::SessionError& error) {
        timeline.failure(error.what());
        if (headset != nullptr) std::fputs(headset->stack().logTails().c_str(), stderr);
        return 1;
    } catch (const sim::SessionStopped& stopped) {
        timeline.failure("stopped by signal " + std::to_string(stopped.signal()));
        return 128 + stopped.signal();
    }
}

int playSession(sim::StopSignals& stops) {
    sim::Timeline timeline(stdout, sim::Timeline::wantsColours(stdout));
    sim::Headset::Options options = optionsFor(stops);
    bool booted = false;  // later starts are events of their steps
    options.stack.onReady = [&](const std::string& name, int pid) {
        if (!booted) timeline.ready(name, pid);
    };
    options.onEvent = [&](const std::string& line) { timeline.event(line); };
    const std::string& device = options.stack.device;
    timeline.line(std::string("Simulated headset, apps under ") +
                  (options.ownUids ? "their own uids" : "uid " + std::to_string(geteuid())) +
                  (device.empty() ? "" : ", on " + device));
    const int status = guarded(timeline, [&](std::unique_ptr<sim::Headset>& headset) {
        headset = std::make_unique<sim::Headset>(options);
        sim::BuiltInSession session(*headset, timeline);
        headset->boot();
        booted = true;
        session.play();
        return 0;
    });
    if (status == 0) timeline.success("every answer was the one that was due");
    return status;
}

/** The standard output belongs to the shell: what is to be said goes to standard error. */
int runShell(sim::StopSignals& stops, const std::vector<std::string>& command) {
    const sim::Orphans orphans;
    sim::Timeline timeline(stderr, sim::Timeline::wantsColours(stderr));
    sim::Headset::Options options = optionsFor(stops);
    bool prepared = false;  // what happens later is the person's doing
    options.onEvent = [&](const std::string& line) {
        if (prepared) timeline.event(line);
    };
    return guarded(timeline, [&](std::unique_ptr<sim::Headset>& headset) {
        headset = std::make_unique<sim::Headset>(options);
        sim::ShellSession session(*headset, timeline, command);
        headset->boot();
        session.prepare();
        session.introduce();
        prepared = true;
        return session.run();
    });
}

int refuse(const std::string& word) {
    std::fprintf(stderr, "headset: what is '%s'?\n%s", word.c_str(), kUsage);
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> words(argv + 1, argv + argc);
    if (words.size() == 1 && words[0] == "--help") {
        std::fputs(kUsage, stdout);
        return 0;
    }
    const bool shell = !words.empty() && words[0] == "--shell";
    if (!words.empty() && !shell) return refuse(words[0] == "--help" ? words[1] : words[0]);
    const std::vector<std::string> command(words.begin() + (shell ? 1 : 0), words.end());
    if (!command.empty() && (command[0].empty() || command[0][0] == '-')) return refuse(command[0]);

    sim::StopSignals stops;
    return shell ? runShell(stops, command) : playSession(stops);
}

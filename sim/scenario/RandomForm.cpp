// SPDX-License-Identifier: Apache-2.0
// Commands: chance.
#include "scenario/RandomForm.h"

#include "scenario/Player.h"
#include "scenario/RandomCommands.h"
#include "scenario/Script.h"
#include "scenario/Vocabulary.h"
#include "session/SessionError.h"

namespace sim::scenario {
namespace {

std::map<std::string, RandomStart::App> appsOf(Headset& headset) {
    std::map<std::string, RandomStart::App> apps;
    for (const std::string& name : headset.cast()) {
        if (name == kObserver) continue;
        const Headset::AppSpec& spec = headset.specOf(name);
        RandomStart::App app;
        app.uid = spec.uid;
        app.process = spec.process;
        app.runs = headset.appRuns(name);
        app.isHung = app.runs && headset.isHung(name);
        app.isNative = spec.process.starts_with("/");
        apps[name] = app;
    }
    return apps;
}

}  // namespace

RandomStart randomStart(Headset& headset) {
    RandomStart start;
    start.apps = appsOf(headset);
    const World& world = headset.world();
    for (const auto& [name, package] : world.packages())
        start.packages[name] = package.uid;
    start.displays.clear();
    for (const auto& [display, pids] : world.displays()) {
        start.displays.insert(display);
        for (const int pid : pids)
            start.activities[display].insert(headset.nameOf(pid));
    }
    for (const auto& [pid, process] : world.processes()) {
        if (process.panelService) start.panels.insert(headset.nameOf(pid));
    }
    for (const std::string& name : Stack::serviceNames()) {
        if (!headset.isRunning(name)) start.away.insert(name);
    }
    if (!headset.isRunning(Stack::kDaemon)) start.away.insert(Stack::kDaemon);
    start.isBooted = true;
    start.hasHub = headset.isRunning(Stack::kHub);
    start.canAwait = headset.stack().knowsWatches();
    return start;
}

void playRandom(Player& player, const Arguments& arguments) {
    RandomCommands commands(static_cast<uint64_t>(arguments.number("SEED")),
                            randomStart(player.headset()));
    LineReader reader("random " + arguments.text("SEED"));
    reader.scope().loosen();
    for (int count = arguments.number("COUNT"); count > 0; --count) {
        const std::string line = commands.next();
        const auto result = reader.take(line);
        const auto* command = std::get_if<Command>(&result);
        if (command == nullptr) throw SessionError("no command that can be played: " + line);
        player.play(*command);
    }
}

}  // namespace sim::scenario

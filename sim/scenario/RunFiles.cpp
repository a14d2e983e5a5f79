// SPDX-License-Identifier: Apache-2.0
// headset run FILE...
#include "scenario/RunFiles.h"

#include <cstdio>

#include "scenario/Player.h"
#include "scenario/ScenarioFiles.h"
#include "scenario/Script.h"
#include "scenario/TextReporter.h"
#include "session/SessionError.h"

namespace sim::scenario {
namespace {

std::string textOf(const std::vector<std::string>& events) {
    std::string text = "\n  what led there, the latest last:";
    for (const std::string& event : events)
        text += "\n    - " + event;
    return text;
}

/** What went wrong, where, and what led there. */
std::string textOf(const ExpectationFailed& failed) {
    std::string text = failed.place().text() + ": " + failed.command();
    text += "\n    expected  " + failed.outcome().expected;
    text += "\n    got       " + failed.outcome().got;
    return text + textOf(failed.events());
}

std::string placeOf(const Player& player, const Script& script) {
    return player.current() == nullptr
                   ? script.file + ": "
                   : player.current()->place.text() + ": " + player.current()->text + "\n    ";
}

int play(const Headset::Options& options, const Script& script, Timeline& timeline) {
    TextReporter reporter(timeline, /*echo=*/true);
    Player player(options, reporter);
    try {
        for (const Command& command : script.commands)
            player.play(command);
        timeline.line("# OK  " + script.file + ": every expectation held");
        return 0;
    } catch (const ExpectationFailed& failed) {
        timeline.failure(textOf(failed));
    } catch (const SessionError& error) {
        timeline.failure(placeOf(player, script) + error.what() + textOf(player.events()));
    }
    if (player.booted() != nullptr) timeline.error(player.booted()->stack().logTails());
    return 1;
}

int playAll(const Headset::Options& options, const std::vector<Script>& scripts,
            Timeline& timeline) {
    for (const Script& script : scripts) {
        timeline.line("# " + script.file);
        const int status = play(options, script, timeline);
        if (status != 0) return status;
    }
    if (timeline.isLost()) {
        std::fprintf(stderr, "headset: what was to be printed could not be written\n");
        return 1;
    }
    return 0;
}

}  // namespace

std::optional<std::vector<Script>> readFiles(const std::vector<std::string>& files) {
    std::vector<Script> scripts;
    size_t mistakes = 0;
    for (const std::string& file : files) {
        const FoundScenario found = findScenario(file);
        if (!found.complaint.empty()) {
            std::fprintf(stderr, "headset: %s\n", found.complaint.c_str());
            ++mistakes;
            continue;
        }
        scripts.push_back(Script::fromFile(found.path));
        for (const Mistake& mistake : scripts.back().mistakes)
            std::fprintf(stderr, "%s\n", mistake.text().c_str());
        const std::string more = scripts.back().textOfMore();
        if (!more.empty()) std::fprintf(stderr, "%s\n", more.c_str());
        mistakes += scripts.back().mistakes.size();
    }
    if (mistakes > 0) return {};
    return scripts;
}

int playScripts(const Headset::Options& options, const std::vector<Script>& scripts) {
    Timeline timeline(stdout, Timeline::wantsColours(stdout), options.stack.stops);
    try {
        return playAll(options, scripts, timeline);
    } catch (const SessionStopped& stopped) {
        Timeline::stopped(stopped.signal());
        return 128 + stopped.signal();
    }
}

}  // namespace sim::scenario

// SPDX-License-Identifier: Apache-2.0
// A finding as a scenario that shows it, as short as it can be had.
#include "Report.h"

#include <chrono>
#include <cstdio>
#include <optional>
#include <sstream>

#include "Grounds.h"

namespace oracle {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kMostTries = 2000;
constexpr std::chrono::minutes kMostTime(4);
/** Asks about everybody; apart from that it changes nothing. */
const char* const kQuestions = "show";

/** What comes of lines when they are played anew, and how many of them that took. */
struct Replay {
    std::optional<Finding> finding;
    size_t played = 0;
};

Replay replay(const Lines& lines, const sim::Headset::Options& options) {
    Trial trial(options);
    Replay replay;
    for (const std::string& line : lines) {
        ++replay.played;
        if (!trial.play(line)) break;
    }
    static_cast<void>(trial.askEverything());
    replay.finding = trial.finding();
    return replay;
}

/** What it says apart from pids, which are others each time. */
std::string withoutNumbers(const std::string& text) {
    std::string rest;
    for (const char each : text) {
        if (each < '0' || each > '9') rest += each;
    }
    return rest;
}

/** Whether the lines, played anew, show a finding once more. */
bool showsAgain(const Finding& finding, const Lines& lines, const Replay& replay) {
    if (!replay.finding || replay.finding->kind != finding.kind) return false;
    // An answer that is not due and an end of the daemon are wrong after whatever commands.
    if (finding.kind != Finding::Kind::Failure) return true;
    return replay.played == lines.size() &&
           withoutNumbers(replay.finding->text) == withoutNumbers(finding.text);
}

/** With questions after each: what the daemon remembers depends on what it was asked. */
Lines withQuestions(const Lines& lines) {
    Lines all;
    for (const std::string& line : lines) {
        all.push_back(line);
        if (!line.starts_with("property ")) all.emplace_back(kQuestions);
    }
    return all;
}

void addComment(const std::string& text, std::string* out) {
    std::istringstream parts(text);
    for (std::string line; std::getline(parts, line);)
        *out += "# " + line + "\n";
}

std::string textOf(const std::string& headline, const Finding& finding, const Lines& lines) {
    std::string text;
    addComment(headline, &text);
    addComment(finding.text, &text);
    for (const std::string& line : lines)
        text += line + "\n";
    if (!finding.expectation.empty()) text += finding.expectation + "\n";
    return text;
}

/** Whether the scenario fails by its last expectation, with nobody beside; where the daemon ends,
 *  whichever command notices it. */
bool isShownBy(Lines lines, const Finding& finding, const sim::Headset::Options& options) {
    std::istringstream parts(finding.expectation);
    for (std::string line; std::getline(parts, line);)
        lines.push_back(line);
    if (finding.expectation.empty()) return false;
    const bool isNegative = lines.back().starts_with("expect no ");
    if (!isNegative) lines.back() += " within=1";
    Silence silence;
    sim::scenario::Player player(options, silence);
    sim::scenario::LineReader reader("shown");
    try {
        for (const std::string& line : lines)
            player.play(std::get<sim::scenario::Command>(reader.take(line)));
    } catch (const sim::scenario::ExpectationFailed& failed) {
        return finding.kind == Finding::Kind::Crash || failed.command() == lines.back();
    } catch (const std::exception&) {
        return finding.kind == Finding::Kind::Crash;
    }
    return false;
}

const char* headlineOf(const Finding& finding, bool isShown) {
    if (finding.kind == Finding::Kind::Failure) return "a command that did not go as it says.";
    if (!isShown) return "to be seen beside the oracle only.";
    return finding.kind == Finding::Kind::Crash ? "the daemon does not survive this."
                                                : "the daemon's answer is not the one that is due.";
}

}  // namespace

std::string scenarioOf(const Finding& finding, const Lines& lines, uint64_t seed,
                       const sim::Headset::Options& options) {
    const std::string headline = "Seed " + std::to_string(seed) + ": ";
    const Lines grounds = finding.kind == Finding::Kind::Failure ? groundsOf(lines) : Lines();
    const auto end = Clock::now() + kMostTime;
    for (const Lines& whole : {lines, withQuestions(lines)}) {
        Replay last = replay(whole, options);
        Lines few(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(last.played));
        if (!showsAgain(finding, few, last)) continue;
        const auto stillShows = [&](const Lines& candidate) {
            if (Clock::now() > end || !holdsAll(candidate, grounds)) return false;
            std::fprintf(stderr, "\rshortening: %zu commands ", candidate.size());
            const Replay result = replay(candidate, options);
            if (!showsAgain(finding, candidate, result)) return false;
            last = result;
            return true;
        };
        few = shortened(few, stillShows, kMostTries);
        std::fputs("\n", stderr);
        const bool isShown = isShownBy(few, *last.finding, options);
        return textOf(headline + headlineOf(finding, isShown), *last.finding, few);
    }
    return textOf(headline + "not seen again when played anew.", finding, withQuestions(lines));
}

}  // namespace oracle

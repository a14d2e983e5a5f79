// SPDX-License-Identifier: Apache-2.0
//
// oracle_runner: random commands on the simulated headset, the daemon and the oracle asked the same
// after each.
//
// Every stretch of commands has a headset and a seed of its own, counted from SEED. A disagreement
// ends its stretch and is printed, and kept in a file, as a scenario that shows it. With
// BINDER_DRIVER naming a device the calls go through the kernel, as with headset.
//
// Exit status 0 when both agreed on everything, 1 when they did not, 2 for a mistake in the command
// line, 128 + N when ended by signal N.
#include <unistd.h>

#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "Report.h"
#include "Trial.h"
#include "scenario/RandomCommands.h"
#include "session/SessionError.h"
#include "session/StopSignals.h"

namespace {

const char* const kUsage =
        "usage: oracle_runner SEED COUNT [--length N] [--keep FOLDER] [--progress] [--first]\n"
        "                     [--programs FOLDER]\n"
        "\n"
        "Plays COUNT random commands, N (250) on each headset, and compares the daemon's answers\n"
        "with those that are due. Scenarios of what differs are kept in FOLDER (disagreements).\n"
        "--first ends with the first of them, else five are enough.\n"
        "Another folder of programs has another daemon in it than the one that was built.\n";

struct Wish {
    uint64_t seed = 0;
    uint64_t count = 0;
    uint64_t length = 250;
    std::string folder = "disagreements";
    std::string programs = PROGRAMS;
    bool showsProgress = false;
    int mostDisagreements = 5;
};

/** What came of all stretches so far. */
struct Tally {
    uint64_t commands = 0;
    uint64_t answers = 0;
    int disagreements = 0;
};

bool readNumber(const char* text, uint64_t* out) {
    const char* end = text + strlen(text);
    const auto read = std::from_chars(text, end, *out);
    return read.ec == std::errc() && read.ptr == end && text != end;
}

bool readWish(int argc, char** argv, Wish* wish) {
    std::vector<uint64_t*> numbers{&wish->seed, &wish->count};
    size_t taken = 0;
    for (int at = 1; at < argc; ++at) {
        const std::string word = argv[at];
        if (word == "--progress") {
            wish->showsProgress = true;
        } else if (word == "--first") {
            wish->mostDisagreements = 1;
        } else if (word == "--keep" && at + 1 < argc) {
            wish->folder = argv[++at];
        } else if (word == "--programs" && at + 1 < argc) {
            wish->programs = argv[++at];
        } else if (word == "--length" && at + 1 < argc) {
            if (!readNumber(argv[++at], &wish->length) || wish->length == 0) return false;
        } else if (taken == numbers.size() || !readNumber(argv[at], numbers[taken++])) {
            return false;
        }
    }
    return taken == numbers.size();
}

void keep(const Wish& wish, uint64_t seed, const std::string& scenario) {
    std::filesystem::create_directories(wish.folder);
    const std::string file = wish.folder + "/seed-" + std::to_string(seed) + ".scenario";
    std::ofstream(file) << scenario;
    std::printf("-- %s:\n%s--\n", file.c_str(), scenario.c_str());
    std::fflush(stdout);
}

/** One headset; false when there was something to complain about. */
bool playStretch(const Wish& wish, uint64_t seed, uint64_t length,
                 const sim::Headset::Options& options, Tally* tally) {
    sim::scenario::RandomStart start;
    start.canReusePids = true;
    start.hasHub = options.stack.device.empty();
    sim::scenario::RandomCommands commands(seed, start);
    oracle::Lines lines;
    std::optional<oracle::Finding> finding;
    {
        oracle::Trial trial(options);
        bool isFine = true;
        while (isFine && lines.size() < length) {
            lines.push_back(commands.next());
            isFine = trial.play(lines.back()) && trial.askEverything();
        }
        finding = trial.finding();
        tally->answers += trial.compared();
    }
    tally->commands += lines.size();
    if (!finding) return true;
    ++tally->disagreements;
    std::printf("seed %llu, command %zu (%s):\n%s\n", static_cast<unsigned long long>(seed),
                lines.size(), lines.back().c_str(), finding->text.c_str());
    std::fflush(stdout);
    keep(wish, seed, oracle::scenarioOf(*finding, lines, seed, options));
    return false;
}

int playAll(const Wish& wish, const sim::Headset::Options& options) {
    const auto begin = std::chrono::steady_clock::now();
    Tally tally;
    uint64_t left = wish.count;
    for (uint64_t seed = wish.seed; left > 0; ++seed) {
        const uint64_t length = std::min(left, wish.length);
        left -= length;
        playStretch(wish, seed, length, options, &tally);
        if (tally.disagreements == wish.mostDisagreements) break;
        if (wish.showsProgress)
            std::fprintf(stderr, "seed %llu: %llu of %llu commands, %d disagreements\n",
                         static_cast<unsigned long long>(seed),
                         static_cast<unsigned long long>(wish.count - left),
                         static_cast<unsigned long long>(wish.count), tally.disagreements);
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
    std::printf("%llu commands from seed %llu, %llu answers compared, %d disagreements, %.1f s\n",
                static_cast<unsigned long long>(tally.commands),
                static_cast<unsigned long long>(wish.seed),
                static_cast<unsigned long long>(tally.answers), tally.disagreements, took.count());
    return tally.disagreements == 0 && tally.answers > 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    Wish wish;
    if (!readWish(argc, argv, &wish)) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    sim::StopSignals stops;
    try {
        return playAll(wish, sim::Headset::usualOptions(wish.programs, stops));
    } catch (const sim::SessionError& error) {
        std::fprintf(stderr, "oracle_runner: %s\n", error.what());
        return 1;
    } catch (const sim::SessionStopped& stopped) {
        return 128 + stopped.signal();
    }
}

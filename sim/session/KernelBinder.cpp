// SPDX-License-Identifier: Apache-2.0
// What the kernel's binder module knows of a session's processes.
#include "session/KernelBinder.h"

#include <android-base/file.h>

#include <cstdlib>
#include <sstream>
#include <vector>

namespace sim {
namespace {

struct Line {
    pid_t owner = 0;  // 0: of no process, as the nodes of those that have ended
    std::string text;
    std::vector<std::string> words;
};

std::vector<Line> linesOf(const std::string& state) {
    std::vector<Line> lines;
    pid_t owner = 0;
    std::istringstream text(state);
    for (std::string each; std::getline(text, each);) {
        Line line{owner, each, {}};
        std::istringstream words(each);
        for (std::string word; words >> word;)
            line.words.push_back(word);
        if (line.words.size() == 2 && line.words[0] == "proc") {
            owner = line.owner = std::stoi(line.words[1]);
        }
        if (!line.words.empty()) lines.push_back(std::move(line));
    }
    return lines;
}

/** The pids in "... from 12:13 to 14:0 ..."; what has ended is 0. */
bool isBetween(const Line& line, const std::set<pid_t>& pids) {
    for (size_t at = 0; at + 1 < line.words.size(); ++at) {
        if (line.words[at] != "from" && line.words[at] != "to") continue;
        if (pids.contains(std::atoi(line.words[at + 1].c_str()))) return true;
    }
    return false;
}

/**
 * "thread 21: l 12 need_return 0 tr 0": of the pool, and not waiting for work. One that polls does
 * not wait in the driver. Of a one-way call that is being handled nothing else tells: its buffer
 * looks like that of a reply, which its reader gives back with its next command only.
 */
bool isBusy(const Line& line) {
    constexpr unsigned long kOfPool = 0x03;  // registered, entered
    constexpr unsigned long kApart = 0x2c;   // exited, invalid, polling
    constexpr unsigned long kWaiting = 0x10;
    if (line.words[0] != "thread" || line.words.size() < 4 || line.words[2] != "l") return false;
    const unsigned long flags = std::strtoul(line.words[3].c_str(), nullptr, /*base=*/16);
    return (flags & kOfPool) != 0 && (flags & (kApart | kWaiting)) == 0;
}

/** Calls and one-way calls, work in a list, threads at work, and news of ends. */
bool isWork(const Line& line) {
    const std::string& first = line.words[0];
    if (first == "buffer") return line.words.back() == "active";
    if (first == "has" || isBusy(line)) return true;
    // "node work 7: ...", as against "node 7: ..."
    if (first == "node") return line.words.size() > 1 && line.words[1] == "work";
    return line.text.find(" transaction ") != std::string::npos;
}

/** A link to the end of a node is told as its address; zeros: there is none. */
bool hasDeathLink(const Line& line) {
    const std::vector<std::string>& words = line.words;
    return words.size() > 2 && words[words.size() - 2] == "d" &&
           words.back().find_first_not_of('0') != std::string::npos;
}

bool isRunning(pid_t pid) {
    std::string stat;
    if (!android::base::ReadFileToString("/proc/" + std::to_string(pid) + "/stat", &stat))
        return false;
    const size_t end = stat.rfind(") ");
    return end != std::string::npos && stat[end + 2] != 'Z' && stat[end + 2] != 'X';
}

}  // namespace

std::string inFlightIn(const std::string& state, const std::set<pid_t>& leftOut,
                       const std::function<bool(pid_t)>& isAlive) {
    for (const Line& line : linesOf(state)) {
        if (leftOut.contains(line.owner)) continue;
        const bool isDead = line.words[0] == "proc" && !isAlive(line.owner);
        if (!isDead && (!isWork(line) || isBetween(line, leftOut))) continue;
        return "pid " + std::to_string(line.owner) + ": " +
               (isDead ? "has ended" : line.text.substr(line.text.find_first_not_of(' ')));
    }
    return "";
}

bool watchesIn(const std::string& state, pid_t watcher, pid_t watched) {
    std::set<std::string> nodes;  // of the watched
    const std::vector<Line> lines = linesOf(state);
    for (const Line& line : lines) {
        const bool isNode = line.words[0] == "node" && line.words.size() > 1;
        if (isNode && line.owner == watched) {
            nodes.insert(line.words[1].substr(0, line.words[1].find(':')));
        }
    }
    // "ref 5: desc 1 node 3 s 1 w 1 d 0000000000000000"
    for (const Line& line : lines) {
        const bool isRef = line.words[0] == "ref" && line.words.size() > 5;
        if (!isRef || line.owner != watcher || !hasDeathLink(line)) continue;
        if (line.words[4] == "node" && nodes.contains(line.words[5])) return true;
    }
    return false;
}

std::unique_ptr<KernelBinder> KernelBinder::open(const std::string& folder) {
    std::unique_ptr<KernelBinder> kernel(new KernelBinder(folder));
    std::string text;
    for (const char* file : {"/state", "/stats"}) {
        if (!android::base::ReadFileToString(folder + file, &text)) return nullptr;
    }
    return kernel;
}

std::optional<std::string> KernelBinder::inFlight(const std::set<pid_t>& leftOut) const {
    std::string before;
    std::string state;
    std::string after;
    const bool isRead = android::base::ReadFileToString(mFolder + "/stats", &before) &&
                        android::base::ReadFileToString(mFolder + "/state", &state) &&
                        android::base::ReadFileToString(mFolder + "/stats", &after);
    if (!isRead || before != after) return {};
    return inFlightIn(state, leftOut, isRunning);
}

bool KernelBinder::watches(pid_t watcher, pid_t watched) const {
    std::string state;
    return android::base::ReadFileToString(mFolder + "/state", &state) &&
           watchesIn(state, watcher, watched);
}

}  // namespace sim

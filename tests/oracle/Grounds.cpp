// SPDX-License-Identifier: Apache-2.0
// What cannot be left out when a command ended otherwise than it says.
#include "Grounds.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <sstream>

namespace oracle {
namespace {

using Words = std::vector<std::string>;

Words wordsOf(const std::string& line) {
    std::istringstream text(line);
    Words words{std::istream_iterator<std::string>(text), {}};
    if (!words.empty() && words.front() == "quietly") words.erase(words.begin());
    return words;
}

bool has(const Words& words, const std::string& word) {
    return std::find(words.begin(), words.end(), word) != words.end();
}

/** What happens to the system counts for everybody. */
bool isOfAll(const std::string& verb) {
    static const std::set<std::string> kVerbs{"install", "allow", "deny",    "display",
                                              "fault",   "wait",  "restart", "property"};
    return kVerbs.contains(verb);
}

/** What becomes of an app, and of its listeners. */
bool isOfApp(const std::string& verb) {
    static const std::set<std::string> kVerbs{"start",  "native", "reuse",   "stop",
                                              "crash",  "kill",   "rename",  "hang",
                                              "resume", "listen", "unlisten"};
    return kVerbs.contains(verb);
}

/** "uid=..." of an app, as it was started; packages of a uid are shared. */
std::string uidOf(const Lines& lines, const std::string& app) {
    for (const std::string& line : lines) {
        const Words words = wordsOf(line);
        const bool isStart = !words.empty() &&
                             (words[0] == "start" || words[0] == "native" || words[0] == "reuse");
        if (!isStart || !has(words, app)) continue;
        for (const std::string& word : words) {
            if (word.starts_with("uid=")) return word;
        }
    }
    return "";
}

}  // namespace

Lines groundsOf(const Lines& lines) {
    if (lines.empty()) return {};
    const Words last = wordsOf(lines.back());
    const std::string app = last.size() > 1 ? last[1] : "";
    const std::string uid = uidOf(lines, app);
    std::set<std::string> apps;
    for (const std::string& line : lines) {
        const Words words = wordsOf(line);
        if (words.size() > 1 && (words[0] == "start" || words[0] == "native"))
            apps.insert(words[1]);
        if (words.size() > 2 && words[0] == "reuse") apps.insert(words[2]);
    }
    Lines grounds;
    for (const std::string& line : lines) {
        const Words words = wordsOf(line);
        if (words.size() < 2) continue;
        const bool isOfSystem =
                isOfAll(words[0]) || (isOfApp(words[0]) && !apps.contains(words[1]));
        const bool isOfCaller = has(words, app) || (!uid.empty() && has(words, uid));
        if (isOfSystem || (isOfApp(words[0]) && isOfCaller)) grounds.push_back(line);
    }
    if (grounds.empty() || grounds.back() != lines.back()) grounds.push_back(lines.back());
    return grounds;
}

bool holdsAll(const Lines& lines, const Lines& grounds) {
    auto next = grounds.begin();
    for (const std::string& line : lines) {
        if (next != grounds.end() && line == *next) ++next;
    }
    return next == grounds.end();
}

}  // namespace oracle

// SPDX-License-Identifier: Apache-2.0
// Kinds of words.
#include "scenario/Kinds.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <functional>
#include <limits>
#include <map>
#include <sstream>

#include "scenario/DumpPath.h"
#include "scenario/Ears.h"
#include "scenario/Vocabulary.h"
#include "session/Stack.h"
#include "world/FaultPlan.h"

namespace sim::scenario {
namespace {

constexpr size_t kLongestName = 200;

/** A whole number within bounds; the complaint, or empty. */
std::string checkNumber(const std::string& word, long long least, long long most) {
    long long value = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    const bool isNumber = error != std::errc::invalid_argument && end == word.data() + word.size();
    if (!isNumber) return "'" + word + "' is no whole number";
    if (error == std::errc() && value >= least && value <= most) return "";
    return word + " is out of range: " + std::to_string(least) + " to " + std::to_string(most);
}

std::string checkInt(const std::string& word) {
    return checkNumber(word, std::numeric_limits<int>::min(), std::numeric_limits<int>::max());
}

std::string checkNamedNumber(const Names& names, const std::string& word, const char* what) {
    if (names.contains(word)) return "";
    const bool numeric =
            !word.empty() && (isdigit(static_cast<unsigned char>(word[0])) != 0 || word[0] == '-');
    if (numeric) return checkInt(word);
    return "'" + word + "' is no " + what + ": " + joined(keysOf(names)) + ", or a number";
}

std::string checkChoice(const std::vector<std::string>& choices, const std::string& word) {
    if (std::find(choices.begin(), choices.end(), word) != choices.end()) return "";
    return "expected " + joined(choices) + ", got '" + word + "'";
}

bool isNameCharacter(char each) {
    return isalnum(static_cast<unsigned char>(each)) != 0 ||
           std::string("_.:/-").find(each) != std::string::npos;
}

/** Names of packages and processes, that go into tables and command lines. */
std::string checkPlain(const std::string& word, const char* what) {
    if (word.empty()) return std::string("an empty ") + what;
    if (word.size() > kLongestName) {
        return std::string("a ") + what + " of " + std::to_string(word.size()) + " bytes; " +
               std::to_string(kLongestName) + " at most";
    }
    for (const char each : word) {
        if (!isNameCharacter(each)) {
            return "'" + word + "' is no " + what + ": letters, digits and _.:/- only";
        }
    }
    return "";
}

std::string checkNewName(const std::string& word, const Scope& scope) {
    const bool isTaken = word == "none" || word == kObserver || systemProcessOf(word) ||
                         word == Stack::kHub || word == Ears::kTelemetry;
    if (isTaken) return "'" + word + "' is taken and cannot name an app";
    // As in "notice died pid:3", "expect dump a uid:game".
    const bool isRead =
            word.starts_with("pid:") || word.starts_with("uid:") ||
            (!word.empty() && word.find_first_not_of("0123456789") == std::string::npos);
    if (isRead) return "'" + word + "' is read as a number and cannot name an app";
    if (word.starts_with("-")) return "'" + word + "' cannot start with '-'";
    std::string wrong = checkPlain(word, "name");
    if (!wrong.empty()) return wrong;
    return scope.mayStart(word) ? "" : "'" + word + "' runs already";
}

std::string checkApp(const std::string& word, const Scope& scope) {
    if (scope.runs(word)) return "";
    if (systemProcessOf(word)) return "'" + word + "' is no app";
    return scope.knows(word) ? "'" + word + "' has ended by then"
                             : "no app '" + word + "' was started";
}

std::string checkKnownApp(const std::string& word, const Scope& scope) {
    return scope.knows(word) ? "" : "no app '" + word + "' was started";
}

/** Every part of a list with commas. */
template <typename Check>
std::string checkList(const std::string& word, const Check& check) {
    std::istringstream parts(word);
    std::string wrong;
    bool any = false;
    for (std::string part; wrong.empty() && std::getline(parts, part, ',');) {
        any = true;
        wrong = check(part);
    }
    return any ? wrong : "an empty list";
}

std::string checkPermission(const std::string& word) {
    if (permissionNames().contains(word) || word.find('.') != std::string::npos) return "";
    return "'" + word + "' is no permission: " + joined(keysOf(permissionNames())) +
           ", or a full name with dots";
}

/** Statuses that are errors. */
std::vector<std::string> errors() {
    std::vector<std::string> names = keysOf(statusNames());
    std::erase(names, "ok");
    return names;
}

std::string checkError(const std::string& word) {
    if (checkChoice(errors(), word).empty()) return "";
    if (checkInt(word).empty()) return checkNumber(word, FaultPlan::kLowestException, -1);
    return "'" + word + "' is no error: " + joined(errors()) + ", or a number";
}

std::string checkSeconds(const std::string& word) {
    constexpr double kMost = 3600;
    const auto value = secondsOf(word);
    if (!value) return "'" + word + "' is no number of seconds";
    return *value <= kMost ? "" : word + " is out of range: 0 to 3600 seconds";
}

std::string checkPid(const std::string& word, const Scope& scope) {
    return word.starts_with("pid:") ? checkInt(word.substr(4)) : checkKnownApp(word, scope);
}

std::string checkTarget(const std::string& word, const Scope& scope) {
    if (systemProcessOf(word) || scope.runs(word)) return "";
    return "'" + word + "' is neither an app that runs nor a system process: " +
           joined(keysOf(systemProcessNames()));
}

std::string checkSystem(const std::string& word) {
    if (systemProcessOf(word)) return "";
    return "'" + word + "' is no system process: " + joined(keysOf(systemProcessNames()));
}

std::vector<std::string> services() {
    std::vector<std::string> names;
    for (const auto& [name, process] : systemProcessNames()) {
        if (isService(process)) names.push_back(name);
    }
    return names;
}

std::vector<std::string> runningApps(const Scope& scope) {
    std::vector<std::string> names;
    for (const auto& [name, runs] : scope.apps()) {
        if (runs) names.push_back(name);
    }
    return names;
}

std::vector<std::string> knownApps(const Scope& scope) {
    return keysOf(scope.apps());
}

std::vector<std::string> with(std::vector<std::string> names,
                              const std::vector<std::string>& more) {
    names.insert(names.end(), more.begin(), more.end());
    return names;
}

const std::vector<std::string> kHeard{"head", "input", "top", "immersive"};

/** What listeners, the helper and telemetry can have heard; packages may follow the last two. */
std::string checkHeard(const std::string& word) {
    const std::string kind = word.substr(0, word.find(':'));
    if ((kind == "top" || kind == "immersive") && checkChoice(kHeard, kind).empty()) return "";
    return checkChoice(kHeard, word);
}

struct Row {
    std::string text;
    std::function<std::string(const std::string& word, const Scope& scope)> check;
    std::function<std::vector<std::string>(const Scope& scope)> choices = [](const Scope&) {
        return std::vector<std::string>();
    };
};
using Rows = std::map<std::string, Row>;
using W = const std::string&;
using S = const Scope&;

/** Anything but emptiness. */
Row textRow(const char* text) {
    return {text, [](W word, S) { return word.empty() ? "an empty word" : ""; }};
}

Row numberRow(const char* text, long long least, long long most) {
    return {text, [=](W word, S) { return checkNumber(word, least, most); }};
}

Row namedNumberRow(const char* text, const Names& names) {
    return {text, [&names, text](W word, S) { return checkNamedNumber(names, word, text); },
            [&names](S) { return keysOf(names); }};
}

Row choiceRow(const std::vector<std::string>& choices) {
    return {joined(choices), [choices](W word, S) { return checkChoice(choices, word); },
            [choices](S) { return choices; }};
}

Rows rowsOfNames() {
    return {
            {"NAME", {"a new app's name", checkNewName}},
            {"APP", {"an app that runs", checkApp, runningApps}},
            {"KNOWN", {"an app that was started", checkKnownApp, knownApps}},
            {"OWNER",
             {"an app or none",
              [](W word, S scope) { return word == "none" ? "" : checkKnownApp(word, scope); },
              [](S scope) { return with(knownApps(scope), {"none"}); }}},
            {"WHOSE", {"an app or pid:NUMBER", checkPid, knownApps}},
            {"TARGET",
             {"a system process or an app that runs", checkTarget,
              [](S scope) { return with(keysOf(systemProcessNames()), runningApps(scope)); }}},
            {"SYSTEM",
             {"a system process", [](W word, S) { return checkSystem(word); },
              [](S) { return keysOf(systemProcessNames()); }}},
            {"SERVICE",
             {"a platform service", [](W word, S) { return checkChoice(services(), word); },
              [](S) { return services(); }}},
            {"PACKAGE",
             {"a package", [](W word, S) { return checkPlain(word, "package"); },
              [](S scope) {
                  return std::vector<std::string>(scope.packages().begin(), scope.packages().end());
              }}},
            {"PACKAGES",
             {"packages with commas between",
              [](W word, S) {
                  return checkList(word, [](W part) { return checkPlain(part, "package"); });
              }}},
            {"PROCESS",
             {"a process name", [](W word, S) { return checkPlain(word, "process name"); }}},
            {"PERMISSION",
             {"a permission", [](W word, S) { return checkPermission(word); },
              [](S) { return keysOf(permissionNames()); }}},
            {"PERMISSIONS",
             {"permissions with commas between",
              [](W word, S) { return checkList(word, checkPermission); },
              [](S) { return keysOf(permissionNames()); }}},
    };
}

Rows rowsOfNumbers() {
    constexpr long long kMostInt = std::numeric_limits<int>::max();
    return {
            {"UID", numberRow("a user id", 0, kMostInt)},
            {"DISPLAY", numberRow("a display's number", -kMostInt - 1, kMostInt)},
            {"COUNT", numberRow("a count", 1, 1000000)},
            {"TIMES", numberRow("how many times", 0, 1000000)},
            {"SEED", numberRow("a seed", 0, kMostInt)},
            {"MILLISECONDS", numberRow("milliseconds", 1, 60000)},
            {"SECONDS", {"seconds", [](W word, S) { return checkSeconds(word); }}},
            {"STATUS",
             {"a status",
              [](W word, S) {
                  return word == "any" ? "" : checkNamedNumber(statusNames(), word, "status");
              },
              [](S) { return with(keysOf(statusNames()), {"any"}); }}},
            {"ERROR",
             {"an error", [](W word, S) { return checkError(word); }, [](S) { return errors(); }}},
            {"TYPE", namedNumberRow("kind of focus", focusTypeNames())},
            {"STATE", namedNumberRow("XR session state", sessionStateNames())},
            {"CHANGE", namedNumberRow("change of a display", displayEventNames())},
    };
}

Rows rowsOfWords() {
    return {
            {"SWITCH", choiceRow({"on", "off"})},
            {"YESNO", choiceRow({"yes", "no"})},
            {"FOCUS", choiceRow({"both", "head", "input", "none", "gone"})},
            {"REPLAY", choiceRow({"drop", "double", "reorder"})},
            {"PROPERTY", textRow("a property's name")},
            {"METHOD", textRow("a method's name, or all")},
            {"HEARD",
             {"head, input, top or immersive", [](W word, S) { return checkHeard(word); },
              [](S) { return kHeard; }}},
            {"PATH",
             {"a path into the dump",
              [](W word, S scope) {
                  return word.empty() ? "an empty word" : problemOfPath(word, scope);
              }}},
            {"VALUE", {"a value", problemOfValue}},
            {"FILE", textRow("a file\'s name")},
            {"TEXT", {"a text", [](W, S) { return ""; }}},
            {"WORD", textRow("a word")},
    };
}

const Rows& rows() {
    static const Rows kRows = [] {
        Rows all = rowsOfNames();
        all.merge(rowsOfNumbers());
        all.merge(rowsOfWords());
        return all;
    }();
    return kRows;
}

}  // namespace

std::string checkKind(const std::string& kind, const std::string& word, const Scope& scope) {
    return rows().at(kind).check(word, scope);
}

std::string expectationOf(const Pattern::Slot& slot) {
    if (slot.kind.empty()) return "'" + slot.name + "'";
    return slot.name + (slot.isOption ? "= (" : " (") + rows().at(slot.kind).text + ")";
}

std::vector<std::string> choicesOf(const std::string& kind, const Scope& scope) {
    const auto found = rows().find(kind);
    return found == rows().end() ? std::vector<std::string>() : found->second.choices(scope);
}

}  // namespace sim::scenario

// SPDX-License-Identifier: Apache-2.0
// Paths into the daemon's JSON dump.
#include "scenario/DumpPath.h"

#include <json/reader.h>

#include <algorithm>
#include <charconv>
#include <memory>
#include <regex>
#include <sstream>

#include "session/SessionError.h"

namespace sim::scenario {
namespace {

using Values = std::vector<Json::Value>;

/** An app, by one of its numbers. */
const std::regex& reference() {
    static const std::regex kReference("\\b(pid|uid):([A-Za-z0-9_.:/-]+)");
    return kReference;
}

/** "a[0][*].b" as "a", "[0]", "[*]", "b"; `wrong`: why it is no path. */
std::vector<std::string> stepsOf(const std::string& path, std::string* wrong) {
    std::vector<std::string> steps;
    size_t position = 0;
    while (position < path.size()) {
        if (path[position] == '[') {
            const size_t end = path.find(']', position);
            if (end == std::string::npos) {
                *wrong = "no ']' ends this '['";
                return {};
            }
            steps.push_back(path.substr(position, end + 1 - position));
            position = end + 1;
        } else {
            if (path[position] == '.') ++position;
            const size_t end = std::min(path.find_first_of(".[", position), path.size());
            if (end == position) {
                *wrong = "an empty name in the path";
                return {};
            }
            steps.push_back(path.substr(position, end - position));
            position = end;
        }
    }
    return steps;
}

void elementsOf(const Headset& headset, const Json::Value& from, const std::string& which,
                Values* out) {
    if (!from.isArray()) return;
    const Json::Value pid = which.starts_with("pid:") ? valueIn(headset, which) : Json::Value();
    int index = -1;
    std::from_chars(which.data(), which.data() + which.size(), index);
    for (Json::ArrayIndex at = 0; at < from.size(); ++at) {
        const Json::Value& element = from[at];
        const bool isNamed = which.starts_with("pid:") &&
                             (element == pid || (element.isObject() && element["pid"] == pid));
        if (which == "*" || isNamed || static_cast<int>(at) == index) out->push_back(element);
    }
}

/** The first pid:APP in it whose app was never started, as a complaint. */
std::string strangerIn(const std::string& word, const Scope& scope) {
    for (std::sregex_iterator match(word.begin(), word.end(), reference()), end; match != end;
         ++match) {
        const std::string name = (*match)[2];
        if ((*match)[1] == "pid" && !scope.knows(name)) return "no app '" + name + "' was started";
    }
    return "";
}

}  // namespace

std::string problemOfPath(const std::string& path, const Scope& scope) {
    std::string wrong;
    for (const std::string& step : stepsOf(path, &wrong)) {
        if (step.front() != '[') continue;
        const std::string which = step.substr(1, step.size() - 2);
        const bool isNumber = !which.empty() && which.size() < 10 &&
                              which.find_first_not_of("0123456789") == std::string::npos;
        if (which.starts_with("pid:")) {
            wrong = strangerIn(which, scope);
        } else if (which != "*" && !isNumber) {
            wrong = "in brackets: a number, * or pid:APP";
        }
        if (!wrong.empty()) break;
    }
    return wrong;
}

std::string problemOfValue(const std::string& word, const Scope& scope) {
    return strangerIn(word, scope);
}

bool parseJson(const std::string& text, Json::Value* out) {
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    try {
        return reader->parse(text.data(), text.data() + text.size(), out, /*errs=*/nullptr);
    } catch (const Json::Exception&) {
        return false;  // too deep
    }
}

std::string withNumbers(const Headset& headset, const std::string& word) {
    std::string text;
    auto rest = word.cbegin();
    for (std::sregex_iterator match(word.begin(), word.end(), reference()), end; match != end;
         ++match) {
        const std::string name = (*match)[2];
        const int number = (*match)[1] == "pid" ? headset.lastPidOf(name) : headset.uidOf(name);
        text.append(rest, (*match)[0].first) += std::to_string(number);
        rest = (*match)[0].second;
    }
    return text.append(rest, word.cend());
}

Json::Value valueIn(const Headset& headset, const std::string& word) {
    const std::string text = withNumbers(headset, word);
    Json::Value value;
    return parseJson(text, &value) ? value : Json::Value(word);
}

Values valuesAt(const Headset& headset, const Json::Value& root, const std::string& path) {
    Values values{root};
    std::string wrong;
    const std::vector<std::string> steps = stepsOf(path, &wrong);
    if (!wrong.empty()) throw SessionError(path + ": " + wrong);
    for (const std::string& step : steps) {
        Values next;
        for (const Json::Value& value : values) {
            if (step.front() == '[') {
                elementsOf(headset, value, step.substr(1, step.size() - 2), &next);
            } else if (step == "#") {
                next.emplace_back(static_cast<Json::Int>(value.size()));  // as numbers are parsed
            } else if (value.isObject() && value.isMember(step)) {
                next.push_back(value[step]);
            }
        }
        values = std::move(next);
    }
    return values;
}

}  // namespace sim::scenario

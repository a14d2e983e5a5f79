// SPDX-License-Identifier: Apache-2.0
// A disagreement between daemon and oracle, for people and as a line of a scenario.
#include "Expectation.h"

#include <algorithm>
#include <set>

#include "scenario/Words.h"

namespace oracle {
namespace {

std::string lineOf(const Json::Value& value) {
    return sim::toLine(value);
}

bool isOfApp(const sim::Headset& headset, int pid) {
    const std::vector<std::string>& cast = headset.cast();
    return std::find(cast.begin(), cast.end(), headset.nameOf(pid)) != cast.end();
}

/** Whether one of the answers holds this row and the other does not. */
bool holds(const Json::Value& rows, const Json::Value& row) {
    return std::find(rows.begin(), rows.end(), row) != rows.end();
}

/** The first pid about which the two disagree. */
int pidInQuestion(const Disagreement& found) {
    for (const auto& [ours, theirs] : {std::pair(found.due, found.got), {found.got, found.due}}) {
        for (const Json::Value& row : ours) {
            if (!holds(theirs, row)) return row["pid"].asInt();
        }
    }
    return found.due.empty() ? 0 : found.due[0]["pid"].asInt();
}

std::string focusOf(Oracle oracle, int pid) {
    const auto head = oracle.clientFocusStatus(kHeadTracking, {pid});
    const auto input = oracle.clientFocusStatus(kInputTracking, {pid});
    if (head.empty()) return "gone";
    if (head[0].hasFocus && input[0].hasFocus) return "both";
    if (head[0].hasFocus) return "head";
    return input[0].hasFocus ? "input" : "none";
}

/** The apps that render, by name; nothing when some process has no app of its name. */
std::string foregroundOf(const Json::Value& names, const sim::Headset& headset) {
    std::string text;
    std::set<std::string> used;
    for (const Json::Value& process : names) {
        const std::vector<std::string>& cast = headset.cast();
        const auto app = std::find_if(cast.begin(), cast.end(), [&](const std::string& name) {
            return headset.specOf(name).process == process.asString() && !used.contains(name);
        });
        if (app == cast.end()) return "";
        used.insert(*app);
        text += " " + *app;
    }
    return text.empty() ? " none" : text;
}

/** Where two dumps differ first, and what is due there. */
struct Difference {
    std::string path;
    Json::Value due;
};

Difference differenceOf(const std::string& path, const Json::Value& due, const Json::Value& got) {
    if (due.isObject() && got.isObject()) {
        for (const std::string& key : due.getMemberNames()) {
            if (due[key] != got[key])
                return differenceOf(path.empty() ? key : path + "." + key, due[key], got[key]);
        }
    }
    const bool ofObjects = due.isArray() && got.isArray() && !due.empty() && due[0].isObject();
    if (ofObjects && due.size() == got.size()) {
        for (Json::ArrayIndex at = 0; at < due.size(); ++at) {
            if (due[at] != got[at])
                return differenceOf(path + "[" + std::to_string(at) + "]", due[at], got[at]);
        }
    }
    if (due.isArray() && got.isArray() && due.size() != got.size())
        return {path + ".#", due.size()};
    return {path, due};
}

/** Numbers that are pids of apps are written as those. */
std::string valueText(const Json::Value& value, const std::string& path,
                      const sim::Headset& headset) {
    const auto ends = [&](const std::string& end) { return path.ends_with(end); };
    const bool ofPids = ends("pid") || ends("windowFocus") || ends("foregroundActivities") ||
                        ends("foregroundPanelApps") || ends("renderingClients") ||
                        ends("listeners");
    const auto one = [&](const Json::Value& each) {
        if (ofPids && each.isInt() && isOfApp(headset, each.asInt()))
            return "pid:" + headset.nameOf(each.asInt());
        return lineOf(each);
    };
    if (!value.isArray()) return one(value);
    std::string text;
    for (const Json::Value& each : value)
        text += (text.empty() ? "" : ",") + one(each);
    return "[" + text + "]";
}

std::string immersiveOf(const Disagreement& found, const sim::Headset& headset) {
    const bool sameApp = found.due["pid"] == found.got["pid"];
    if (!found.due.isNull() && sameApp)
        return "expect dump focusPolicy.immersiveApp " +
               sim::scenario::quoted(lineOf(found.due["package"]));
    return "expect immersive " +
           (found.due.isNull() ? "none" : headset.nameOf(found.due["pid"].asInt()));
}

/** The first pid that is missed by one of the two only, looked for in the log of a dump. */
std::string missedOf(const Disagreement& found, const sim::Headset& headset) {
    for (const auto& [ours, theirs] : {std::pair(found.due, found.got), {found.got, found.due}}) {
        for (const Json::Value& pid : ours) {
            if (holds(theirs, pid)) continue;
            const std::string name =
                    (isOfApp(headset, pid.asInt()) ? "pid:" + headset.nameOf(pid.asInt())
                                                   : pid.asString());
            return std::string("dump json\nexpect ") + (ours == found.due ? "" : "no ") +
                   "log \"Failed to read UID for PID " + name + ",\"";
        }
    }
    return "";
}

}  // namespace

std::string textOf(const Disagreement& found, const sim::Headset& headset) {
    std::string text = lineOf(found.request) + "\n  due  " + lineOf(found.due) + "\n  got  " +
                       lineOf(found.got) + "\n  pids";
    for (const std::string& name : headset.cast())
        text += " " + std::to_string(headset.lastPidOf(name)) + ":" + name;
    return text;
}

std::string expectationFor(const Disagreement& found, const sim::Headset& headset) {
    if (found.question == "getClientFocusStatus") {
        const int pid = pidInQuestion(found);
        return "expect focus " + headset.nameOf(pid) + " " + focusOf(found.oracle, pid);
    }
    if (found.question == "getImmersiveApp") return immersiveOf(found, headset);
    if (found.question == "getTopActivity") {
        const std::string package = found.due.asString();
        return "expect top " + (package.empty() ? "none" : package);
    }
    if (found.question == "getForegroundApps") {
        const std::string apps = foregroundOf(found.due, headset);
        if (!apps.empty()) return "expect foreground" + apps;
        return "expect dump focusPolicy.renderingClients.# " + std::to_string(found.due.size());
    }
    if (found.question == "notice") return "";
    if (found.question == "missed") return missedOf(found, headset);
    const Difference difference = differenceOf("", found.due, found.got);
    return "expect dump " + difference.path + " " +
           sim::scenario::quoted(valueText(difference.due, difference.path, headset));
}

}  // namespace oracle

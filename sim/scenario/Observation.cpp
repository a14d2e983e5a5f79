// SPDX-License-Identifier: Apache-2.0
// What the daemon answers the observer.
#include "scenario/Observation.h"

#include "scenario/Vocabulary.h"

namespace sim::scenario {
namespace {

/** What a process has of a kind of focus: "yes", "no", or "gone". */
std::string verdict(Player& player, const std::string& app, const char* type) {
    const int pid = player.headset().lastPidOf(app);
    Json::Value request = operation("getClientFocusStatus");
    request["type"] = numberOf(focusTypeNames(), type);
    request["pids"] = Json::arrayValue;
    request["pids"].append(pid);
    const Json::Value answer = player.observe(request);
    if (answer["exception"] != 0) return refusal(answer);
    for (const Json::Value& row : answer["statuses"]) {
        if (row["pid"] == pid) return row["hasFocus"].asBool() ? "yes" : "no";
    }
    return "gone";
}

}  // namespace

std::string refusal(const Json::Value& answer) {
    return "(" + wordFor(statusNames(), answer["exception"].asInt()) + ")";
}

std::string focusOf(Player& player, const std::string& app) {
    const std::string head = verdict(player, app, "head");
    const std::string input = verdict(player, app, "input");
    if (head == "yes" && input == "yes") return "both";
    if (head == "yes" && input == "no") return "head";
    if (head == "no" && input == "yes") return "input";
    if (head == "no" && input == "no") return "none";
    return head == input ? head : "head " + head + ", input " + input;
}

std::string immersiveApp(Player& player) {
    const Json::Value answer = player.observe(operation("getImmersiveApp"));
    if (answer["exception"] == numberOf(statusNames(), "null-pointer")) return "none";
    if (answer["exception"] != 0) return refusal(answer);
    return player.headset().nameOf(answer["app"]["pid"].asInt());
}

std::string topActivity(Player& player) {
    const Json::Value answer = player.observe(operation("getTopActivity"));
    if (answer["exception"] != 0) return refusal(answer);
    const std::string package = answer["package"].asString();
    return package.empty() ? "none" : package;
}

}  // namespace sim::scenario

// SPDX-License-Identifier: Apache-2.0
// Expectations: what the daemon answers now.
#include <algorithm>

#include "scenario/DumpPath.h"
#include "scenario/Form.h"
#include "scenario/Observation.h"
#include "scenario/Player.h"
#include "scenario/Vocabulary.h"
#include "session/SessionError.h"

namespace sim::scenario {
namespace {

std::string joinedOrNone(std::vector<std::string> words) {
    std::sort(words.begin(), words.end());
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : " ") + word;
    return text.empty() ? "none" : text;
}

Outcome focus(Player& player, const Arguments& arguments) {
    const std::string name = arguments.text("KNOWN");
    const std::string due = arguments.text("FOCUS");
    const std::string got = focusOf(player, name);
    return {got == due, "focus of " + name + ": " + due, got};
}

Outcome immersive(Player& player, const Arguments& arguments) {
    const std::string due = arguments.text("OWNER");
    const std::string got = immersiveApp(player);
    return {got == due, "immersive app: " + due, got};
}

Outcome top(Player& player, const Arguments& arguments) {
    std::string due = arguments.text("PACKAGE");
    if (player.headset().wasStarted(due)) {
        due = packageOfProcess(player.headset().specOf(due).process);
    }
    const std::string got = topActivity(player);
    return {got == due, "top activity: " + due, got};
}

Outcome foreground(Player& player, const Arguments& arguments) {
    std::vector<std::string> due;
    for (const std::string& name : arguments.all("OWNER")) {
        if (name != "none") due.push_back(player.headset().processNameOf(name));
    }
    const Json::Value answer = player.observe(operation("getForegroundApps"));
    std::vector<std::string> names;
    for (const Json::Value& name : answer["names"])
        names.push_back(name.asString());
    const std::string wanted = joinedOrNone(due);
    const std::string got = answer["exception"] == 0 ? joinedOrNone(names) : refusal(answer);
    return {got == wanted, "foreground apps: " + wanted, got};
}

Outcome dump(Player& player, const Arguments& arguments) {
    const std::string path = arguments.text("PATH");
    const Json::Value answer = player.observe(operation("dump"));
    Json::Value root;
    if (answer["exception"] != 0) {
        return {false, path + ": " + arguments.text("VALUE"), refusal(answer)};
    }
    if (!parseJson(answer["dump"].asString(), &root)) {
        return {false, path + ": " + arguments.text("VALUE"),
                "no dump: " + answer["dump"].asString()};
    }
    const Json::Value due = valueIn(player.headset(), arguments.text("VALUE"));
    const std::vector<Json::Value> found = valuesAt(player.headset(), root, path);
    std::string got;
    for (const Json::Value& value : found)
        got += (got.empty() ? "" : ", ") + toLine(value);
    const bool holds = std::find(found.begin(), found.end(), due) != found.end();
    return {holds, path + ": " + toLine(due), found.empty() ? "nothing there" : got};
}

std::string targetIn(const Arguments& arguments) {
    const std::string word = arguments.text("TARGET") + arguments.text("SERVICE");
    return systemProcessOf(word).value_or(word);
}

Outcome running(Player& player, const Arguments& arguments) {
    const std::string target = targetIn(arguments);
    const bool runs = player.headset().isRunning(target);
    return {runs, target + " runs", runs ? "it runs" : "it has ended"};
}

Outcome ended(Player& player, const Arguments& arguments) {
    const Outcome runs = running(player, arguments);
    return {!runs.holds, targetIn(arguments) + " has ended", runs.got};
}

Outcome connected(Player& player, const Arguments& arguments) {
    const std::string service = targetIn(arguments);
    const bool is = player.headset().isDaemonConnected(service);
    return {is, "the daemon is connected to " + service, is ? "it is" : "it is not"};
}

}  // namespace

std::vector<Form> stateExpectations() {
    return {
            expectation("focus KNOWN FOCUS",
                        "which focus an app has: exactly this (gone: the process is no more)",
                        "expect focus game both", focus),
            expectation("immersive OWNER", "the immersive app, or none", "expect immersive game",
                        immersive),
            expectation("top PACKAGE", "the top activity: a package, an app's package, or none",
                        "expect top com.orbit.racer", top),
            expectation("foreground OWNER...", "the apps that render, in any order, or none",
                        "expect foreground game", foreground),
            expectation("dump PATH VALUE",
                        "a value in the JSON dump; [*] is some element, pid:APP and uid:APP are "
                        "numbers",
                        "expect dump focusPolicy.renderingClients[0] pid:game", dump),
            expectation("running TARGET", "a process runs", "expect running daemon", running),
            expectation("ended TARGET", "a process has ended", "expect ended activity", ended),
            expectation("connected SERVICE",
                        "the daemon has found a service (on a binder device without root's debug "
                        "files: it has called it)",
                        "expect connected activity", connected),
    };
}

}  // namespace sim::scenario

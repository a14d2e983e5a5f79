// SPDX-License-Identifier: Apache-2.0
// Commands: what apps call the focus daemon for.
#include "scenario/Form.h"
#include "scenario/Player.h"
#include "scenario/Vocabulary.h"

namespace sim::scenario {
namespace {

int typeIn(const Arguments& arguments) {
    return numberOf(focusTypeNames(), arguments.text("TYPE"));
}

void report(Player& player, const Arguments& arguments) {
    const std::string app = arguments.text("APP");
    const std::string whose = arguments.has("for") ? arguments.text("for") : app;
    Json::Value request = operation("setAppState");
    request["pid"] = player.headset().lastPidOf(whose);
    request["state"] = numberOf(sessionStateNames(), arguments.text("STATE"));
    player.checkStatus(app + " reports its XR session " + arguments.text("STATE") +
                               (whose == app ? "" : " for " + whose),
                       player.call(app, request));
}

void listenFor(Player& player, const Arguments& arguments, const char* op, const char* verb) {
    const std::string app = arguments.text("APP");
    Json::Value request = operation(std::string(op) + (arguments.has("TYPE") ? "Focus" : "Top"));
    if (arguments.has("TYPE")) request["type"] = typeIn(arguments);
    player.listensFrom(app);
    player.checkStatus(
            app + verb + (arguments.has("TYPE") ? arguments.text("TYPE") + " focus" : "top"),
            player.call(app, request));
}

void listen(Player& player, const Arguments& arguments) {
    listenFor(player, arguments, "listen", " registers a listener for ");
}

void unlisten(Player& player, const Arguments& arguments) {
    listenFor(player, arguments, "unlisten", " unregisters its listener for ");
}

void access(Player& player, const Arguments& arguments, const char* op, const char* verb) {
    Json::Value request = operation(op);
    request["display"] = arguments.number("DISPLAY");
    player.checkStatus(arguments.text("APP") + verb + "tracking access for display " +
                               arguments.text("DISPLAY"),
                       player.call(arguments.text("APP"), request));
}

void grant(Player& player, const Arguments& arguments) {
    access(player, arguments, "grant", " grants ");
}

void revoke(Player& player, const Arguments& arguments) {
    access(player, arguments, "revoke", " revokes ");
}

void askFocus(Player& player, const Arguments& arguments) {
    Json::Value request = operation("getClientFocusStatus");
    request["type"] = typeIn(arguments);
    request["pids"] = Json::arrayValue;
    std::vector<std::string> about = arguments.all("KNOWN");
    if (about.empty()) about.push_back(arguments.text("APP"));
    for (const std::string& name : about)
        request["pids"].append(player.headset().lastPidOf(name));
    const Json::Value answer = player.call(arguments.text("APP"), request);
    std::string text;
    for (const Json::Value& row : answer["statuses"]) {
        text += (text.empty() ? "" : ", ") + player.headset().nameOf(row["pid"].asInt()) +
                (row["hasFocus"].asBool() ? " yes" : " no");
    }
    player.reporter().answer(arguments.text("TYPE") + " focus: " + (text.empty() ? "-" : text),
                             answer);
    player.checkStatus(arguments.text("APP") + " asks for " + arguments.text("TYPE") + " focus",
                       answer);
}

/** A question without arguments, whose answer is a member of what comes back. */
void ask(Player& player, const Arguments& arguments, const char* op, const char* member) {
    const Json::Value answer = player.call(arguments.text("APP"), operation(op));
    player.reporter().answer(toLine(answer[member]), answer);
    const bool isNone = answer["exception"] == numberOf(statusNames(), "null-pointer");
    if (isNone && !arguments.has("status")) return;  // no immersive app is an answer, too
    player.checkStatus(arguments.text("APP") + " calls " + op, answer);
}

}  // namespace

std::vector<Form> callForms() {
    return {
            action("report APP STATE [for=KNOWN] [status=STATUS]",
                   "an app reports the state of its XR session (or of another's)",
                   "report game visible", report),
            action("listen APP top [status=STATUS]",
                   "register a listener for the top activity and the immersive app",
                   "listen shell top", listen),
            action("listen APP TYPE [status=STATUS]", "register a listener for a kind of focus",
                   "listen shell head", listen),
            action("unlisten APP top [status=STATUS]", "unregister it", "unlisten shell top",
                   unlisten),
            action("unlisten APP TYPE [status=STATUS]", "unregister it", "unlisten shell head",
                   unlisten),
            action("grant APP DISPLAY [status=STATUS]",
                   "grant a display tracking access; the app must hold grant-tracking",
                   "grant shell 2", grant),
            action("revoke APP DISPLAY [status=STATUS]", "take it back", "revoke shell 2", revoke),
            action("ask APP focus TYPE [KNOWN...] [status=STATUS]",
                   "an app asks who has a kind of focus (without names: about itself)",
                   "ask shell focus head game", askFocus),
            action("ask APP immersive [status=STATUS]", "an app asks for the immersive app",
                   "ask shell immersive",
                   [](Player& player, const Arguments& arguments) {
                       ask(player, arguments, "getImmersiveApp", "app");
                   }),
            action("ask APP top [status=STATUS]", "an app asks for the top activity",
                   "ask game top status=security",
                   [](Player& player, const Arguments& arguments) {
                       ask(player, arguments, "getTopActivity", "package");
                   }),
            action("ask APP foreground [status=STATUS]", "an app asks for the foreground apps",
                   "ask shell foreground",
                   [](Player& player, const Arguments& arguments) {
                       ask(player, arguments, "getForegroundApps", "names");
                   }),
    };
}

}  // namespace sim::scenario

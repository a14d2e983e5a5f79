// SPDX-License-Identifier: Apache-2.0
// Commands: order, chance, and what is shown.
#include "scenario/DumpPath.h"
#include "scenario/Form.h"
#include "scenario/Observation.h"
#include "scenario/Player.h"
#include "scenario/RandomForm.h"
#include "scenario/Vocabulary.h"
#include "session/SessionError.h"

namespace sim::scenario {
namespace {

void dump(Player& player, const std::vector<std::string>& arguments) {
    const Stack::ToolRun run = player.headset().dump(arguments);
    Json::Value value(Json::objectValue);
    value["status"] = run.status;
    // The dump for programs as what it is, so that they need not read it a second time.
    if (arguments.empty() || !parseJson(run.output, &value["dump"])) {
        value["output"] = run.output;
    }
    player.reporter().answer(run.output, value);
    if (run.status != 0) throw SessionError("dumpsys ended with " + std::to_string(run.status));
}

std::string padded(const std::string& text, size_t width) {
    return text + std::string(width > text.size() ? width - text.size() : 0, ' ');
}

/** All apps that run, and what the daemon answers about each. */
void show(Player& player, const Arguments&) {
    constexpr size_t kName = 24;
    constexpr size_t kNumber = 9;
    Headset& headset = player.headset();
    std::string text = padded("app", kName) + padded("pid", kNumber) + padded("uid", kNumber) +
                       padded("focus", kNumber) + "process\n";
    Json::Value value(Json::objectValue);
    for (const std::string& name : headset.cast()) {
        if (name == kObserver || !headset.appRuns(name)) continue;
        Json::Value& row = value["apps"][name];
        row["pid"] = headset.lastPidOf(name);
        row["uid"] = headset.uidOf(name);
        row["process"] = headset.processNameOf(name);
        row["focus"] = focusOf(player, name);
        text += padded(name, kName) + padded(row["pid"].asString(), kNumber) +
                padded(row["uid"].asString(), kNumber) + padded(row["focus"].asString(), kNumber) +
                row["process"].asString() + "\n";
    }
    value["immersive"] = immersiveApp(player);
    value["top"] = topActivity(player);
    text += "immersive " + value["immersive"].asString() + ", top " + value["top"].asString();
    player.reporter().answer(text, value);
}

/** The reader of scenarios turns it into a block. */
void repeat(Player&, const Arguments&) {}

}  // namespace

std::vector<Form> orderForms() {
    return {
            action("title TEXT", "a headline", "title \"The shell returns\"",
                   [](Player& player, const Arguments& arguments) {
                       player.reporter().title(arguments.text("TEXT"));
                   }),
            action("repeat COUNT", "do the commands up to `end` so many times", "repeat 10",
                   repeat),
            action("random SEED COUNT",
                   "so many random but legal commands, the same ones for the same seed",
                   "random 7 100", playRandom),
            action("settle", "wait until nothing is in flight any more", "settle",
                   [](Player& player, const Arguments&) { player.settle(); }),
            action("settle SWITCH", "whether that is done after each command (it is)", "settle off",
                   [](Player& player, const Arguments& arguments) {
                       player.setSettling(arguments.text("SWITCH") == "on");
                   }),
            action("show", "show the apps that run, and what the daemon answers about each", "show",
                   show),
            action("dump", "show the daemon's dump for people", "dump",
                   [](Player& player, const Arguments&) { dump(player, {}); }),
            action("dump json", "show its dump for programs", "dump json",
                   [](Player& player, const Arguments&) { dump(player, {"json"}); }),
    };
}

}  // namespace sim::scenario

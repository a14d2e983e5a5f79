// SPDX-License-Identifier: Apache-2.0
// Expectations: what the daemon has told, reported and logged since they were looked at last.
#include "scenario/DumpPath.h"
#include "scenario/Form.h"
#include "scenario/Player.h"
#include "scenario/Vocabulary.h"
#include "session/SessionError.h"

namespace sim::scenario {
namespace {

std::string listed(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : " ") + word;
    return text.empty() ? "nothing" : text;
}

Outcome heardBy(Player& player, const std::string& who, const Arguments& arguments) {
    const std::vector<std::string> due = arguments.all("HEARD");
    const std::string got = listed(player.ears().fresh(who));
    const bool exactly = arguments.text("exact") == "yes";
    return {player.ears().passIfHeard(who, due, exactly), who + ": " + listed(due), got};
}

Outcome nothingHeardBy(Player& player, const std::string& who, const Arguments& arguments) {
    const std::vector<std::string> unwanted = arguments.all("HEARD");
    const std::vector<std::string> fresh = player.ears().fresh(who);
    bool holds = unwanted.empty() ? fresh.empty() : true;
    for (const std::string& heard : fresh) {
        for (const std::string& word : unwanted)
            holds = holds && !Ears::fits(heard, word);
    }
    return {holds, who + " hears " + (unwanted.empty() ? "nothing" : "no " + listed(unwanted)),
            listed(fresh)};
}

Outcome log(Player& player, const Arguments& arguments) {
    const std::string due = withNumbers(player.headset(), arguments.text("TEXT"));
    const std::vector<std::string> lines = player.freshLog();
    const int wanted = arguments.number("count", 1);
    int found = 0;
    size_t passed = 0;
    for (size_t index = 0; index < lines.size() && found < wanted; ++index) {
        if (lines[index].find(due) == std::string::npos) continue;
        ++found;
        passed = index + 1;
    }
    if (found == wanted) player.passLog(passed);
    const std::string last = lines.empty() ? "" : ", the last: " + lines.back();
    return {found == wanted, "log: " + due + " x" + std::to_string(wanted),
            std::to_string(found) + " in " + std::to_string(lines.size()) + " new lines" + last};
}

Outcome noLog(Player& player, const Arguments& arguments) {
    const std::string unwanted = withNumbers(player.headset(), arguments.text("TEXT"));
    for (const std::string& line : player.freshLog()) {
        if (line.find(unwanted) == std::string::npos) continue;
        return {false, "no log line with " + unwanted, line};
    }
    return {true, "no log line with " + unwanted, "none"};
}

}  // namespace

std::vector<Form> eventExpectations() {
    return {
            expectation("heard KNOWN HEARD... [exact=YESNO]",
                        "its listeners were called so: head, input, top:PACKAGE:IMMERSIVE (or the "
                        "beginning of that), in this order for each kind; exact: and nothing else "
                        "of these kinds",
                        "expect heard shell head top:com.orbit.racer",
                        [](Player& player, const Arguments& arguments) {
                            return heardBy(player, arguments.text("KNOWN"), arguments);
                        }),
            expectation("helper HEARD... [exact=YESNO]",
                        "the focus helper was told so: top:PACKAGE, immersive:PACKAGE",
                        "expect helper top:com.orbit.racer immersive:com.orbit.racer",
                        [](Player& player, const Arguments& arguments) {
                            return heardBy(player, Ears::kHelper, arguments);
                        }),
            expectation("telemetry HEARD... [exact=YESNO]",
                        "these events were reported: top:PACKAGE:IMMERSIVE",
                        "expect telemetry top:com.orbit.racer:com.orbit.racer",
                        [](Player& player, const Arguments& arguments) {
                            player.checkTelemetry();
                            return heardBy(player, Ears::kTelemetry, arguments);
                        }),
            expectation("log TEXT [count=COUNT]",
                        "the daemon has logged lines with this text; pid:APP in it is a number",
                        "expect log \"display removed\"", log),
            expectation("no heard KNOWN [HEARD...]",
                        "its listeners were not called (or not so) since the last look",
                        "expect no heard shell input",
                        [](Player& player, const Arguments& arguments) {
                            const std::string who = arguments.text("KNOWN");
                            if (!player.hasListened(who)) {
                                throw SessionError(who + " has no listener: it cannot hear");
                            }
                            return nothingHeardBy(player, who, arguments);
                        }),
            expectation("no helper [HEARD...]", "the focus helper was not told",
                        "expect no helper immersive",
                        [](Player& player, const Arguments& arguments) {
                            return nothingHeardBy(player, Ears::kHelper, arguments);
                        }),
            expectation("no telemetry [HEARD...]", "no such event was reported",
                        "expect no telemetry",
                        [](Player& player, const Arguments& arguments) {
                            player.takeAllTelemetry();
                            return nothingHeardBy(player, Ears::kTelemetry, arguments);
                        }),
            expectation("no log TEXT", "the daemon has logged no line with this text",
                        "expect no log \"Failed to read UID\"", noLog),
    };
}

}  // namespace sim::scenario

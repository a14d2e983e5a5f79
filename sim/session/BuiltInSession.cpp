// SPDX-License-Identifier: Apache-2.0
// The built-in session: what is done with a step, and with what it expects.
#include "session/BuiltInSession.h"

#include <utility>

#include "session/DumpFacts.h"
#include "session/KnownPackages.h"
#include "session/SessionError.h"

namespace sim {
namespace {

constexpr int kHeadTracking = 0;
constexpr int kInputTracking = 1;
constexpr int kSecurity = -1;         // exception of a call without permission
constexpr int kIllegalArgument = -3;  // exception of a call that makes no sense

}  // namespace

void BuiltInSession::play() {
    mListening = std::make_unique<Listening>(mHeadset);
    mTelemetry = std::make_unique<TelemetryFeed>(mHeadset.stack());
    const std::vector<Step> all = steps();
    int number = 0;
    for (const Step& step : all) {
        mTimeline.step(++number, static_cast<int>(all.size()), step.title);
        try {
            play(step);
        } catch (const SessionError& error) {
            throw SessionError("step " + std::to_string(number) + " (" + step.title +
                               "): " + error.what());
        }
    }
}

void BuiltInSession::play(const Step& step) {
    step.act();
    const Answers got = mHeadset.expect(kShell, step.expected);
    mListening->settle();
    for (const std::string& line : mListening->takeLines())
        mTimeline.heard(line);
    checkReported(step);
    const Situation answered{step.expected.top, step.expected.immersive};
    mListening->expectLast(toldOf(step.told.value_or(answered)));
    mTimeline.answers(rows(), got);
}

void BuiltInSession::checkReported(const Step& step) {
    const std::vector<Json::Value> events = mTelemetry->await(step.reported.size());
    mReported += events.size();
    for (size_t index = 0; index < events.size(); ++index) {
        mTimeline.heard("telemetry: " + TelemetryFeed::text(events[index]));
        const std::string difference =
                TelemetryFeed::difference(toldOf(step.reported[index]), events[index]);
        if (!difference.empty()) throw SessionError("telemetry differs:" + difference);
    }
}

void BuiltInSession::askWithoutPermission() {
    const int got = mHeadset.ask(kGame, operation("getTopActivity"))["exception"].asInt();
    // Permissions are remembered per uid: under the shell's uid the game passes as the shell does.
    const int expected = mHeadset.uidOf(kGame) == mHeadset.uidOf(kShell) ? 0 : kSecurity;
    mTimeline.event(std::string(kGame) + " asks for the top activity: " +
                    (got == 0 ? "answered, since it shares the shell's uid"
                              : "exception " + std::to_string(got)));
    if (got != expected) {
        throw SessionError("getTopActivity without permission: expected exception " +
                           std::to_string(expected) + ", got " + std::to_string(got));
    }
}

void BuiltInSession::unregisterTwice() {
    mListening->stopFocus(kShell, kInputTracking);
    mTimeline.event(std::string(kShell) + " unregisters its listener for input focus");
    Json::Value request = operation("unlistenFocus");
    request["type"] = kInputTracking;
    const int got = mHeadset.ask(kShell, request)["exception"].asInt();
    mTimeline.event(std::string(kShell) + " does so again: exception " + std::to_string(got));
    if (got != kIllegalArgument) {
        throw SessionError("unregistering twice: expected exception " +
                           std::to_string(kIllegalArgument) + ", got " + std::to_string(got));
    }
}

void BuiltInSession::showDump(const std::vector<std::string>& arguments, const Situation& due) {
    const bool isJson = arguments.back() == "json";
    DumpFacts facts;
    facts.told = toldOf(due);
    for (const int type : {kHeadTracking, kInputTracking})
        facts.listeners[type] = mListening->pidsOf(type);
    Stack::ToolRun run;
    std::vector<std::string> wrong;
    // The death of a listener may reach the daemon later than anything that was asked since.
    const bool holds = mHeadset.stack().retry([&] {
        run = mHeadset.stack().runTool(arguments);
        wrong = isJson ? wrongInJson(facts, run.output) : missingInText(facts, run.output);
        return run.status == 0 && wrong.empty();
    });
    std::string command;
    for (const std::string& argument : arguments)
        command += (command.empty() ? "" : " ") + argument;
    mTimeline.event(command);
    mTimeline.block(run.output);
    if (holds) return;
    std::string text = command + " ended with status " + std::to_string(run.status) + "; " +
                       (isJson ? "wrong in it:" : "missing in it:");
    for (const std::string& line : wrong)
        text += "\n    " + line;
    throw SessionError(text);
}

Told BuiltInSession::toldOf(const Situation& situation) const {
    const std::string& name = situation.immersive;
    if (name.empty()) return {situation.top, "", 0, 0, false};
    return {situation.top, packageOfProcess(name), mHeadset.lastPidOf(name), mHeadset.uidOf(name),
            true};
}

std::vector<Timeline::App> BuiltInSession::rows() const {
    std::vector<Timeline::App> rows;
    for (const std::string& name : mHeadset.cast()) {
        rows.push_back({name, mHeadset.lastPidOf(name), mHeadset.uidOf(name)});
    }
    return rows;
}

}  // namespace sim

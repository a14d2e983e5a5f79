// SPDX-License-Identifier: Apache-2.0
// A dialogue as programs read it.
#include "scenario/JsonReporter.h"

#include "process/LineChannel.h"

namespace sim::scenario {
namespace {

Json::Value errorOf(const Reply& reply) {
    Json::Value error(Json::objectValue);
    switch (reply.kind) {
        case Reply::Kind::Mistake:
            error["kind"] = "mistake";
            error["message"] = reply.mistake.message;
            error["column"] = reply.mistake.place.column;
            if (!reply.mistake.usage.empty()) error["usage"] = reply.mistake.usage;
            break;
        case Reply::Kind::Unmet:
            error["kind"] = "expectation";
            error["message"] = reply.message;
            error["expected"] = reply.outcome.expected;
            error["got"] = reply.outcome.got;
            error["events"] = Json::arrayValue;
            for (const std::string& event : reply.events)
                error["events"].append(event);
            break;
        default:
            error["kind"] = "failure";
            error["message"] = reply.message;
            break;
    }
    return error;
}

bool isOk(Reply::Kind kind) {
    return kind == Reply::Kind::Done || kind == Reply::Kind::Taken || kind == Reply::Kind::Quit;
}

}  // namespace

void JsonReporter::reply(const Reply& reply) {
    if (reply.kind == Reply::Kind::Nothing) return;
    Json::Value object(Json::objectValue);
    object["answer"] = reply.line;
    object["command"] = reply.command;
    object["ok"] = isOk(reply.kind);
    if (!isOk(reply.kind)) object["error"] = errorOf(reply);
    if (mResults.size() == 1) object["result"] = mResults[0];
    if (mResults.size() > 1) object["result"] = mResults;
    mResults = Json::arrayValue;
    mOut.write(toLine(object));
}

void JsonReporter::command(const Command& command) {
    if (command.text != mTaken) say("playing", command.text);
}

void JsonReporter::event(const std::string& text) {
    say("event", text);
}

void JsonReporter::answer(const std::string& text, const Json::Value& value) {
    static_cast<void>(text);
    Json::Value result = value;
    if (result.isObject()) result.removeMember("id");  // of the question to the app
    mResults.append(result);
}

void JsonReporter::held(const Outcome& outcome) {
    Json::Value result(Json::objectValue);
    result["expected"] = outcome.expected;
    result["got"] = outcome.got;
    mResults.append(result);
}

void JsonReporter::title(const std::string& text) {
    say("title", text);
}

void JsonReporter::say(const char* member, const std::string& text) {
    Json::Value object(Json::objectValue);
    object[member] = text;
    mOut.write(toLine(object));
}

}  // namespace sim::scenario

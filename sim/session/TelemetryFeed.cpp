// SPDX-License-Identifier: Apache-2.0
// The telemetry of a session.
#include "session/TelemetryFeed.h"

#include <errno.h>
#include <string.h>

#include <algorithm>
#include <utility>

#include "session/SessionError.h"

namespace sim {
namespace {

constexpr int kFocusEvents = 120828;
const char* const kMessage = "VelmarVrfocusServiceEvents";

}  // namespace

TelemetryFeed::TelemetryFeed(Stack& stack) : mStack(stack) {
    auto ends = LineChannel::makePair();
    if (!ends) throw SessionError(std::string("socketpair: ") + strerror(errno));
    mLines = std::make_unique<LineChannel>(std::move(ends->first));
    mTool = mStack.startTool({"telemetry", "--follow", "--json"}, ends->second.fd());
}

std::vector<Json::Value> TelemetryFeed::await(size_t count) {
    const auto deadline = std::chrono::steady_clock::now() + mStack.patience();
    std::vector<Json::Value> events;
    while (events.size() < count) {
        Json::Value event;
        const int stopFd = mStack.stops() == nullptr ? -1 : mStack.stops()->fd();
        switch (mLines->receive(&event, deadline, stopFd)) {
            case LineChannel::Read::Message:
                events.push_back(std::move(event));
                break;
            case LineChannel::Read::Stopped:
                throw SessionStopped(mStack.stops()->take());
            case LineChannel::Read::TimedOut:
                throw SessionError("telemetry: " + std::to_string(count) + " events due, " +
                                   std::to_string(events.size()) + " came in time");
            case LineChannel::Read::Malformed:
                throw SessionError("the telemetry tool printed a line that is no JSON object");
            case LineChannel::Read::Closed:
                mTool->kill();
                throw SessionError("the telemetry tool has ended (" + mTool->ending() + ")");
        }
    }
    return events;
}

size_t TelemetryFeed::countAll() {
    const Stack::ToolRun run = mStack.runTool({"telemetry", "--json"});
    if (run.status != 0) throw SessionError("telemetry --json failed: " + run.output);
    return static_cast<size_t>(std::count(run.output.begin(), run.output.end(), '\n'));
}

std::string TelemetryFeed::text(const Json::Value& event) {
    const Json::Value& fields = event["fields"];
    if (!fields.isObject()) return toLine(event);
    std::string text = fields["focus_event"].asString() + ":";
    for (const char* name :
         {"current_top_activity", "package_name", "pid", "uid", "is_top_activity"}) {
        if (fields.isMember(name)) text += std::string(" ") + name + "=" + fields[name].asString();
    }
    return text;
}

Json::Value TelemetryFeed::expected(const Told& told) {
    Json::Value event(Json::objectValue);
    event["id"] = kFocusEvents;
    event["event"] = kMessage;
    Json::Value& fields = event["fields"] = Json::objectValue;
    fields["focus_event"] = "immersive_app_update";
    fields["current_top_activity"] = told.top;
    if (told.pid == 0) return event;
    fields["package_name"] = told.immersive;
    fields["pid"] = told.pid;
    fields["uid"] = told.uid;
    fields["is_top_activity"] = told.isTop;
    return event;
}

std::string TelemetryFeed::difference(const Told& due, Json::Value event) {
    event.removeMember("time_us");
    const Json::Value wanted = expected(due);
    if (event == wanted) return "";
    return "\n    expected " + toLine(wanted) + "\n    got      " + toLine(event);
}

}  // namespace sim

// SPDX-License-Identifier: Apache-2.0
// The control side of a simulated service process.
#include "services/ServiceControl.h"

#include <string>
#include <utility>

namespace sim {
namespace {

Json::Value errorOf(const std::string& text) {
    Json::Value value(Json::objectValue);
    value["error"] = text;
    return value;
}

}  // namespace

Json::Value ServiceControl::answer(const Json::Value& request) {
    Json::Value answer = perform(request);
    answer["id"] = request["id"];
    return answer;
}

Json::Value ServiceControl::perform(const Json::Value& request) {
    const std::string op = stringMember(request, "op").value_or("");
    Json::Value answer(Json::objectValue);
    if (op == "world") {
        auto world = World::fromJson(request["world"]);
        if (!world) return errorOf("that is no world");
        mWorld.set(std::move(*world));
    } else if (op == "tell") {
        const auto notice = Notice::fromJson(request["notice"]);
        if (!notice) return errorOf("that is no notice");
        answer["told"] = static_cast<Json::UInt>(mService.tell(*notice));
    } else if (op == "awaitObserver") {
        const auto pid = intMember(request, "pid");
        const auto milliseconds = intMember(request, "milliseconds");
        if (!pid || !milliseconds) return errorOf("awaitObserver wants pid and milliseconds");
        answer["found"] = mService.awaitObserver(*pid, std::chrono::milliseconds(*milliseconds));
    } else if (op == "status") {
        answer = mService.status();
    } else if (op == "heard") {
        answer = mService.takeHeard();
    } else {
        return errorOf("no operation '" + op + "'");
    }
    return answer;
}

}  // namespace sim

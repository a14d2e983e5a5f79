// SPDX-License-Identifier: Apache-2.0
// The control side of a simulated service process.
#include "services/ServiceControl.h"

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
    } else if (op == "publish") {
        return publish(request);
    } else if (op == "tell") {
        const auto notice = Notice::fromJson(request["notice"]);
        if (!notice) return errorOf("that is no notice");
        return send(mNoticeFaults.pass(*notice));
    } else if (op == "fault") {
        return setFault(request);
    } else if (op == "awaitObserver") {
        const auto pid = intMember(request, "pid");
        const auto milliseconds = intMember(request, "milliseconds");
        if (!pid || !milliseconds) return errorOf("awaitObserver wants pid and milliseconds");
        answer["found"] = mService.awaitObserver(*pid, std::chrono::milliseconds(*milliseconds));
    } else if (op == "status") {
        return status();
    } else if (op == "heard") {
        answer = mService.takeHeard();
    } else {
        return errorOf("no operation '" + op + "'");
    }
    return answer;
}

Json::Value ServiceControl::publish(const Json::Value& request) {
    const auto milliseconds = intMember(request, "milliseconds");
    if (!milliseconds || *milliseconds < 0) return errorOf("publish wants milliseconds");
    if (mIsPublished || mPublishTime) return errorOf("a service is published once");
    mPublishTime = std::chrono::steady_clock::now() + std::chrono::milliseconds(*milliseconds);
    return Json::objectValue;
}

Json::Value ServiceControl::setFault(const Json::Value& request) {
    const auto plan = FaultPlan::fromJson(request["plan"]);
    if (!plan) return errorOf("that is no fault");
    if (const std::string problem = plan->problemWith(mName); !problem.empty()) {
        return errorOf(problem);
    }
    if (plan->kind == FaultPlan::Kind::Descriptor && (mIsPublished || mPublishTime)) {
        return errorOf("a published service keeps its descriptor");
    }
    if (!plan->isOfNotices()) mFaults.set(*plan);
    const bool isForNotices = plan->isOfNotices() || plan->kind == FaultPlan::Kind::None;
    return send(isForNotices ? mNoticeFaults.set(*plan) : std::vector<Notice>());
}

Json::Value ServiceControl::send(const std::vector<Notice>& notices) {
    Json::Value answer(Json::objectValue);
    answer["sent"] = Json::arrayValue;
    for (const Notice& notice : notices) {
        Json::Value& row = answer["sent"].append(Json::objectValue);
        row["notice"] = notice.toJson();
        row["told"] = static_cast<Json::UInt>(mService.tell(notice));
    }
    return answer;
}

Json::Value ServiceControl::status() const {
    Json::Value answer = mService.status();
    answer["published"] = mIsPublished;
    answer["callers"] = mFaults.callers();
    return answer;
}

}  // namespace sim

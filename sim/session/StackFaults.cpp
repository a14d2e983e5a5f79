// SPDX-License-Identifier: Apache-2.0
// The processes that make up a headset: what is done to them.
#include <utility>

#include "session/SessionError.h"
#include "session/Stack.h"

namespace sim {
Json::Value Stack::setFault(const std::string& name, const FaultPlan& plan) {
    if (const std::string problem = plan.problemWith(name); !problem.empty()) {
        throw SessionError(problem);
    }
    static_cast<void>(service(name));
    Json::Value request = operation("fault");
    request["plan"] = plan.toJson();
    const auto answer = askService(name, request);
    if (!answer) throw SessionError("the service '" + name + "' cannot be told: it hangs");
    if (plan.kind == FaultPlan::Kind::None) {
        mMortal.erase(name);
        mFaulty.erase(name);
    } else if (!plan.isOfNotices()) {
        mFaulty.insert(name);
    }
    if (plan.kind == FaultPlan::Kind::Dies) mMortal.insert(name);
    return *answer;
}

std::optional<Json::Value> Stack::askService(const std::string& name, const Json::Value& request) {
    const auto found = mServices.find(name);
    if (found == mServices.end() || found->second->process().isHung()) return {};
    ChildProcess& process = found->second->process();
    const int turns = process.isSlow() ? kTurnsOfSlowProcesses : 1;
    try {
        return found->second->request(request, turns * mOptions.patience);
    } catch (const SessionError&) {
        if (!mMortal.contains(name) || process.running()) throw;
    }
    forget(name);
    return {};
}

bool Stack::isPublished(const std::string& name) {
    if (!serviceRuns(name) || mMisnamed.contains(name)) return false;
    if (!mLate.contains(name)) return true;
    const auto status = askService(name, operation("status"));
    if (!status || !(*status)["published"].asBool()) return false;
    mLate.erase(name);
    return true;
}

ChildProcess* Stack::find(const std::string& name) {
    forgetEnded();
    for (const Member& member : members()) {
        if (member.name == name) return member.process;
    }
    return nullptr;
}

bool Stack::isUp() const {
    return (mHub != nullptr || !mOptions.device.empty()) && mServiceManager != nullptr;
}

bool Stack::isHeldUp(const std::string& name) {
    return (mHub != nullptr && mHub->isHung()) ||
           (serviceRuns(name) && service(name).process().isHung());
}

void Stack::kill(const std::string& name) {
    ChildProcess* process = find(name);
    if (process == nullptr) throw SessionError("no process '" + name + "' runs");
    process->kill();
    takeDown(name);
}

void Stack::stop(const std::string& name) {
    ChildProcess* process = find(name);
    if (process == nullptr) throw SessionError("no process '" + name + "' runs");
    if (!process->terminate(mOptions.patience)) {
        throw SessionError("'" + name + "' was asked to end and still runs");
    }
    takeDown(name);
}

void Stack::takeDown(const std::string& name) {
    if (name == kDaemon) return mDaemon.reset();
    if (serviceRuns(name)) return forget(name);
    // What stood on it cannot find its way back: on a device, too, all of it starts anew.
    mDaemon.reset();
    for (const std::string& service : serviceNames())
        forget(service);
    mServiceManager.reset();
    if (name == kHub) mHub.reset();
}

void Stack::forget(const std::string& name) {
    mServices.erase(name);
    for (auto* names : {&mMortal, &mFaulty, &mMisnamed, &mLate})
        names->erase(name);
}

void Stack::forgetEnded() {
    for (const std::string& name : serviceNames()) {
        if (mMortal.contains(name) && !service(name).process().running()) forget(name);
    }
}

void Stack::checkUp(const std::string& whatFor) const {
    if (isUp()) return;
    throw SessionError("'" + whatFor + "' cannot run: the " +
                       (mServiceManager == nullptr && (mHub != nullptr || !mOptions.device.empty())
                                ? "service manager"
                                : "hub") +
                       " does not");
}

}  // namespace sim

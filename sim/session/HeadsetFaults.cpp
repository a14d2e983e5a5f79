// SPDX-License-Identifier: Apache-2.0
// The simulated headset: what happens to its processes.
#include <algorithm>
#include <utility>

#include "session/Headset.h"
#include "session/SessionError.h"

namespace sim {
namespace {

bool isService(const std::string& name) {
    const std::vector<std::string>& names = Stack::serviceNames();
    return std::find(names.begin(), names.end(), name) != names.end();
}

/** Whether all others stand on it. */
bool isGround(const std::string& name) {
    return name == Stack::kHub || name == Stack::kServiceManager;
}

}  // namespace

void Headset::killService(const std::string& name) {
    mStack.killService(name);
    tellOfSystem();
    mOptions.onEvent("service \"" + name + "\" is killed");
}

void Headset::restartService(const std::string& name, std::chrono::milliseconds late) {
    mStack.startService(name, mWorld, {late, ""});
    tellOfSystem();
    const std::string started = "service \"" + name + "\" is back (pid " +
                                std::to_string(mStack.service(name).pid()) + ")";
    if (late.count() > 0) {
        mOptions.onEvent(started + ", and is published after " + std::to_string(late.count()) +
                         " ms");
        return;
    }
    mOptions.onEvent(started);
    const bool observed = name == "activity" || name == "VelmarWindowManager";
    if (!observed || !mStack.daemonRuns()) return;
    mStack.awaitDaemonObserver(name);
    if (isDaemonConnected(name)) mOptions.onEvent("vrfocus has registered its observer with it");
}

void Headset::killDaemon() {
    mStack.killDaemon();
    tellOfSystem();
    mOptions.onEvent("vrfocus is killed");
}

void Headset::restartDaemon() {
    mStack.startDaemon();
    tellOfSystem();
    for (const auto& [name, app] : mApps) {
        if (!app->process().isHung()) ask(name, operation("connect"));
    }
    mOptions.onEvent("vrfocus is back");
}

void Headset::setFault(const std::string& service, const FaultPlan& plan) {
    if (const std::string problem = plan.problemWith(service); !problem.empty()) {
        throw SessionError(problem);
    }
    if (plan.kind == FaultPlan::Kind::Descriptor) {
        mStack.startService(service, mWorld, {std::chrono::milliseconds(0), plan.descriptor});
        mOptions.onEvent("service \"" + service + "\" is published anew as \"" + plan.descriptor +
                         "\"");
        return;
    }
    const Json::Value answer = mStack.setFault(service, plan);
    tell(FaultSet{service, plan});
    mOptions.onEvent("service \"" + service + "\" has " +
                     (plan.kind == FaultPlan::Kind::None
                              ? "no fault any more"
                              : "a fault: " + plan.toJson()["fault"].asString()));
    takeSent(answer);
    if (plan.kind == FaultPlan::Kind::None && mStack.isMisnamed(service)) restartService(service);
}

void Headset::kill(const std::string& target) {
    takeDown(target, /*isOrderly=*/false);
}

void Headset::stop(const std::string& target) {
    takeDown(target, /*isOrderly=*/true);
}

void Headset::refuseHubOfDevice(const std::string& target) const {
    const std::string& device = mOptions.stack.device;
    if (target != Stack::kHub || device.empty()) return;
    throw SessionError("there is no hub here: calls go through " + device);
}

void Headset::takeDown(const std::string& target, bool isOrderly) {
    refuseHubOfDevice(target);
    if (appRuns(target)) return isOrderly ? stopApp(target) : crashApp(target);
    isOrderly ? mStack.stop(target) : mStack.kill(target);
    tellOfSystem();
    mOptions.onEvent(target + (isOrderly ? " is stopped" : " is killed"));
    std::erase_if(mHeldUp,
                  [&](const Notice& notice) { return !mStack.serviceRuns(notice.sender()); });
    if (!isGround(target)) return;
    for (const std::string& name : mCast) {
        if (mApps.erase(name) == 0) continue;
        mGone.push_back(name);
        tell(ProcessEnded{mPids.at(name)});
        mOptions.onEvent(name + " ends with it");
    }
}

void Headset::hang(const std::string& target) {
    process(target).hang();
    mOptions.onEvent(target + " hangs");
}

void Headset::resume(const std::string& target) {
    process(target).resume();
    mOptions.onEvent(target + " runs on");
    pushWorld();
    sendHeldUp();
}

void Headset::sendHeldUp() {
    // What still cannot be sent is put back in its place by notice().
    for (const Notice& held : std::exchange(mHeldUp, {}))
        notice(held);
}

void Headset::slow(const std::string& target, std::chrono::milliseconds held) {
    process(target).slowDown(held);
    mOptions.onEvent(target + " is slow: held for " + std::to_string(held.count()) +
                     " ms at a time");
}

void Headset::restart(const std::string& target, std::chrono::milliseconds late) {
    refuseHubOfDevice(target);
    if (isGround(target)) {
        if (mStack.find(target) != nullptr) kill(target);
        mStack.bringUp(mWorld);
        mOptions.onEvent("the stack is back");
        startAppsAnew();
    } else if (isService(target)) {
        restartService(target, late);
    } else if (target == Stack::kDaemon) {
        mStack.killDaemon();
        restartDaemon();
    } else {
        const AppSpec spec = specOf(target);
        if (appRuns(target)) crashApp(target);
        startApp(spec);
    }
}

void Headset::startAppsAnew() {
    for (const std::string& name : std::exchange(mGone, {})) {
        const int before = mPids.at(name);
        startApp(AppSpec(specOf(name)));
        mWorld.replaceProcess(before, mPids.at(name));
    }
    pushWorld();
    // For all of them: it can be found from the moment that one has found it.
    if (!mApps.empty() && mStack.daemonRuns()) ask(mApps.begin()->first, operation("connect"));
}

bool Headset::isRunning(const std::string& target) {
    const auto app = mApps.find(target);
    ChildProcess* process = app == mApps.end() ? mStack.find(target) : &app->second->process();
    return process != nullptr && process->running();
}

bool Headset::isHung(const std::string& target) {
    return process(target).isHung();
}

ChildProcess& Headset::process(const std::string& target) {
    if (appRuns(target)) return app(target).process();
    refuseHubOfDevice(target);
    ChildProcess* process = mStack.find(target);
    if (process == nullptr) throw SessionError("no process '" + target + "' runs");
    return *process;
}

bool Headset::isDaemonConnected(const std::string& service) {
    if (!mStack.daemonRuns() || !mStack.isPublished(service)) return false;
    if (service == "activity" || service == "VelmarWindowManager") {
        Json::Value request = operation("awaitObserver");
        request["pid"] = mStack.daemonPid();
        request["milliseconds"] = 0;
        const auto answer = mStack.askService(service, request);
        return answer && (*answer)["found"].asBool();
    }
    if (const auto watches = mStack.daemonWatches(service)) return *watches;
    const auto status = mStack.askService(service, operation("status"));
    if (!status) return false;
    // One-way calls tell no pid; who calls the helper is the daemon.
    const Json::Value& callers = (*status)["callers"];
    return std::any_of(callers.begin(), callers.end(), [&](const Json::Value& pid) {
        return pid == mStack.daemonPid() || (pid == 0 && service == "vrfocushelper");
    });
}

bool Headset::responds(const std::string& name) {
    return mStack.isUp() && isRunning(name) && !isHung(name);
}

}  // namespace sim

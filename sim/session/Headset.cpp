// SPDX-License-Identifier: Apache-2.0
// The simulated headset: actions.
#include "session/Headset.h"

#include <unistd.h>

#include <algorithm>
#include <utility>

#include "session/SessionError.h"

namespace sim {
namespace {

std::string stateName(int state) {
    if (state == Headset::kVisible) return "visible";
    return state == Headset::kStopping ? "stopping" : std::to_string(state);
}

/** Whether the daemon notifies its listeners of what it was told. */
bool isPassedOn(Notice::Kind kind) {
    return kind == Notice::Kind::ForegroundActivities || kind == Notice::Kind::ForegroundServices ||
           kind == Notice::Kind::FocusedWindow;
}

}  // namespace

Headset::Headset(Options options) : mOptions(std::move(options)), mStack(mOptions.stack) {}

void Headset::install(const std::string& package, int uid, std::set<std::string> permissions) {
    const int actual = mOptions.ownUids ? uid : static_cast<int>(geteuid());
    mUids[package] = actual;
    mWorld.installPackage(package, {actual, std::move(permissions)});
    pushWorld();
}

void Headset::startApp(const std::string& name) {
    const int uid = uidOf(name);
    const auto taken = mOptions.ownUids ? std::optional<uid_t>(uid) : std::nullopt;
    auto app = mStack.startApp(name, taken);
    mWorld.addProcess(app->pid(), name, uid);
    mPids[name] = app->pid();
    if (std::find(mCast.begin(), mCast.end(), name) == mCast.end()) mCast.push_back(name);
    mApps[name] = std::move(app);
    pushWorld();
    ask(name, operation("connect"));
    mOptions.onEvent(name + " starts");
}

void Headset::crashApp(const std::string& name) {
    const int pid = app(name).pid();
    ChildProcess& process = app(name).process();
    const std::string ending = process.running() ? "" : process.ending();
    mApps.erase(name);
    mOptions.onEvent(name + (ending.empty() ? " is killed" : " has ended (" + ending + ")"));
    apply(mWorld.removeProcess(pid));
}

DrivenProcess& Headset::app(const std::string& name) {
    const auto found = mApps.find(name);
    if (found == mApps.end()) throw SessionError("no app '" + name + "' runs");
    return *found->second;
}

std::vector<std::string> Headset::runningApps() const {
    std::vector<std::string> names;
    for (const auto& [name, app] : mApps)
        names.push_back(name);
    return names;
}

int Headset::uidOf(const std::string& name) const {
    const auto found = mUids.find(packageOfProcess(name));
    if (found == mUids.end()) throw SessionError("no package '" + name + "' is installed");
    return found->second;
}

void Headset::showActivity(const std::string& name, int display) {
    apply(mWorld.startActivity(app(name).pid(), display));
    if (display == World::kPrimaryDisplay) focusWindow(name);
}

void Headset::finishActivity(const std::string& name, int display) {
    apply(mWorld.finishActivity(app(name).pid(), display));
}

void Headset::focusWindow(const std::string& name) {
    apply(mWorld.focusWindowOf(app(name).pid()));
}

void Headset::setPanelService(const std::string& name, bool running) {
    apply(mWorld.setPanelService(app(name).pid(), running));
}

void Headset::startBackgroundService(const std::string& name) {
    apply(mWorld.changeServices(app(name).pid()));
}

void Headset::addDisplay(int display) {
    apply(mWorld.addDisplay(display));
}

void Headset::removeDisplay(int display) {
    apply(mWorld.removeDisplay(display));
}

void Headset::reportXrSession(const std::string& name, int state) {
    Json::Value request = operation("setAppState");
    request["pid"] = app(name).pid();
    request["state"] = state;
    const int exception = ask(name, request)["exception"].asInt();
    if (exception != 0) {
        throw SessionError(name + ": setAppState is refused with " + std::to_string(exception));
    }
    mOptions.onEvent(name + " reports its XR session " + stateName(state));
    if (state == kVisible || state == kStopping) mOnNotification(/*focusToo=*/false);
}

int Headset::askDisplay(const std::string& name, const char* op, int display) {
    Json::Value request = operation(op);
    request["display"] = display;
    const int exception = ask(name, request)["exception"].asInt();
    mOptions.onEvent(name + (std::string(op) == "grant" ? " grants" : " revokes") +
                     " tracking access for display " + std::to_string(display) +
                     (exception == 0 ? "" : ": refused with " + std::to_string(exception)));
    return exception;
}

int Headset::grantTracking(const std::string& name, int display) {
    return askDisplay(name, "grant", display);
}

int Headset::revokeTracking(const std::string& name, int display) {
    return askDisplay(name, "revoke", display);
}

void Headset::killService(const std::string& name) {
    mStack.killService(name);
    mOptions.onEvent("service \"" + name + "\" is killed");
}

void Headset::restartService(const std::string& name) {
    mStack.startService(name, mWorld);
    mOptions.onEvent("service \"" + name + "\" is back (pid " +
                     std::to_string(mStack.service(name).pid()) + ")");
    const bool observed = name == "activity" || name == "VelmarWindowManager";
    if (!observed || !mStack.daemonRuns()) return;
    mStack.awaitDaemonObserver(name);
    mOptions.onEvent("vrfocus has registered its observer with it");
}

void Headset::killDaemon() {
    mStack.killDaemon();
    mOptions.onEvent("vrfocus is killed");
}

void Headset::restartDaemon() {
    mStack.startDaemon();
    for (const auto& [name, app] : mApps)
        ask(name, operation("connect"));
    mOptions.onEvent("vrfocus is back");
}

void Headset::reportActivitiesAgain() {
    apply(mWorld.activityReport());
}

void Headset::reportWindowAgain() {
    apply(mWorld.windowReport());
}

void Headset::apply(const std::vector<Notice>& notices) {
    pushWorld();
    for (const Notice& notice : notices)
        tell(notice);
}

void Headset::pushWorld() {
    Json::Value request = operation("world");
    request["world"] = mWorld.toJson();
    for (const std::string& name : Stack::serviceNames()) {
        if (mStack.serviceRuns(name)) mStack.service(name).request(request, mStack.patience());
    }
}

void Headset::tell(const Notice& notice) {
    if (!mStack.serviceRuns(notice.sender())) return;
    Json::Value request = operation("tell");
    request["notice"] = notice.toJson();
    const Json::Value answer = mStack.service(notice.sender()).request(request, mStack.patience());
    const int told = answer["told"].asInt();
    mOptions.onEvent(describe(notice, told));
    if (told > 0 && isPassedOn(notice.kind)) mOnNotification(/*focusToo=*/true);
}

std::string Headset::describe(const Notice& notice, int told) const {
    std::string text = notice.sender() + ": ";
    switch (notice.kind) {
        case Notice::Kind::ForegroundActivities:
            text += nameOf(notice.pid) +
                    (notice.value != 0 ? " is in the foreground" : " has left the foreground");
            break;
        case Notice::Kind::ForegroundServices:
            text += nameOf(notice.pid) + " has changed its services";
            break;
        case Notice::Kind::ProcessDied:
            text += nameOf(notice.pid) + " has died";
            break;
        case Notice::Kind::DisplayEvent:
            text += "display " + std::to_string(notice.display) +
                    (notice.value == Notice::kDisplayRemoved ? " is removed" : " is added");
            break;
        case Notice::Kind::FocusedWindow:
            text += nameOf(notice.pid) + " has the focused window";
            break;
    }
    return text + (told == 0 ? " (nobody asked to be told)" : "");
}

std::string Headset::nameOf(int pid) const {
    for (const auto& [name, known] : mPids) {
        if (known == pid) return name;
    }
    return pid == 0 ? "nobody" : "pid " + std::to_string(pid);
}

}  // namespace sim

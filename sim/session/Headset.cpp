// SPDX-License-Identifier: Apache-2.0
// The simulated headset: actions.
#include "session/Headset.h"

#include <driver/Driver.h>
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

}  // namespace

Headset::Headset(Options options) : mOptions(std::move(options)), mStack(mOptions.stack) {}

Headset::Options Headset::usualOptions(const std::string& programs, StopSignals& stops) {
    Options options;
    options.stack.programs = programs;
    options.stack.stops = &stops;
    const std::string driver = binderhost::driverPath();
    if (binderhost::namesDevice(driver)) options.stack.device = driver;
    return options;
}

void Headset::boot() {
    for (const auto& [name, value] : mOptions.stack.properties)
        tell(PropertySet{name, value});
    mStack.boot(mWorld);
    tellOfSystem();
}

void Headset::tell(const Fact& fact) {
    tellOfSystem();
    mOptions.onFact(fact);
}

/** Those that have ended or started since this was told last. */
void Headset::tellOfSystem() {
    std::map<std::string, int> running;
    for (const Stack::Member& member : mStack.members()) {
        const bool isGround = member.name == Stack::kHub || member.name == Stack::kServiceManager;
        if (!isGround) running[member.name] = member.process->pid();
    }
    const auto before = std::exchange(mTold, running);
    for (const auto& [name, pid] : before) {
        const auto found = running.find(name);
        if (found == running.end() || found->second != pid) mOptions.onFact(SystemEnded{name});
    }
    for (const auto& [name, pid] : running) {
        const auto found = before.find(name);
        if (found == before.end() || found->second != pid) mOptions.onFact(SystemStarted{name});
    }
}

void Headset::setProperty(const std::string& name, const std::string& value) {
    const Stack::ToolRun run = mStack.runTool({"setprop", name, value});
    if (run.status != 0) throw SessionError("setprop: " + run.output);
    tell(PropertySet{name, value});
}

void Headset::install(const std::string& package, int uid, std::set<std::string> permissions) {
    const int actual = haveUids() ? uid : static_cast<int>(geteuid());
    mUids[package] = actual;
    mWorld.installPackage(package, {actual, std::move(permissions)});
    pushWorld();
}

void Headset::setPermission(const std::string& package, const std::string& permission,
                            bool granted) {
    if (!mWorld.setPermission(package, permission, granted)) {
        throw SessionError("no package '" + package + "' is installed");
    }
    pushWorld();
    mOptions.onEvent(package + (granted ? " is granted " : " is denied ") + permission);
}

void Headset::settle() {
    tellOfSystem();
    std::vector<pid_t> hung;
    for (const auto& [name, app] : mApps) {
        if (app->process().isHung()) hung.push_back(app->pid());
    }
    std::string inFlight;
    if (!mStack.awaitQuiet(hung, &inFlight)) {
        throw SessionError("something is still in flight: " + inFlight);
    }
}

void Headset::startApp(const std::string& process) {
    startApp({process, process, uidOf(process)});
    ask(process, operation("connect"));
}

void Headset::startApp(const AppSpec& wanted) {
    AppSpec spec = wanted;
    if (!haveUids()) spec.uid = static_cast<int>(geteuid());
    auto app = mStack.startApp(spec.process, static_cast<uid_t>(spec.uid), spec.isReusable);
    mWorld.addProcess(app->pid(), spec.process, spec.uid);
    const std::string& name = spec.name;
    enter(spec, std::move(app));
    tell(ProcessStarted{mPids[name], spec.uid, spec.process});
    pushWorld();
    mOptions.onEvent(name + " starts (pid " + std::to_string(mPids[name]) + ", uid " +
                     std::to_string(spec.uid) + ")");
}

void Headset::enter(const AppSpec& spec, std::unique_ptr<DrivenProcess> app) {
    mSpecs[spec.name] = spec;
    mCalled.erase(spec.name);
    mPids[spec.name] = app->pid();
    mOwners[app->pid()] = spec.name;
    if (std::find(mCast.begin(), mCast.end(), spec.name) == mCast.end()) {
        mCast.push_back(spec.name);
    }
    mApps[spec.name] = std::move(app);
}

std::string Headset::processNameOf(const std::string& name) const {
    const auto renamed = mCalled.find(name);
    return renamed == mCalled.end() ? specOf(name).process : renamed->second;
}

void Headset::renameApp(const std::string& name, const std::string& process) {
    Json::Value request = operation("rename");
    request["name"] = process;
    ask(name, request);
    mCalled[name] = process;
    tell(ProcessRenamed{mPids.at(name), process});
    mOptions.onEvent(name + " calls itself " + process);
}

void Headset::reuse(const std::string& name, const AppSpec& successor) {
    DrivenProcess& process = app(name);
    const int uid = uidOf(name);
    Json::Value request = operation("become");
    request["name"] = successor.process;
    // Needed where uids are taken; asked for everywhere, so that a scenario holds everywhere.
    if (successor.uid != uid && !specOf(name).isReusable) {
        throw SessionError(name + " was not started as one whose pid can be reused");
    }
    const bool takesUid = mStack.uids() == Stack::Uids::Kernels && successor.uid != uid;
    if (takesUid) request["uid"] = successor.uid;
    mStack.changeUid(process.pid(), static_cast<uid_t>(successor.uid));
    AppSpec spec = successor;
    spec.isReusable = specOf(name).isReusable;
    ask(name, request);
    process.awaitEvent("ready", mStack.patience());
    process.rename(spec.name);
    tell(ProcessEnded{process.pid()});
    tell(ProcessStarted{process.pid(), spec.uid, spec.process});
    const std::vector<Notice> notices = mWorld.removeProcess(process.pid());
    mWorld.addProcess(process.pid(), spec.process, spec.uid);
    mOptions.onEvent(name + " ends, and its pid comes back as " + spec.name + " (uid " +
                     std::to_string(spec.uid) + ")");
    apply(notices);
    enter(spec, std::move(mApps.extract(name).mapped()));
}

void Headset::crashApp(const std::string& name) {
    const int pid = app(name).pid();
    ChildProcess& process = app(name).process();
    const std::string ending = process.running() ? "" : process.ending();
    mApps.erase(name);
    tell(ProcessEnded{pid});
    mOptions.onEvent(name + (ending.empty() ? " is killed" : " has ended (" + ending + ")"));
    apply(mWorld.removeProcess(pid));
}

void Headset::stopApp(const std::string& name) {
    const int pid = app(name).pid();
    ChildProcess& process = app(name).process();
    process.resume();
    ask(name, operation("stop"));
    if (!process.awaitEnd(mStack.patience())) throw SessionError(name + " was to end and runs");
    if (process.exitStatus() != 0) throw SessionError(name + " ended with " + process.ending());
    mApps.erase(name);
    tell(ProcessEnded{pid});
    mOptions.onEvent(name + " ends");
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
    const auto spec = mSpecs.find(name);
    if (spec != mSpecs.end()) return spec->second.uid;
    const auto found = mUids.find(packageOfProcess(name));
    if (found == mUids.end()) throw SessionError("no package '" + name + "' is installed");
    return found->second;
}

const Headset::AppSpec& Headset::specOf(const std::string& name) const {
    const auto found = mSpecs.find(name);
    if (found == mSpecs.end()) throw SessionError("no app '" + name + "' was started");
    return found->second;
}

int Headset::lastPidOf(const std::string& name) const {
    const auto found = mPids.find(name);
    if (found == mPids.end()) throw SessionError("no app '" + name + "' was started");
    return found->second;
}

void Headset::requireDisplay(int display) const {
    if (mWorld.displays().contains(display)) return;
    throw SessionError("there is no display " + std::to_string(display));
}

void Headset::showActivity(const std::string& name, int display) {
    requireDisplay(display);
    apply(mWorld.startActivity(app(name).pid(), display));
    if (display == World::kPrimaryDisplay) focusWindow(name);
}

void Headset::finishActivity(const std::string& name, int display) {
    requireDisplay(display);
    apply(mWorld.finishActivity(app(name).pid(), display));
}

void Headset::focusWindow(const std::string& name) {
    apply(mWorld.focusWindowOf(app(name).pid()));
}

void Headset::focusNoWindow() {
    apply(mWorld.focusNoWindow());
}

void Headset::setPanelService(const std::string& name, bool running) {
    apply(mWorld.setPanelService(app(name).pid(), running));
}

void Headset::startBackgroundService(const std::string& name) {
    apply(mWorld.changeServices(app(name).pid()));
}

void Headset::addDisplay(int display) {
    if (mWorld.displays().contains(display)) {
        throw SessionError("there is a display " + std::to_string(display) + " already");
    }
    apply(mWorld.addDisplay(display));
}

void Headset::removeDisplay(int display) {
    requireDisplay(display);
    if (display == World::kPrimaryDisplay) throw SessionError("the main display stays");
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
}

void Headset::quietly(const std::function<void()>& actions) {
    const bool before = std::exchange(mIsQuiet, true);
    try {
        actions();
    } catch (...) {
        mIsQuiet = before;
        throw;
    }
    mIsQuiet = before;
}

void Headset::changeDisplay(int display) {
    apply(mWorld.changeDisplay(display));
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

void Headset::reportActivitiesAgain() {
    apply(mWorld.activityReport());
}

void Headset::reportWindowAgain() {
    apply(mWorld.windowReport());
}

void Headset::apply(const std::vector<Notice>& notices) {
    pushWorld();
    if (mIsQuiet) return;
    for (const Notice& notice : notices) {
        this->notice(notice);
        if (mSettlesNotices) settle();
    }
}

void Headset::pushWorld() {
    tell(WorldChanged{mWorld});
    Json::Value request = operation("world");
    request["world"] = mWorld.toJson();
    for (const std::string& name : Stack::serviceNames())
        static_cast<void>(mStack.askService(name, request));
}

void Headset::notice(const Notice& notice) {
    const std::string sender = notice.sender();
    if (mStack.isHeldUp(sender)) {
        mHeldUp.push_back(notice);
        mOptions.onEvent(describe(notice) + " (to be told when the service runs on)");
        return;
    }
    Json::Value request = operation("tell");
    request["notice"] = notice.toJson();
    const auto answer = mStack.askService(sender, request);
    if (!answer) return;
    if ((*answer)["sent"].empty()) mOptions.onEvent(describe(notice) + " (kept back by a fault)");
    takeSent(*answer);
}

void Headset::takeSent(const Json::Value& answer) {
    for (const Json::Value& row : answer["sent"]) {
        const auto sent = Notice::fromJson(row["notice"]);
        const int told = row["told"].asInt();
        if (!sent) throw SessionError("a service sent what is no notice: " + toLine(row));
        tell(NoticeSent{*sent, told});
        mOptions.onEvent(describe(*sent) + (told == 0 ? " (nobody asked to be told)" : ""));
    }
}

std::string Headset::describe(const Notice& notice) const {
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
                    (notice.value == Notice::kDisplayRemoved   ? " is removed"
                     : notice.value == Notice::kDisplayChanged ? " has changed"
                                                               : " is added");
            break;
        case Notice::Kind::FocusedWindow:
            text += nameOf(notice.pid) + " has the focused window";
            break;
    }
    return text;
}

bool Headset::isTaken(int uid) const {
    const auto has = [uid](const auto& spec) { return spec.second.uid == uid; };
    return std::any_of(mSpecs.begin(), mSpecs.end(), has) ||
           std::any_of(mWorld.packages().begin(), mWorld.packages().end(), has);
}

std::string Headset::nameOf(int pid) const {
    const auto owner = mOwners.find(pid);
    if (owner != mOwners.end()) return owner->second;
    return pid == 0 ? "nobody" : "pid " + std::to_string(pid);
}

}  // namespace sim

// SPDX-License-Identifier: Apache-2.0
// The processes that make up a headset, all but the apps.
#include "session/Stack.h"

#include <errno.h>
#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <driver/AssignedUids.h>
#include <driver/Driver.h>

#include <algorithm>
#include <array>
#include <deque>
#include <filesystem>
#include <fstream>

#include "session/SessionError.h"

namespace sim {
namespace {

constexpr const char* kServiceProgram = "sim_service";
constexpr const char* kAppProgram = "sim_app";
constexpr size_t kTailLines = 12;

// The platform's, of its system server.
constexpr uid_t kSystemUid = 1000;

/** From the closing of a process's sockets to its end. */
constexpr std::chrono::milliseconds kEndOfHub(100);

using Control = binderhost::HubControl;

std::unique_ptr<SessionFolder> makeFolder() {
    std::string error;
    auto folder = SessionFolder::make(&error);
    if (folder == nullptr) throw SessionError("cannot make the session's folder: " + error);
    return folder;
}

Stack::Uids uidsOn(const std::string& device) {
    if (device.empty()) return Stack::Uids::Hubs;
    return ChildProcess::canChangeUids() ? Stack::Uids::Kernels : Stack::Uids::Own;
}

std::string passedFdText() {
    return std::to_string(ChildProcess::kPassedFd);
}

/** Appends the last lines of a log to text. */
void appendTail(const std::filesystem::path& log, std::string* text) {
    std::ifstream file(log);
    std::deque<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
        if (lines.size() > kTailLines) lines.pop_front();
    }
    for (const std::string& line : lines) {
        *text += "  " + log.stem().string() + " | " + line + "\n";
    }
}

}  // namespace

const std::vector<std::string>& Stack::serviceNames() {
    static const std::vector<std::string> kNames{
            "activity",     "display", "permission", "package_native", "VelmarWindowManager",
            "vrfocushelper"};
    return kNames;
}

Stack::Stack(Options options)
      : mOptions(std::move(options)), mUids(uidsOn(mOptions.device)), mFolder(makeFolder()) {
    checkPrograms();
    checkDevice();
    if (!mOptions.device.empty()) mKernel = KernelBinder::open();
}

void Stack::checkPrograms() const {
    std::string missing;
    for (const char* program : {kHub, kServiceManager, kServiceProgram, kDaemon, kAppProgram,
                                "dumpsys", "setprop", "telemetry"}) {
        if (access((mOptions.programs + "/" + program).c_str(), X_OK) == 0) continue;
        missing += (missing.empty() ? "" : ", ") + std::string(program);
    }
    if (!missing.empty()) {
        throw SessionError("missing in " + mOptions.programs + ": " + missing +
                           " (./dev run builds them)");
    }
}

void Stack::checkDevice() const {
    std::string error;
    if (!mOptions.device.empty() && binderhost::openDriver(mOptions.device, &error) == nullptr) {
        throw SessionError(error);
    }
}

void Stack::boot(const World& world) {
    prepareFiles();
    bringUp(world);
}

void Stack::bringUp(const World& world) {
    if (mOptions.device.empty() && mHub == nullptr) {
        startHub();
    }
    if (mServiceManager == nullptr) startServiceManager();
    for (const std::string& name : serviceNames()) {
        if (!serviceRuns(name)) startService(name, world);
    }
    if (!daemonRuns()) startDaemon();
}

void Stack::startService(const std::string& name, const World& world, const ServiceStart& how) {
    checkUp(name);
    killService(name);
    Launch launch = vouchedFor(launchOf(kServiceProgram, name), kSystemUid);
    launch.arguments = {kServiceProgram, name};
    auto service = startDriven(launch, name);
    Json::Value request = operation("world");
    request["world"] = world.toJson();
    service->request(request, mOptions.patience);
    if (!how.descriptor.empty()) {
        FaultPlan misnamed;
        misnamed.kind = FaultPlan::Kind::Descriptor;
        misnamed.descriptor = how.descriptor;
        Json::Value fault = operation("fault");
        fault["plan"] = misnamed.toJson();
        service->request(fault, mOptions.patience);
        mMisnamed.insert(name);
    }
    Json::Value publish = operation("publish");
    publish["milliseconds"] = static_cast<int>(how.late.count());
    service->request(publish, mOptions.patience);
    if (how.late.count() == 0) {
        service->awaitEvent("ready", mOptions.patience);
    } else {
        mLate.insert(name);
    }
    mServices[name] = std::move(service);
}

void Stack::killService(const std::string& name) {
    forget(name);
}

bool Stack::serviceRuns(const std::string& name) const {
    return mServices.contains(name);
}

DrivenProcess& Stack::service(const std::string& name) {
    const auto found = mServices.find(name);
    if (found == mServices.end()) throw SessionError("the service '" + name + "' does not run");
    return *found->second;
}

void Stack::startDaemon() {
    checkUp(kDaemon);
    Launch launch = vouchedFor(launchOf(kDaemon, kDaemon), kSystemUid);
    launch.arguments = {kDaemon};
    mDaemon = start(launch);
    for (const char* name : {"activity", "VelmarWindowManager"})
        awaitDaemonObserver(name);
}

void Stack::killDaemon() {
    mDaemon.reset();
}

void Stack::awaitDaemonObserver(const std::string& name) {
    if (!daemonRuns() || mDaemon->isHung()) return;
    // Waited for in slices: a daemon that ends meanwhile is told of at once.
    constexpr std::chrono::milliseconds kSlice(100);
    const auto deadline = std::chrono::steady_clock::now() + mOptions.patience;
    Json::Value request = operation("awaitObserver");
    request["pid"] = daemonPid();
    request["milliseconds"] = static_cast<int>(kSlice.count());
    while (!isHeldUp(name) && !mFaulty.contains(name) && isPublished(name)) {
        const auto answer = askService(name, request);
        if (!answer || (*answer)["found"].asBool()) return;
        pause(std::chrono::milliseconds(0));
        if (std::chrono::steady_clock::now() > deadline) {
            throw SessionError("the daemon registered no observer with '" + name + "' in time");
        }
    }
}

std::unique_ptr<DrivenProcess> Stack::startApp(const std::string& name, uid_t uid, bool keepsRoot) {
    checkUp(name);
    Launch launch = vouchedFor(launchOf(kAppProgram, name), uid);
    launch.arguments = {name};
    if (mUids == Uids::Kernels) {
        launch.uid = uid;
        launch.keepsRoot = keepsRoot;
    }
    auto app = startDriven(launch, name);
    app->awaitEvent("ready", mOptions.patience);
    return app;
}

void Stack::pause(std::chrono::milliseconds time) {
    if (mOptions.stops != nullptr) {
        pollfd watched{mOptions.stops->fd(), POLLIN, 0};
        if (poll(&watched, 1, static_cast<int>(time.count())) > 0) {
            throw SessionStopped(mOptions.stops->take());
        }
    } else {
        poll(nullptr, 0, static_cast<int>(time.count()));
    }
    forgetEnded();
    checkRunning(kHub, mHub.get());
    checkRunning(kServiceManager, mServiceManager.get());
    for (const auto& [name, service] : mServices)
        checkRunning(name, &service->process());
    checkRunning(kDaemon, mDaemon.get());
}

void Stack::checkHub() const {
    if (mHub == nullptr) return;
    pollfd ended{mHub->endFd(), POLLIN, 0};
    poll(&ended, 1, static_cast<int>(kEndOfHub.count()));
    checkRunning(kHub, mHub.get());
}

std::string Stack::logTails() const {
    std::string text;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(mFolder->path(), ignored)) {
        if (entry.path().extension() == ".log") appendTail(entry.path(), &text);
    }
    return text;
}

Launch Stack::launchOf(const std::string& program, const std::string& log) const {
    Launch launch;
    launch.program = mOptions.programs + "/" + program;
    launch.environment = environment();
    std::string file = log + ".log";
    std::replace(file.begin(), file.end(), '/', '_');  // native processes are named by paths
    launch.logFile = mFolder->file(file);
    return launch;
}

std::unique_ptr<ChildProcess> Stack::start(const Launch& launch) const {
    std::string error;
    auto process = ChildProcess::start(launch, &error);
    if (process == nullptr) throw SessionError("cannot start " + error);
    return process;
}

Launch Stack::vouchedFor(Launch launch, uid_t uid) const {
    if (mUids != Uids::Hubs) return launch;
    launch.beforeExec = [this, uid](pid_t child) { return vouch(child, uid); };
    return launch;
}

std::string Stack::vouch(pid_t child, uid_t uid) const {
    if (mControl == nullptr) return "no hub runs that could vouch for it";
    const Control::Status status = mControl->assign(child, uid);
    if (status == Control::Status::Done) return {};
    return "it cannot have uid " + std::to_string(uid) + ": " + Control::describe(status);
}

void Stack::changeUid(pid_t app, uid_t uid) {
    if (mUids != Uids::Hubs) return;
    const Control::Status status = mControl->reassign(app, uid);
    if (status == Control::Status::Done) return;
    throw SessionError("pid " + std::to_string(app) + " cannot have uid " + std::to_string(uid) +
                       ": " + Control::describe(status));
}

int Stack::toolUid() const {
    constexpr uid_t kShellUid = binderhost::AssignedUids::kOthersUid;
    return static_cast<int>(mUids == Uids::Hubs ? kShellUid : geteuid());
}

int Stack::systemUid() const {
    return static_cast<int>(mUids == Uids::Hubs ? kSystemUid : geteuid());
}

void Stack::startHub() {
    std::string error;
    android::base::unique_fd hubsEnd;
    mControl = Control::make(&hubsEnd, &error);
    if (mControl == nullptr) throw SessionError(error);
    Launch launch = launchOf(kHub, kHub);
    launch.arguments = {kHub, "--socket", mFolder->file("binder"), "--control-fd", passedFdText()};
    launch.passedFd = hubsEnd.get();
    auto process = start(launch);
    hubsEnd.reset();
    const Control::Status status = mControl->awaitReady(
            mOptions.patience, mOptions.stops == nullptr ? -1 : mOptions.stops->fd());
    if (status == Control::Status::Stopped) throw SessionStopped(mOptions.stops->take());
    if (status == Control::Status::NoHub) {
        process->kill();
        throw SessionError(std::string(kHub) + " ended at its start (" + process->ending() + ")");
    }
    if (status != Control::Status::Done) {
        throw SessionError(std::string(kHub) + " did not become ready in time");
    }
    mHub = std::move(process);
}

void Stack::startServiceManager() {
    const std::string name = kServiceManager;
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
        throw SessionError(std::string("pipe: ") + strerror(errno));
    const android::base::unique_fd reader(ends[0]);
    android::base::unique_fd writer(ends[1]);
    Launch launch = vouchedFor(launchOf(name, name), kSystemUid);
    launch.arguments = {name, "--ready-fd", passedFdText()};
    launch.passedFd = writer.get();
    auto process = start(launch);
    writer.reset();
    awaitReadyByte(name, reader.get(), *process);
    mServiceManager = std::move(process);
}

void Stack::awaitReadyByte(const std::string& name, int fd, ChildProcess& process) const {
    // Ready is one byte; the end of the pipe without it is the end of the process.
    std::array<pollfd, 2> watched{
            pollfd{fd, POLLIN, 0},
            pollfd{mOptions.stops == nullptr ? -1 : mOptions.stops->fd(), POLLIN, 0}};
    const int ready = TEMP_FAILURE_RETRY(
            poll(watched.data(), watched.size(), static_cast<int>(mOptions.patience.count())));
    if (watched[1].revents != 0) throw SessionStopped(mOptions.stops->take());
    if (ready == 0) throw SessionError(name + " did not become ready in time");
    char byte = 0;
    if (TEMP_FAILURE_RETRY(read(fd, &byte, 1)) == 1) return;
    process.kill();
    throw SessionError(name + " ended at its start (" + process.ending() + ")");
}

std::unique_ptr<DrivenProcess> Stack::startDriven(Launch launch, const std::string& name) const {
    auto ends = LineChannel::makePair();
    if (!ends) throw SessionError(std::string("socketpair: ") + strerror(errno));
    launch.passedFd = ends->second.fd();
    auto process = start(launch);
    return std::make_unique<DrivenProcess>(name, std::move(process), std::move(ends->first),
                                           mOptions.stops);
}

void Stack::checkRunning(const std::string& name, ChildProcess* process) const {
    if (process == nullptr || process->running()) return;
    throw SessionError(name + " has ended (" + process->ending() + ")");
}

}  // namespace sim

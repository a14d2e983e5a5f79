// SPDX-License-Identifier: Apache-2.0
// The processes that make up a headset, all but the apps.
#include "session/Stack.h"

#include <errno.h>
#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <driver/Driver.h>

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

std::unique_ptr<SessionFolder> makeFolder() {
    std::string error;
    auto folder = SessionFolder::make(&error);
    if (folder == nullptr) throw SessionError("cannot make the session's folder: " + error);
    return folder;
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

Stack::Stack(Options options) : mOptions(std::move(options)), mFolder(makeFolder()) {
    checkPrograms();
    checkDevice();
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
    if (mOptions.device.empty()) {
        startCore(kHub, {"--socket", mFolder->file("binder"), "--ready-fd", passedFdText()});
    }
    startCore(kServiceManager, {"--ready-fd", passedFdText()});
    for (const std::string& name : serviceNames())
        startService(name, world);
    startDaemon();
}

void Stack::startService(const std::string& name, const World& world) {
    Launch launch = launchOf(kServiceProgram, name);
    launch.arguments = {kServiceProgram, name};
    auto service = startDriven(launch, name);
    Json::Value request(Json::objectValue);
    request["op"] = "world";
    request["world"] = world.toJson();
    service->request(request, mOptions.patience);
    service->awaitEvent("ready", mOptions.patience);
    mOptions.onReady(name, service->pid());
    mServices[name] = std::move(service);
}

void Stack::killService(const std::string& name) {
    mServices.erase(name);
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
    Launch launch = launchOf(kDaemon, kDaemon);
    launch.arguments = {kDaemon};
    mDaemon = start(launch);
    for (const char* name : {"activity", "VelmarWindowManager"}) {
        if (serviceRuns(name)) awaitDaemonObserver(name);
    }
    mOptions.onReady(kDaemon, mDaemon->pid());
}

void Stack::killDaemon() {
    mDaemon.reset();
}

void Stack::awaitDaemonObserver(const std::string& name) {
    // Waited for in slices: a daemon that ends meanwhile is told of at once.
    constexpr std::chrono::milliseconds kSlice(100);
    const auto deadline = std::chrono::steady_clock::now() + mOptions.patience;
    Json::Value request(Json::objectValue);
    request["op"] = "awaitObserver";
    request["pid"] = daemonPid();
    request["milliseconds"] = static_cast<int>(kSlice.count());
    while (!service(name).request(request, mOptions.patience)["found"].asBool()) {
        pause(std::chrono::milliseconds(0));
        if (std::chrono::steady_clock::now() > deadline) {
            throw SessionError("the daemon registered no observer with '" + name + "' in time");
        }
    }
}

std::unique_ptr<DrivenProcess> Stack::startApp(const std::string& name, std::optional<uid_t> uid) {
    Launch launch = launchOf(kAppProgram, name);
    launch.arguments = {name};
    launch.uid = uid;
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
    checkRunning(kHub, mHub.get());
    checkRunning(kServiceManager, mServiceManager.get());
    for (const auto& [name, service] : mServices)
        checkRunning(name, &service->process());
    checkRunning(kDaemon, mDaemon.get());
}

void Stack::killCore(const std::string& name) {
    for (auto& [core, process] :
         {std::pair(kHub, &mHub), {kServiceManager, &mServiceManager}, {kDaemon, &mDaemon}}) {
        if (name == core && *process != nullptr) (*process)->kill();
    }
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
    launch.logFile = mFolder->file(log + ".log");
    return launch;
}

std::unique_ptr<ChildProcess> Stack::start(const Launch& launch) const {
    std::string error;
    auto process = ChildProcess::start(launch, &error);
    if (process == nullptr) throw SessionError("cannot start " + error);
    return process;
}

void Stack::startCore(const std::string& name, std::vector<std::string> arguments) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
        throw SessionError(std::string("pipe: ") + strerror(errno));
    const android::base::unique_fd reader(ends[0]);
    android::base::unique_fd writer(ends[1]);
    Launch launch = launchOf(name, name);
    launch.arguments = std::move(arguments);
    launch.arguments.insert(launch.arguments.begin(), name);
    launch.passedFd = writer.get();
    auto process = start(launch);
    writer.reset();
    awaitReadyByte(name, reader.get(), *process);
    mOptions.onReady(name, process->pid());
    (name == kHub ? mHub : mServiceManager) = std::move(process);
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

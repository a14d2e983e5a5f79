// SPDX-License-Identifier: Apache-2.0
// The processes that make up a headset: what people run beside them, and waiting.
#include <android-base/file.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "session/SessionError.h"
#include "session/Stack.h"

namespace sim {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kFirstPause(1);
constexpr milliseconds kLongestPause(50);

}  // namespace

void Stack::prepareFiles() {
    // Only the daemon reports telemetry, and it runs under the session's own uid.
    const std::string sink = environment().at("HOST_TELEMETRY");
    const android::base::unique_fd fd(open(sink.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    if (!fd.ok()) throw SessionError(sink + ": " + strerror(errno));
    // Processes look for the store once, so it must be there before them.
    for (const auto& [name, value] : mOptions.properties) {
        const ToolRun made = runTool({"setprop", name, value});
        if (made.status != 0) throw SessionError("setprop failed: " + made.output);
    }
}

std::map<std::string, std::string> Stack::environment() const {
    const std::string& device = mOptions.device;
    return {{"BINDER_DRIVER", device.empty() ? mFolder->file("binder") : device},
            {"HOST_PROPERTIES", mFolder->file("properties")},
            {"HOST_TELEMETRY", mFolder->file("telemetry")},
            {"HOST_LOG_LEVEL", "D"}};
}

Launch Stack::toolLaunch(const std::string& program) const {
    Launch launch = launchOf(program, program);
    // Some need no hub: they must not wait for one that hangs.
    if (mHub == nullptr || mHub->isHung()) return launch;
    return vouchedFor(std::move(launch), static_cast<uid_t>(toolUid()));
}

std::unique_ptr<ChildProcess> Stack::startTool(const std::vector<std::string>& arguments,
                                               int outputFd) {
    Launch launch = toolLaunch(arguments.at(0));
    launch.arguments = arguments;
    launch.outputFd = outputFd;
    return start(launch);
}

Stack::ToolRun Stack::runTool(const std::vector<std::string>& arguments) {
    const std::string& name = arguments.at(0);
    const std::string file = mFolder->file(name + ".out");
    Launch launch = toolLaunch(name);
    launch.arguments = arguments;
    launch.logFile = file;
    // One that did not end in time has left it.
    unlink(file.c_str());
    const auto process = start(launch);
    std::array<pollfd, 2> watched{
            pollfd{process->endFd(), POLLIN, 0},
            pollfd{mOptions.stops == nullptr ? -1 : mOptions.stops->fd(), POLLIN, 0}};
    const int ready = TEMP_FAILURE_RETRY(
            poll(watched.data(), watched.size(), static_cast<int>(mOptions.patience.count())));
    if (watched[1].revents != 0) throw SessionStopped(mOptions.stops->take());
    if (ready <= 0 || process->running()) throw SessionError(name + " did not end in time");
    ToolRun run;
    run.status = process->exitStatus().value_or(1);
    const bool hasRead = android::base::ReadFileToString(file, &run.output);
    unlink(file.c_str());
    if (!hasRead) throw SessionError(file + ": " + strerror(errno));
    return run;
}

std::vector<Stack::Member> Stack::members() const {
    std::vector<Member> members;
    const auto add = [&members](const std::string& name, ChildProcess* process) {
        if (process != nullptr) members.push_back({name, process});
    };
    add(kHub, mHub.get());
    add(kServiceManager, mServiceManager.get());
    for (const std::string& name : serviceNames()) {
        if (serviceRuns(name)) add(name, &mServices.at(name)->process());
    }
    add(kDaemon, mDaemon.get());
    return members;
}

bool Stack::retry(const std::function<bool()>& done, milliseconds patience) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    for (milliseconds wait = kFirstPause;; wait = std::min(wait * 2, kLongestPause)) {
        if (done()) return true;
        if (std::chrono::steady_clock::now() > deadline) return false;
        pause(wait);
    }
}

}  // namespace sim

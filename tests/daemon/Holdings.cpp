// SPDX-License-Identifier: Apache-2.0
//
// Holdings, from the process file system and the hub's own figures.
#include "Holdings.h"

#include <android-base/unique_fd.h>
#include <ctype.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>

#include "KernelState.h"
#include "TestDevice.h"
#include "embedded/StatsClient.h"

namespace daemontest {

namespace {

const std::set<std::string> kFigures{"processes",    "nodes",       "handles",     "buffers",
                                     "buffer_bytes", "death_links", "descriptors", "queued"};

std::filesystem::directory_iterator entriesOf(pid_t pid, const char* folder) {
    return std::filesystem::directory_iterator(std::filesystem::path("/proc") /
                                               std::to_string(pid) / folder);
}

/**
 * Of its descriptors, those that are sockets or those that are none. Not those that it keeps of
 * processes it knows, "/proc/PID" and below: they come and go with what it is asked, up to a bound
 * that is tested with osutils.
 */
int64_t descriptorsOf(pid_t pid, bool sockets) {
    int64_t count = 0;
    for (const auto& entry : entriesOf(pid, "fd")) {
        std::error_code closedMeanwhile;
        const std::string what = std::filesystem::read_symlink(entry.path(), closedMeanwhile);
        const bool isOfAProcess = what.starts_with("/proc/") && isdigit(what.c_str()[6]);
        if (!closedMeanwhile && !isOfAProcess && what.starts_with("socket:") == sockets) ++count;
    }
    return count;
}

}  // namespace

size_t threadsOf(pid_t pid) {
    return static_cast<size_t>(std::distance(entriesOf(pid, "task"), {}));
}

size_t socketsOf(pid_t pid) {
    return static_cast<size_t>(descriptorsOf(pid, /*sockets=*/true));
}

int64_t privateBytesOf(pid_t pid) {
    std::ifstream rollup("/proc/" + std::to_string(pid) + "/smaps_rollup");
    for (std::string word; rollup >> word;) {
        int64_t kibibytes = 0;
        if (word == "Private_Dirty:" && rollup >> kibibytes) return kibibytes * 1024;
    }
    throw std::runtime_error("nothing is said of the memory of " + std::to_string(pid));
}

pid_t hubPidOf(const std::string& hubPath) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    hubPath.copy(address.sun_path, sizeof(address.sun_path) - 1);
    ucred hub{};
    socklen_t size = sizeof(hub);
    const android::base::unique_fd asked(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    if (connect(asked.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        getsockopt(asked.get(), SOL_SOCKET, SO_PEERCRED, &hub, &size) != 0) {
        throw std::runtime_error("no hub listens at " + hubPath);
    }
    return hub.pid;
}

namespace {

/** A kernel has no queue figure of its own: what is queued is in buffers. */
Holdings kernelHoldings() {
    Holdings holdings{{"queued", 0}};
    for (const auto& [name, value] : binderhost::tests::kernelState()) {
        if (kFigures.contains(name)) holdings[name] = static_cast<int64_t>(value);
    }
    return holdings;
}

}  // namespace

Holdings holdingsOf(pid_t pid, const std::string& hubPath) {
    if (binderhost::tests::onDevice()) {
        Holdings holdings = kernelHoldings();
        holdings["files"] = descriptorsOf(pid, /*sockets=*/false);
        return holdings;
    }
    std::string stats;
    std::string error;
    if (!binderhost::readHubStats(hubPath, &stats, &error)) throw std::runtime_error(error);
    Holdings holdings{{"files", descriptorsOf(pid, /*sockets=*/false)}};
    std::istringstream lines(stats);
    for (std::string name, value; std::getline(lines, name, '=') && std::getline(lines, value);) {
        if (kFigures.contains(name)) holdings[name] = std::stoll(value);
    }
    if (holdings.size() != kFigures.size() + 1) throw std::runtime_error("the hub counts less");
    return holdings;
}

}  // namespace daemontest

// SPDX-License-Identifier: Apache-2.0
#include "TestHub.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "embedded/StatsClient.h"

namespace binderhost::tests {

Stats lookUntil(const std::function<Stats()>& look,
                const std::function<bool(const Stats&)>& right) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    Stats now = look();
    while (!right(now) && std::chrono::steady_clock::now() < deadline)
        now = look();
    return now;
}

TestHub::TestHub(int controlFd) : mControlFd(controlFd) {
    char pattern[] = "/tmp/binderhub-test-XXXXXX";
    mFolder = mkdtemp(pattern) ? pattern : "";
    std::filesystem::permissions(mFolder, std::filesystem::perms(0755));
    startHub();
}

TestHub::~TestHub() {
    if (mHub > 0) stopHub(SIGTERM);
    std::filesystem::remove_all(mFolder);
}

void TestHub::startHub() {
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const std::string program = std::string(PROGRAMS) + "/binderhub";
    const std::string socket = path();
    const std::string readyFd = std::to_string(ready[1]);
    const std::string controlFd = std::to_string(mControlFd);
    const pid_t parent = getpid();
    mHub = fork();
    ASSERT_GE(mHub, 0);
    if (mHub == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) _exit(1);
        close(ready[0]);
        if (mControlFd >= 0) fcntl(mControlFd, F_SETFD, 0);
        execl(program.c_str(), "binderhub", "--socket", socket.c_str(), "--ready-fd",
              readyFd.c_str(), mControlFd < 0 ? nullptr : "--control-fd", controlFd.c_str(),
              nullptr);
        _exit(127);
    }
    close(ready[1]);
    pollfd wait{ready[0], POLLIN, 0};
    char byte = 1;
    EXPECT_EQ(poll(&wait, 1, 20'000), 1);
    EXPECT_EQ(read(ready[0], &byte, 1), 1) << "the hub ended before it listened";
    close(ready[0]);
}

void TestHub::stopHub(int signal) {
    kill(mHub, signal);
    int status = 0;
    EXPECT_EQ(waitpid(mHub, &status, 0), mHub);
    if (signal == SIGTERM) {
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0)
                << "the hub ended with wait status " << status;
    }
    mHub = -1;
}

Stats TestHub::stats() const {
    std::string text;
    std::string error;
    EXPECT_TRUE(readHubStats(path(), &text, &error)) << error;
    Stats out;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const size_t equals = line.find('=');
        out[line.substr(0, equals)] = std::stoull(line.substr(equals + 1));
    }
    return out;
}

void TestHub::awaitStat(const std::string& name, uint64_t value) const {
    const Stats last = lookUntil([this] { return stats(); },
                                 [&](const Stats& now) { return now.at(name) == value; });
    EXPECT_EQ(last.at(name), value) << name;
}

}  // namespace binderhost::tests

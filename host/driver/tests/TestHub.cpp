// SPDX-License-Identifier: Apache-2.0
#include "TestHub.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
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
    if (mHub) stopHub(SIGTERM);
    std::filesystem::remove_all(mFolder);
}

void TestHub::startHub() {
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const std::string program = std::string(PROGRAMS) + "/binderhub";
    const std::string socket = path();
    const std::string readyFd = std::to_string(ready[1]);
    const std::string controlFd = std::to_string(mControlFd);
    mHub = std::make_unique<Child>([&](Child::Door&) {
        alarm(0);
        close(ready[0]);
        if (mControlFd >= 0) fcntl(mControlFd, F_SETFD, 0);
        execl(program.c_str(), "binderhub", "--socket", socket.c_str(), "--ready-fd",
              readyFd.c_str(), mControlFd < 0 ? nullptr : "--control-fd", controlFd.c_str(),
              nullptr);
    });
    close(ready[1]);
    pollfd wait{ready[0], POLLIN, 0};
    char byte = 1;
    EXPECT_EQ(poll(&wait, 1, 20'000), 1);
    EXPECT_EQ(read(ready[0], &byte, 1), 1) << "the hub ended before it listened";
    close(ready[0]);
}

void TestHub::stopHub(int signal) {
    mHub->signal(signal);
    EXPECT_EQ(mHub->wait(), signal == SIGTERM ? 0 : -signal);
    mHub.reset();
}

Stats statsAt(const std::string& path) {
    std::string text;
    std::string error;
    if (!readHubStats(path, &text, &error)) return {};
    Stats out;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const size_t equals = line.find('=');
        out[line.substr(0, equals)] = std::stoull(line.substr(equals + 1));
    }
    return out;
}

void awaitStatAt(const std::string& path, const std::string& name, uint64_t value) {
    const auto right = [&](const Stats& now) {
        return now.contains(name) && now.at(name) == value;
    };
    const Stats last = lookUntil([&] { return statsAt(path); }, right);
    EXPECT_TRUE(right(last)) << name << " is not " << value << " but "
                             << (last.contains(name) ? last.at(name) : 0);
}

Stats TestHub::stats() const {
    Stats out = statsAt(path());
    EXPECT_FALSE(out.empty()) << "the hub does not answer";
    return out;
}

}  // namespace binderhost::tests

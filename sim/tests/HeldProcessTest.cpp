// SPDX-License-Identifier: Apache-2.0
// Children that are held, slowed down, asked to end: what the system says of them meanwhile.
#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "process/ChildProcess.h"

namespace sim {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kLong(20'000);

std::unique_ptr<ChildProcess> shell(const std::string& script, int passedFd = -1) {
    Launch launch;
    launch.passedFd = passedFd;
    launch.program = "/bin/sh";
    launch.arguments = {"sh", "-c", script};
    std::string error;
    auto child = ChildProcess::start(launch, &error);
    EXPECT_NE(child, nullptr) << error;
    return child;
}

/** '-' for a process that is not there. */
char stateOf(pid_t pid) {
    std::string text;
    if (!android::base::ReadFileToString("/proc/" + std::to_string(pid) + "/stat", &text)) {
        return '-';
    }
    return text.at(text.rfind(')') + 2);
}

bool comesTrue(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + kLong;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        poll(nullptr, 0, /*milliseconds=*/1);
    }
    return true;
}

TEST(HeldProcessTest, oneThatHangsStandsStillUntilItIsResumed) {
    const auto child = shell("while true; do :; done");
    for (int round = 0; round < 3; ++round) {
        child->hang();
        EXPECT_TRUE(child->isHung());
        EXPECT_EQ(stateOf(child->pid()), 'T');
        child->hang();
        EXPECT_EQ(stateOf(child->pid()), 'T') << "twice is as once";
        child->resume();
        EXPECT_FALSE(child->isHung());
        EXPECT_TRUE(comesTrue([&] { return stateOf(child->pid()) == 'R'; }));
    }
}

TEST(HeldProcessTest, oneThatIsSlowStandsStillAgainAndAgainAndArrives) {
    const auto endless = shell("while true; do :; done");
    endless->slowDown(milliseconds(2));
    for (const char state : {'T', 'R', 'T', 'R'})
        EXPECT_TRUE(comesTrue([&] { return stateOf(endless->pid()) == state; })) << state;

    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    const android::base::unique_fd reader(ends[0]);
    const android::base::unique_fd writer(ends[1]);
    const auto child = shell("read line <&3; exit 5", reader.get());
    child->slowDown(milliseconds(2));
    EXPECT_TRUE(child->isSlow());
    EXPECT_EQ(write(writer.get(), "\n", 1), 1);
    EXPECT_TRUE(child->awaitEnd(kLong));
    EXPECT_EQ(child->exitStatus(), 5);
    EXPECT_FALSE(child->isSlow());
}

TEST(HeldProcessTest, howeverItIsHeldItCanBeResumedKilledAndAskedToEnd) {
    struct Hold {
        const char* name;
        void (*take)(ChildProcess& child);
    };
    for (const Hold& hold :
         {Hold{"not at all", [](ChildProcess&) {}},
          {"hung", [](ChildProcess& child) { child.hang(); }},
          {"slow", [](ChildProcess& child) { child.slowDown(milliseconds(60'000)); }},
          {"slow, then hung",
           [](ChildProcess& child) {
               child.slowDown(milliseconds(60'000));
               child.hang();
           }},
          {"hung, then slow",
           [](ChildProcess& child) {
               child.hang();
               child.slowDown(milliseconds(60'000));
           }},
          {"stopped by somebody else", [](ChildProcess& child) {
               child.signal(SIGSTOP);
               child.hang();
           }}}) {
        SCOPED_TRACE(hold.name);
        const auto resumed = shell("while true; do :; done");
        hold.take(*resumed);
        resumed->resume();
        EXPECT_FALSE(resumed->isHung() || resumed->isSlow());
        EXPECT_TRUE(comesTrue([&] { return stateOf(resumed->pid()) == 'R'; }));

        const auto killed = shell("exec sleep 1000");
        hold.take(*killed);
        killed->kill();
        EXPECT_EQ(killed->ending(), "signal 9");
        EXPECT_EQ(stateOf(killed->pid()), '-');

        const auto asked = shell("exec sleep 1000");
        hold.take(*asked);
        EXPECT_TRUE(asked->terminate(kLong));
        EXPECT_EQ(asked->ending(), "signal 15");
    }
}

TEST(HeldProcessTest, oneThatDoesNotWantToEndRunsOn) {
    const auto child = shell("trap '' TERM; while true; do :; done");
    ASSERT_TRUE(comesTrue([&] {
        // Its bit in the mask of ignored signals tells that the shell has come that far.
        std::string text;
        const std::string file = "/proc/" + std::to_string(child->pid()) + "/status";
        if (!android::base::ReadFileToString(file, &text)) return false;
        const size_t at = text.find("SigIgn:");
        if (at == std::string::npos) return false;
        return (std::stoull(text.substr(at + 7), nullptr, 16) & (1ULL << (SIGTERM - 1))) != 0;
    }));
    EXPECT_FALSE(child->terminate(milliseconds(1)));
    EXPECT_TRUE(child->running());
}

TEST(HeldProcessTest, whatHasEndedIsNotHeld) {
    const auto child = shell("exit 3");
    ASSERT_TRUE(child->awaitEnd(kLong));
    child->hang();
    EXPECT_FALSE(child->isHung());
    child->slowDown(milliseconds(1));
    EXPECT_FALSE(child->isSlow());
    EXPECT_TRUE(child->terminate(milliseconds(0)));
    EXPECT_EQ(child->ending(), "exit status 3");
}

}  // namespace
}  // namespace sim

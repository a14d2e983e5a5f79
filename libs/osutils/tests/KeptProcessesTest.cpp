// SPDX-License-Identifier: Apache-2.0
//
// Kept processes: what could make a kept descriptor lie, and who has to leave the table.
//
// Below a root made by hand the names are links to folders of real processes. The test's own pid
// stands for one that is used again: it is a process's at all times, and the link says whose.
#include "../KeptProcesses.h"

#include <android-base/file.h>
#include <ctype.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <osutils/Process.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <deque>
#include <filesystem>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "Child.h"

namespace NQS::OS {

using test::Child;

namespace {

const int kReused = getpid();

int ownUid() {
    return static_cast<int>(geteuid());
}

std::optional<int> uidOf(const std::optional<KernelProcess::Owner>& owner) {
    if (!owner) return std::nullopt;
    return owner->uid;
}

/** Of this process, those that lead to the folder of a process or into it. */
std::vector<int> descriptorsOf(int pid) {
    const std::string folder = "/proc/" + std::to_string(pid);
    std::vector<int> found;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code closedMeanwhile;
        const std::string target = std::filesystem::read_symlink(entry.path(), closedMeanwhile);
        // "/proc/1", "/proc/1/cmdline" and, when the process is gone, "/proc/1 (deleted)".
        if (!target.starts_with(folder) || isdigit(target.c_str()[folder.size()])) continue;
        found.push_back(std::stoi(entry.path().filename()));
    }
    return found;
}

/** Takes all descriptors below a lower limit, until it goes. */
class DescriptorFamine {
public:
    explicit DescriptorFamine(rlim_t limit) {
        if (getrlimit(RLIMIT_NOFILE, &mBefore) != 0) abort();
        const rlimit less{.rlim_cur = limit, .rlim_max = mBefore.rlim_max};
        if (setrlimit(RLIMIT_NOFILE, &less) != 0) abort();
        do {
            mOthers.emplace_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
        } while (mOthers.back().ok());
    }
    ~DescriptorFamine() { setrlimit(RLIMIT_NOFILE, &mBefore); }
    DescriptorFamine(const DescriptorFamine&) = delete;
    DescriptorFamine& operator=(const DescriptorFamine&) = delete;

private:
    rlimit mBefore{};
    std::deque<android::base::unique_fd> mOthers;
};

class LinkedRoot {
public:
    void link(int pid, int realPid) {
        const std::string path = std::string(mRoot.path) + "/" + std::to_string(pid);
        unlink(path.c_str());
        if (symlink(("/proc/" + std::to_string(realPid)).c_str(), path.c_str()) != 0) abort();
    }
    [[nodiscard]] const char* path() const { return mRoot.path; }

private:
    TemporaryDir mRoot;
};

bool anyProcess(int) {
    return true;
}

/** Lets a child write to its name in the command line, on request, through a pipe. */
class ObedientChild {
public:
    ObedientChild() {
        if (!android::base::Pipe(&mOrders, &mGive) || !android::base::Pipe(&mAwait, &mDone)) {
            abort();
        }
        mPid = fork();
        if (mPid == 0) obey();
        mOrders.reset();
        mDone.reset();
    }
    ~ObedientChild() {
        kill(mPid, SIGKILL);
        waitpid(mPid, nullptr, 0);
    }
    ObedientChild(const ObedientChild&) = delete;
    ObedientChild& operator=(const ObedientChild&) = delete;

    [[nodiscard]] int pid() const { return mPid; }

    /** 'n'ew name, 'u'ser of an app, 'e'xec of another program. */
    void tell(char order) {
        char byte = order;
        if (write(mGive.get(), &byte, 1) != 1 || read(mAwait.get(), &byte, 1) != 1) abort();
    }

private:
    [[noreturn]] void obey() {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        for (char order; read(mOrders.get(), &order, 1) == 1;) {
            if (order == 'n') strcpy(program_invocation_name, "new");
            if (order == 'u' && setresuid(10050, 10050, 10050) != 0) abort();
            if (order == 'e') {
                dup2(mOrders.get(), STDIN_FILENO);
                dup2(mDone.get(), STDOUT_FILENO);
                // Its first output says that it runs.
                execl("/bin/sh", "executed", "-c", "printf x; read line", nullptr);
                abort();
            }
            if (write(mDone.get(), &order, 1) != 1) abort();
        }
        _exit(0);
    }

    android::base::unique_fd mOrders;
    android::base::unique_fd mGive;
    android::base::unique_fd mAwait;
    android::base::unique_fd mDone;
    pid_t mPid;
};

}  // namespace

TEST(KeptProcesses, FollowsRenamingSetuidAndExec) {
    KeptProcesses kept("/proc");
    ObedientChild child;
    ASSERT_EQ(uidOf(kept.keep(child.pid(), anyProcess)), ownUid());
    child.tell('n');
    EXPECT_EQ(kept.commandName(child.pid()), "new");
    if (geteuid() == 0) {
        child.tell('u');
        EXPECT_EQ(uidOf(kept.owner(child.pid())), 10050);
    }
    child.tell('e');
    EXPECT_EQ(kept.commandName(child.pid()), "executed");
    EXPECT_TRUE(kept.owner(child.pid()).has_value());
    EXPECT_EQ(kept.size(), 1u);
}

TEST(KeptProcesses, GoneProcessIsForgottenHoweverItIsAsked) {
    const struct {
        const char* what;
        void (*ask)(KeptProcesses& kept, int pid);
    } rows[] = {
            {"uid", [](auto& kept, int pid) { EXPECT_EQ(uidOf(kept.owner(pid)), std::nullopt); }},
            {"name", [](auto& kept, int pid) { EXPECT_EQ(kept.commandName(pid), ""); }},
            {"told", [](auto& kept, int pid) { kept.drop(pid); }},
            {"other questions",
             [](auto& kept, int) {
                 for (unsigned i = 0; i < KeptProcesses::kQuestionsPerLook; ++i) {
                     EXPECT_EQ(uidOf(kept.owner(1)), std::nullopt);
                 }
             }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        KeptProcesses kept("/proc");
        Child child([] {});
        ASSERT_EQ(uidOf(kept.keep(child.pid(), anyProcess)), ownUid());
        EXPECT_EQ(descriptorsOf(child.pid()).size(), 2u);
        child.reap();
        row.ask(kept, child.pid());
        EXPECT_EQ(kept.size(), 0u);
        EXPECT_EQ(descriptorsOf(child.pid()).size(), 0u);
    }
}

TEST(KeptProcesses, ZombieKeepsItsUidAndHasNoCommandName) {
    KeptProcesses kept("/proc");
    const Child child([] {});
    ASSERT_EQ(uidOf(kept.keep(child.pid(), anyProcess)), ownUid());
    child.kill();
    EXPECT_EQ(kept.commandName(child.pid()), "");
    EXPECT_EQ(uidOf(kept.owner(child.pid())), ownUid());
}

TEST(KeptProcesses, ReusedPidIsTheNewProcess) {
    for (const bool uidFirst : {true, false}) {
        LinkedRoot root;
        KeptProcesses kept(root.path());
        Child first("first");
        const Child second("second");
        root.link(kReused, first.pid());
        ASSERT_EQ(uidOf(kept.keep(kReused, anyProcess)), ownUid());
        ASSERT_EQ(kept.commandName(kReused), "first");

        first.reap();
        root.link(kReused, second.pid());
        if (uidFirst) {
            EXPECT_EQ(uidOf(kept.owner(kReused)), std::nullopt) << "not root's, nor anyone's";
        } else {
            EXPECT_EQ(kept.commandName(kReused), "");
        }
        EXPECT_EQ(uidOf(kept.keep(kReused, anyProcess)), ownUid());
        EXPECT_EQ(kept.commandName(kReused), "second");
    }
}

TEST(KeptProcesses, ProcessThatGoesWhileItIsBeingKeptIsNotKept) {
    static Child* dying;
    LinkedRoot root;
    KeptProcesses kept(root.path());
    Child child([] {});
    dying = &child;
    root.link(kReused, child.pid());
    const auto diesNow = [](int) {
        dying->reap();
        return true;
    };
    EXPECT_EQ(uidOf(kept.keep(kReused, diesNow)), std::nullopt);
    EXPECT_EQ(kept.size(), 0u);
}

TEST(KeptProcesses, OtherThreadsIdsAreNotKept) {
    std::promise<int> tid;
    std::promise<void> done;
    std::thread thread([&] {
        tid.set_value(gettid());
        done.get_future().wait();
    });
    KeptProcesses kept("/proc");
    EXPECT_EQ(uidOf(kept.keep(tid.get_future().get(), Process::isProcessAlive)), std::nullopt);
    EXPECT_EQ(kept.size(), 0u);
    done.set_value();
    thread.join();
}

TEST(KeptProcesses, ListLongerThanTheTableFindsMostOfWhatTheTableHolds) {
    constexpr int kRounds = 32;
    constexpr size_t kPlaces = 16;
    LinkedRoot root;
    KeptProcesses kept(root.path(), kPlaces);
    size_t found = 0;
    for (int round = 0; round < kRounds; ++round) {
        for (int pid = 1; pid <= static_cast<int>(2 * kPlaces); ++pid) {
            root.link(pid, getpid());
            if (kept.owner(pid)) {
                ++found;
            } else {
                (void)kept.keep(pid, anyProcess);
            }
            ASSERT_LE(kept.size(), kPlaces);
        }
    }
    EXPECT_GT(found, kPlaces * kRounds * 3 / 4);
}

TEST(KeptProcesses, NewcomersComeInWhileAllAreAlive) {
    LinkedRoot root;
    KeptProcesses kept(root.path(), /*most=*/4);
    for (int pid = 1; pid <= 5; ++pid)
        root.link(pid, getpid());
    for (int pid = 1; pid <= 4; ++pid)
        ASSERT_EQ(uidOf(kept.keep(pid, anyProcess)), ownUid());
    for (unsigned i = 1; i < KeptProcesses::kNewcomers; ++i) {
        EXPECT_EQ(uidOf(kept.keep(5, anyProcess)), std::nullopt);
    }
    EXPECT_EQ(uidOf(kept.keep(5, anyProcess)), ownUid());
    EXPECT_EQ(kept.size(), 4u);
}

TEST(KeptProcesses, QuarterOfTheDescriptorLimitIsKept) {
    rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    LinkedRoot root;
    KeptProcesses kept(root.path());
    for (int pid = 1; pid <= 100; ++pid)
        root.link(pid, getpid());
    for (int pid = 1; pid <= 50; ++pid)
        ASSERT_TRUE(kept.keep(pid, anyProcess));
    for (const rlim_t limit : {160, 80}) {
        const rlimit less{.rlim_cur = limit, .rlim_max = before.rlim_max};
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &less), 0);
        for (unsigned i = 0; i < KeptProcesses::kAdditionsPerLimit; ++i)
            (void)kept.keep(51 + static_cast<int>(i), anyProcess);
        EXPECT_EQ(kept.size(), limit / 4);
    }
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
}

TEST(KeptProcesses, AllAreGivenUpWhenDescriptorsRunOut) {
    KeptProcesses kept("/proc");
    const Child child("child");
    const Child other("other");
    ASSERT_TRUE(kept.keep(child.pid(), anyProcess));
    {
        const DescriptorFamine famine(128);
        EXPECT_EQ(kept.commandName(child.pid()), "child");
        EXPECT_EQ(uidOf(kept.keep(other.pid(), anyProcess)), std::nullopt);
        EXPECT_EQ(kept.size(), 0u);
        // With the two descriptors that are free again.
        EXPECT_EQ(uidOf(kept.keep(other.pid(), anyProcess)), ownUid());
    }
}

TEST(KeptProcesses, ManyThreadsMayAskAtOnce) {
    KeptProcesses kept("/proc", /*most=*/4);
    std::deque<Child> living;
    for (int i = 0; i < 6; ++i)
        living.emplace_back("living");
    Child dying("dying");
    std::atomic<int> wrong = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 2000; ++i) {
                const bool isDying = i % 7 == 6;
                const int pid = isDying ? dying.pid() : living[i % 7].pid();
                auto owner = kept.owner(pid);
                if (!owner) owner = kept.keep(pid, Process::isProcessAlive);
                const std::string name = kept.commandName(pid);
                if (owner && owner->uid != ownUid()) ++wrong;
                if (!name.empty() && name != (isDying ? "dying" : "living")) ++wrong;
            }
        });
    }
    dying.reap();
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0);
}

TEST(KeptProcesses, DescriptorsAreClosedAtExec) {
    const Child child([] {});
    ASSERT_EQ(Process::getProcessUid(child.pid()), ownUid());
    const std::vector<int> numbers = descriptorsOf(child.pid());
    EXPECT_EQ(numbers.size(), 2u);
    for (const int fd : numbers)
        EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
}

TEST(KeptProcesses, ForkedChildThatClosedThemStillGetsRightAnswers) {
    const Child kept("kept");
    ASSERT_EQ(Process::getProcessUid(kept.pid()), ownUid());
    ASSERT_EQ(Process::getProcessName(kept.pid(), /*full=*/true), "kept");
    const std::vector<int> keptNumbers = descriptorsOf(kept.pid());
    ASSERT_EQ(keptNumbers.size(), 2u);
    const Child forked([&] {
        // Another file under the same numbers.
        const int other = open("/dev/zero", O_RDONLY | O_CLOEXEC);
        for (const int fd : keptNumbers)
            dup2(other, fd);
        if (Process::getProcessUid(kept.pid()) != ownUid()) abort();
        if (Process::getProcessName(kept.pid(), /*full=*/true) != "kept") abort();
    });
}

TEST(KeptProcesses, AnyProcessHasItsNameStillWhenDescriptorsRanOut) {
    const Child known("known");
    const Child unknown("unknown");
    ASSERT_EQ(Process::getProcessUid(known.pid()), ownUid());
    const DescriptorFamine famine(128);
    EXPECT_EQ(Process::getProcessUid(unknown.pid()), ownUid());
    EXPECT_EQ(Process::getProcessName(unknown.pid(), /*full=*/true), "unknown");
}

TEST(KeptProcesses, DeadProcessIsForgottenByAskingWhetherItLives) {
    Child child([] {});
    ASSERT_EQ(Process::getProcessUid(child.pid()), ownUid());
    child.reap();
    EXPECT_EQ(descriptorsOf(child.pid()).size(), 2u);
    EXPECT_FALSE(Process::isProcessAlive(child.pid()));
    EXPECT_EQ(descriptorsOf(child.pid()).size(), 0u);
}

}  // namespace NQS::OS

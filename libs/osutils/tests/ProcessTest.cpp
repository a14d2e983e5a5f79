// SPDX-License-Identifier: Apache-2.0
//
// Process questions about real processes.
#include <errno.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <osutils/Process.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <future>
#include <thread>

#include "Child.h"

namespace NQS::OS {

using test::Child;

namespace {

constexpr uid_t kAppUid = 10050;

bool isRoot() {
    return geteuid() == 0;
}

void becomeApp() {
    if (setresuid(kAppUid, kAppUid, kAppUid) != 0) abort();
}

void expectKnown(int pid, uid_t uid) {
    EXPECT_TRUE(Process::isProcessAlive(pid));
    EXPECT_EQ(Process::getProcessUid(pid), static_cast<int>(uid));
}

void expectUnknown(int pid) {
    EXPECT_FALSE(Process::isProcessAlive(pid)) << pid;
    EXPECT_EQ(Process::getProcessUid(pid), std::nullopt) << pid;
}

}  // namespace

TEST(Process, OwnProcessIsAliveUnderItsEffectiveUid) {
    expectKnown(getpid(), geteuid());
}

TEST(Process, PidsOfZeroAndLessOrBeyondAllNameNoProcess) {
    // The negative ones address groups of processes in a plain signal call; the great ones are
    // other pids' when a word with fewer bits holds them.
    const int wrapped = getpid() + (1 << 29);
    for (const int pid : {0, -1, -getpgrp(), INT_MIN, INT_MAX, wrapped, wrapped - (1 << 30)}) {
        expectUnknown(pid);
        EXPECT_EQ(Process::getProcessName(pid, /*full=*/true), "") << pid;
        EXPECT_EQ(Process::getProcessName(pid, /*full=*/false), "") << pid;
    }
}

TEST(Process, ProcessOfAnotherUserIsAlive) {
    if (isRoot()) {
        Child app([] {
            becomeApp();
            if (kill(getppid(), 0) == 0 || errno != EPERM) abort();
            if (!Process::isProcessAlive(getppid())) abort();
            if (Process::getProcessUid(getppid()) != 0) abort();
        });
        expectKnown(app.pid(), kAppUid);
    }
    // Of whoever it is: in a container it may be the same user.
    struct stat init = {};
    ASSERT_EQ(stat("/proc/1", &init), 0);
    expectKnown(1, init.st_uid);
}

TEST(Process, UidIsTheEffectiveOne) {
    if (!isRoot()) GTEST_SKIP() << "only root can take another uid";
    const Child child([] {
        if (setresuid(1000, kAppUid, 2000) != 0) abort();
    });
    expectKnown(child.pid(), kAppUid);
}

TEST(Process, UidIsRightForAProcessThatIsNotDumpable) {
    const bool asApp = isRoot();
    const Child child([asApp] {
        if (asApp) becomeApp();
        prctl(PR_SET_DUMPABLE, 0);
    });
    struct stat file;
    const std::string path = "/proc/" + std::to_string(child.pid()) + "/cmdline";
    ASSERT_EQ(stat(path.c_str(), &file), 0);
    ASSERT_EQ(file.st_uid, 0u) << "the files' owner no longer differs: nothing is tested";
    expectKnown(child.pid(), asApp ? kAppUid : geteuid());
}

TEST(Process, ThreadIdOfAnotherThreadNamesNoProcess) {
    std::promise<int> tid;
    std::promise<void> done;
    std::thread thread([&] {
        expectUnknown(gettid());
        tid.set_value(gettid());
        done.get_future().wait();
    });
    const int pid = tid.get_future().get();
    EXPECT_EQ(kill(pid, 0), 0) << "a plain signal call should have found the thread";
    expectUnknown(pid);
    done.set_value();
    thread.join();
}

TEST(Process, ZombieIsAliveUntilItIsReaped) {
    Child child([] { prctl(PR_SET_NAME, "walking"); });
    child.kill();
    expectKnown(child.pid(), geteuid());
    EXPECT_EQ(Process::getProcessName(child.pid(), /*full=*/true), "walking");

    child.reap();
    expectUnknown(child.pid());
    EXPECT_EQ(Process::getProcessName(child.pid(), /*full=*/true), "");
}

TEST(Process, FullNameIsTheFirstStringOfTheCommandLine) {
    const std::string names[] = {
            "/system/bin/audioserver",
            "com.velmar.vrshell:remote",
            "name with blanks (and) brackets\nand a line",
            std::string(100 * 1024, 'n'),
    };
    for (const std::string& name : names) {
        const Child child(name);
        EXPECT_EQ(Process::getProcessName(child.pid(), /*full=*/true), name);
        EXPECT_EQ(Process::getProcessName(child.pid(), /*full=*/false), "cat");
    }
}

TEST(Process, EmptyFirstStringGivesTheShortName) {
    const Child child("");
    EXPECT_EQ(Process::getProcessName(child.pid(), /*full=*/true), "cat");
}

TEST(Process, RewrittenCommandLineIsSeen) {
    const Child child([] {
        // The C library keeps a pointer to the very string that the kernel shows.
        ASSERT_GT(strlen(program_invocation_name), strlen("new"));
        strcpy(program_invocation_name, "new");
    });
    EXPECT_EQ(Process::getProcessName(child.pid(), /*full=*/true), "new");
}

TEST(Process, ShortNameMayHoldAnything) {
    for (const char* name : {"a) S 1", "two\nlines", "line end\n", "123456789012345"}) {
        const Child child([name] { prctl(PR_SET_NAME, name); });
        EXPECT_EQ(Process::getProcessName(child.pid(), /*full=*/false), name);
    }
}

TEST(Process, QuestionsLeaveErrnoAlone) {
    errno = 0;
    EXPECT_FALSE(Process::isProcessAlive(INT_MAX));
    EXPECT_EQ(errno, 0);
}

}  // namespace NQS::OS

// SPDX-License-Identifier: Apache-2.0
// Children have the name, uid, descriptor and environment they were given, and never stay behind.
#include "process/ChildProcess.h"

#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <filesystem>

namespace sim {
namespace {

using android::base::unique_fd;

constexpr int kDeadline = 20'000;  // ms

/** Starts a shell script; what it writes to descriptor 3 is read until its end. */
class Script {
public:
    explicit Script(const std::string& text, Launch launch = {}) {
        std::array<int, 2> ends{};
        EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
        mReader.reset(ends[0]);
        const unique_fd writer(ends[1]);
        launch.program = "/bin/sh";
        if (launch.arguments.empty()) launch.arguments = {"sh"};
        launch.arguments.insert(launch.arguments.end(), {"-c", text});
        launch.passedFd = writer.get();
        std::string error;
        mChild = ChildProcess::start(launch, &error);
        EXPECT_NE(mChild, nullptr) << error;
    }

    std::string output() {
        std::string text;
        std::array<char, 256> chunk;
        while (true) {
            pollfd watched{mReader.get(), POLLIN, 0};
            if (poll(&watched, 1, kDeadline) != 1) return "(no end in time)";
            const ssize_t size = read(mReader.get(), chunk.data(), chunk.size());
            if (size <= 0) return text;
            text.append(chunk.data(), static_cast<size_t>(size));
        }
    }

    ChildProcess& child() { return *mChild; }

private:
    unique_fd mReader;
    std::unique_ptr<ChildProcess> mChild;
};

/** Whether a process ends before the deadline; for processes that are not ours to reap. */
bool ends(pid_t pid) {
    const unique_fd process(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
    if (!process.ok()) return errno == ESRCH;
    pollfd watched{process.get(), POLLIN, 0};
    return poll(&watched, 1, kDeadline) == 1;
}

TEST(ChildProcessTest, itsNameIsTheFirstArgumentWhateverTheProgram) {
    Launch launch;
    launch.arguments = {"com.example.app:remote"};
    Script script("tr '\\0' '\\n' < /proc/$$/cmdline | head -n 1 >&3", launch);
    EXPECT_EQ(script.output(), "com.example.app:remote\n");
}

TEST(ChildProcessTest, itsEnvironmentIsTheParentsWithTheGivenOnTop) {
    setenv("SIM_TEST_KEPT", "kept", 1);
    setenv("SIM_TEST_REPLACED", "old", 1);
    Launch launch;
    launch.environment = {{"SIM_TEST_REPLACED", "new"}, {"SIM_TEST_ADDED", "added"}};
    Script script("echo $SIM_TEST_KEPT $SIM_TEST_REPLACED $SIM_TEST_ADDED >&3", launch);
    EXPECT_EQ(script.output(), "kept new added\n");
}

TEST(ChildProcessTest, itHasNoDescriptorsButTheStandardOnesAndThePassedOne) {
    std::array<int, 2> leak{};
    ASSERT_EQ(pipe2(leak.data(), O_CLOEXEC), 0);
    // The listing itself holds one more.
    Script script("ls /proc/self/fd | wc -l >&3");
    EXPECT_EQ(script.output(), "5\n");
    close(leak[0]);
    close(leak[1]);
}

TEST(ChildProcessTest, blockedSignalsAreNotInherited) {
    sigset_t blocked;
    sigset_t before;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &blocked, &before);
    Script script("grep SigBlk /proc/self/status >&3");
    EXPECT_EQ(script.output(), "SigBlk:\t0000000000000000\n");
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

bool isKeyPressedAtFork = false;

TEST(ChildProcessTest, aKeyPressedForItsParentWhileItStartsIsNoneForIt) {
    sigset_t keys;
    sigset_t before;
    sigemptyset(&keys);
    sigaddset(&keys, SIGINT);
    pthread_sigmask(SIG_BLOCK, &keys, &before);
    pthread_atfork(nullptr, nullptr, [] {
        if (isKeyPressedAtFork) raise(SIGINT);
    });
    isKeyPressedAtFork = true;
    Script script("echo lives >&3");
    isKeyPressedAtFork = false;
    EXPECT_EQ(script.output(), "lives\n");
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

TEST(ChildProcessTest, itTakesTheGivenUidWhenThatIsAllowed) {
    Launch launch;
    launch.uid = 10061;
    if (!ChildProcess::canChangeUids()) {
        launch.program = "/bin/sh";
        launch.arguments = {"sh", "-c", "true"};
        std::string error;
        EXPECT_EQ(ChildProcess::start(launch, &error), nullptr);
        EXPECT_NE(error, "");
        return;
    }
    Script script("echo $(id -u) $(id -g) $(id -G) >&3", launch);
    EXPECT_EQ(script.output(), "10061 10061 10061\n");
}

TEST(ChildProcessTest, aProgramThatIsNotThereOrNotExecutableIsSaidByName) {
    for (const char* program : {"/nowhere/at/all", "/etc/passwd"}) {
        Launch launch;
        launch.program = program;
        launch.arguments = {"x"};
        std::string error;
        EXPECT_EQ(ChildProcess::start(launch, &error), nullptr);
        EXPECT_NE(error.find(program), std::string::npos) << error;
    }
}

TEST(ChildProcessTest, aProgramNeedNotBeReachableForTheNewUid) {
    if (!ChildProcess::canChangeUids()) return;  // nobody to lock out
    TemporaryDir folder;
    const std::string copy = std::string(folder.path) + "/sh";
    std::filesystem::copy_file(std::filesystem::canonical("/bin/sh"), copy);
    ASSERT_EQ(chmod(folder.path, 0700), 0);
    Launch launch;
    launch.program = copy;
    launch.arguments = {"sh", "-c", "exit 7"};
    launch.uid = 10061;
    std::string error;
    const auto child = ChildProcess::start(launch, &error);
    ASSERT_NE(child, nullptr) << error;
    ASSERT_TRUE(ends(child->pid()));
    EXPECT_FALSE(child->running());
    EXPECT_EQ(child->exitStatus(), 7);
}

TEST(ChildProcessTest, itsEndIsKnownOnceItIsReaped) {
    Script leaver("exit 3");
    ASSERT_TRUE(ends(leaver.child().pid()));
    EXPECT_FALSE(leaver.child().running());
    EXPECT_EQ(leaver.child().ending(), "exit status 3");

    Script killed("exec sleep 1000");
    EXPECT_TRUE(killed.child().running());
    EXPECT_EQ(killed.child().exitStatus(), std::nullopt);
    killed.child().kill();
    EXPECT_EQ(killed.child().ending(), "signal 9");
    EXPECT_EQ(killed.child().exitStatus(), 128 + 9);
    EXPECT_EQ(::kill(killed.child().pid(), 0), -1) << "gone, not a zombie";
}

TEST(ChildProcessTest, itDiesWithItsParentEvenUnderAnotherUid) {
    std::array<int, 2> pids{};
    ASSERT_EQ(pipe2(pids.data(), O_CLOEXEC), 0);
    const pid_t parent = fork();
    if (parent == 0) {
        Launch launch;
        launch.program = "/bin/sleep";
        launch.arguments = {"sleep", "1000"};
        if (ChildProcess::canChangeUids()) launch.uid = 10061;
        std::string error;
        const auto child = ChildProcess::start(launch, &error);
        const pid_t pid = child == nullptr ? 0 : child->pid();
        if (write(pids[1], &pid, sizeof(pid)) != sizeof(pid)) _exit(1);
        pause();
        _exit(0);
    }
    pid_t child = 0;
    ASSERT_EQ(read(pids[0], &child, sizeof(child)), static_cast<ssize_t>(sizeof(child)));
    ASSERT_GT(child, 0);
    ::kill(parent, SIGKILL);
    EXPECT_TRUE(ends(child));
    EXPECT_EQ(waitpid(parent, nullptr, 0), parent);
    close(pids[0]);
    close(pids[1]);
}

}  // namespace
}  // namespace sim

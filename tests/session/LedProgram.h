// SPDX-License-Identifier: Apache-2.0
//
// A headset that the test leads: over pipes, as a program does, or at a terminal, as a person does.
// It and all that it starts is gone with this object, or with the test.
#pragma once

#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <gtest/gtest.h>
#include <json/value.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/inotify.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "process/LineChannel.h"
#include "scenario/DumpPath.h"

namespace sim {

class LedProgram {
public:
    enum class Through { Pipes, Terminal };

    /** With a folder for temporary files of its own, and one for state unless it is stated. */
    LedProgram(Through through, std::vector<std::string> arguments,
               const std::string& program = std::string(PROGRAMS) + "/headset",
               const std::string& state = "")
          : mTerminal(through == Through::Terminal),
            mStateFolder(state.empty() ? mState.path : state) {
        mWatch.reset(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
        inotify_add_watch(mWatch.get(), mTemp.path, IN_CREATE);
        arguments.insert(arguments.begin(), program);
        start(std::move(arguments));
    }

    ~LedProgram() {
        if (!mStatus) kill(mPid, SIGKILL);
        static_cast<void>(finish());
    }

    void type(const std::string& text) {
        ASSERT_EQ(write(mInput.get(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }

    /** Reads until the text has been printed, after what was awaited before. */
    [[nodiscard]] bool prints(const std::string& text) {
        while (true) {
            const size_t found = mText.find(text, mPassed);
            if (found != std::string::npos) {
                mPassed = found + text.size();
                return true;
            }
            if (!readMore()) return false;
        }
    }

    /** The next line as JSON; null when there is none. */
    [[nodiscard]] Json::Value nextObject() {
        const size_t from = mPassed;
        if (!prints("\n")) return {};
        Json::Value value;
        const std::string line = mText.substr(from, mPassed - from);
        EXPECT_TRUE(scenario::parseJson(line, &value)) << line;
        return value;
    }

    /** The next answer, and before it what happened. */
    [[nodiscard]] Json::Value nextAnswer() {
        while (true) {
            Json::Value object = nextObject();
            if (object.isNull() || object.isMember("answer")) return object;
            mHappened.push_back(toLine(object));
        }
    }

    /** Waits until it has begun to boot a headset: its folder is there. */
    [[nodiscard]] bool beginsToBoot() {
        // The thread sanitizer makes files of its own there.
        while (leftovers() == 0) {
            pollfd watched{mWatch.get(), POLLIN, 0};
            std::array<char, 4096> news;
            if (poll(&watched, 1, left()) != 1) return false;
            static_cast<void>(read(mWatch.get(), news.data(), news.size()));
        }
        return true;
    }

    /** Kills a process that it has started, by its name or an argument. */
    void killChild(const std::string& name) {
        const std::string pid = std::to_string(mPid);
        std::string children;
        android::base::ReadFileToString("/proc/" + pid + "/task/" + pid + "/children", &children);
        std::istringstream pids(children);
        for (pid_t child = 0; pids >> child;) {
            std::string arguments;
            android::base::ReadFileToString("/proc/" + std::to_string(child) + "/cmdline",
                                            &arguments);
            const bool isIt = ('\0' + arguments).find('\0' + name + '\0') != std::string::npos;
            if (isIt) return static_cast<void>(kill(child, SIGKILL));
        }
        FAIL() << "no child is called " << name;
    }

    void signal(int number) { kill(mPid, number); }
    void endInput() { mInput.reset(); }
    void stopReading() { mOutput.reset(); }

    /** Reads to the end; the exit status, 128 + signal number; absent when time is over. */
    [[nodiscard]] std::optional<int> finish() {
        while (readMore()) {
        }
        if (mStatus) return mStatus;
        const int pidfd = static_cast<int>(syscall(SYS_pidfd_open, mPid, 0));
        const android::base::unique_fd end(pidfd);
        pollfd watched{pidfd, POLLIN, 0};
        if (poll(&watched, 1, left()) != 1) return {};
        int status = 0;
        waitpid(mPid, &status, 0);
        mStatus = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
        return mStatus;
    }

    [[nodiscard]] const std::string& text() const { return mText; }
    [[nodiscard]] const std::vector<std::string>& happened() const { return mHappened; }
    [[nodiscard]] std::string folder() const { return mTemp.path; }
    [[nodiscard]] const std::string& stateFolder() const { return mStateFolder; }
    [[nodiscard]] std::string historyFile() const { return mStateFolder + "/headset/history"; }
    /** What it left in the folder for temporary files. */
    [[nodiscard]] size_t leftovers() const {
        // A process that is killed as it starts leaves a file of the thread sanitizer's own here.
        const std::filesystem::directory_iterator entries(mTemp.path);
        return static_cast<size_t>(std::count_if(begin(entries), end(entries), [](auto& entry) {
            return entry.path().filename().string().starts_with("headset.");
        }));
    }

private:
    void start(std::vector<std::string> arguments) {
        std::vector<char*> argv;
        for (std::string& argument : arguments)
            argv.push_back(argument.data());
        argv.push_back(nullptr);
        const pid_t parent = getpid();
        std::array<int, 2> in{};
        std::array<int, 2> out{};
        int master = -1;
        winsize size{24, 200, 0, 0};
        if (mTerminal) {
            mPid = forkpty(&master, nullptr, nullptr, &size);
        } else {
            ASSERT_EQ(pipe2(in.data(), O_CLOEXEC), 0);
            ASSERT_EQ(pipe2(out.data(), O_CLOEXEC), 0);
            mPid = fork();
        }
        if (mPid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            setenv("TMPDIR", mTemp.path, 1);
            setenv("XDG_STATE_HOME", mStateFolder.c_str(), 1);
            setenv("TERM", "xterm", 1);
            setenv("NO_COLOR", "1", 1);
            if (!mTerminal) {
                dup2(in[0], STDIN_FILENO);
                dup2(out[1], STDOUT_FILENO);
            }
            if (getppid() == parent) execv(argv[0], argv.data());
            _exit(127);
        }
        ASSERT_GT(mPid, 0);
        if (!mTerminal) {
            close(in[0]);
            close(out[1]);
        }
        mInput.reset(mTerminal ? dup(master) : in[1]);
        mOutput.reset(mTerminal ? master : out[0]);
    }

    [[nodiscard]] int left() const { return millisecondsUntil(mDeadline); }

    bool readMore() {
        pollfd watched{mOutput.get(), POLLIN, 0};
        if (!mOutput.ok() || poll(&watched, 1, left()) != 1) return false;
        std::array<char, 4096> chunk;
        const ssize_t size = read(mOutput.get(), chunk.data(), chunk.size());
        if (size <= 0) return false;
        mText.append(chunk.data(), static_cast<size_t>(size));
        return true;
    }

    const LineChannel::Deadline mDeadline =
            std::chrono::steady_clock::now() + std::chrono::seconds(60);
    const bool mTerminal;
    TemporaryDir mTemp;
    TemporaryDir mState;
    const std::string mStateFolder;
    android::base::unique_fd mWatch;
    android::base::unique_fd mInput;
    android::base::unique_fd mOutput;
    pid_t mPid = -1;
    std::optional<int> mStatus;
    std::string mText;
    size_t mPassed = 0;
    std::vector<std::string> mHappened;
};

}  // namespace sim

// SPDX-License-Identifier: Apache-2.0
//
// A process of the session.
//
// Problem: a session is a dozen real processes that must have chosen names and uids, must tell
// when they cannot be started, and must never outlive the session, however that ends.
//
// Usage: fill a Launch, call start(); the destructor kills and reaps. A child is also killed by
// the kernel when the thread that started it ends, so even SIGKILL of the parent leaves nothing.
//
// Limits: one descriptor besides the standard three reaches the child, as kPassedFd.
#pragma once

#include <android-base/unique_fd.h>
#include <sys/types.h>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "process/SlowMotion.h"

namespace sim {

struct Launch {
    /** Path of the executable; opened before the uid changes, so only the file need be executable
     *  for the new uid, not the folders above it reachable. */
    std::string program;
    /** argv; the first string is the name under which the process is known. */
    std::vector<std::string> arguments;
    /** Set in addition to the parent's environment. */
    std::map<std::string, std::string> environment;
    /** User and group id to run under; absent: the parent's. */
    std::optional<uid_t> uid;
    /** With a uid, as root: the real uid stays root's, so that it can take another uid later. */
    bool keepsRoot = false;
    /** Run in the parent while the child stands before its exec; what it says, unless it is empty,
     *  is why the child must not go on. */
    std::function<std::string(pid_t child)> beforeExec;
    /** Arrives in the child as kPassedFd; -1: none. Stays the caller's. */
    int passedFd = -1;
    /** Takes the child's standard output and error (appended); empty: nowhere. */
    std::string logFile;
    /** Takes the standard output in the log file's place; -1: none. Stays the caller's. */
    int outputFd = -1;
    /** For a program that a person uses: it keeps the parent's terminal, standard streams and
     *  process group, so the keys that they press reach it. No passedFd, logFile or outputFd. */
    bool isPersons = false;
};

/** Makes a uid and the group id of that number this process's. False: not allowed. */
[[nodiscard]] bool takeIdentity(uid_t uid, bool keepsRoot);

class ChildProcess {
public:
    static constexpr int kPassedFd = 3;

    /** Null when it cannot be started, with the reason in error. */
    [[nodiscard]] static std::unique_ptr<ChildProcess> start(const Launch& launch,
                                                             std::string* error);

    /** Whether this process can give its children other uids (root in a full user namespace). */
    [[nodiscard]] static bool canChangeUids();

    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    /** Stays what it was after the end; the number may then be another process's. */
    [[nodiscard]] pid_t pid() const { return mPid; }

    /** Readable when the process has ended; -1 when the system has no descriptors left. */
    [[nodiscard]] int endFd() const { return mEndFd.get(); }

    /** Whether it runs now; reaps it when it has ended. */
    [[nodiscard]] bool running();

    /** How it ended: "exit status 1", "signal 9"; empty while it runs. */
    [[nodiscard]] std::string ending() const { return mEnding; }

    /** Exit status, or 128 + signal number, as a shell says it; absent while it runs. */
    [[nodiscard]] std::optional<int> exitStatus() const { return mExitStatus; }

    /** Sends a signal; nothing when it has been reaped. */
    void signal(int number);

    /** Kills it and waits until it is gone: afterwards nobody finds its pid alive. */
    void kill();

    /** Asks it to end, also when it hangs, and waits. False when it still runs after that time. */
    [[nodiscard]] bool terminate(std::chrono::milliseconds patience);
    /** Waits until it has ended by itself. False when it still runs after that time. */
    [[nodiscard]] bool awaitEnd(std::chrono::milliseconds patience);

    /** Stops every thread of it, and returns when all of them have. It is slow no more. */
    void hang();
    /** Lets it run on, at its full speed. */
    void resume();
    /** Whether hang() holds it. */
    [[nodiscard]] bool isHung() const { return mIsHung; }

    /** Holds it that long at a time, with a millisecond between, until it is resumed. */
    void slowDown(std::chrono::milliseconds held);
    [[nodiscard]] bool isSlow() const { return mSlowMotion != nullptr; }

private:
    explicit ChildProcess(pid_t pid);
    void ended(int waitStatus);

    const pid_t mPid;
    const android::base::unique_fd mEndFd;
    std::string mEnding;
    std::optional<int> mExitStatus;
    bool mIsHung = false;
    std::unique_ptr<SlowMotion> mSlowMotion;
};

}  // namespace sim

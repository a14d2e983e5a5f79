// SPDX-License-Identifier: Apache-2.0
// A process of the session: fork, identity, exec.
#include "process/ChildProcess.h"

#include <android-base/unique_fd.h>
#include <errno.h>
#include <fcntl.h>
#include <grp.h>
#include <linux/close_range.h>
#include <poll.h>
#include <signal.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <string_view>

namespace sim {
namespace {

using android::base::unique_fd;

// Any uid outside the usual range of people: enough to see whether the call is allowed at all.
constexpr uid_t kProbeUid = 10050;

std::vector<std::string> mergedEnvironment(const std::map<std::string, std::string>& extra) {
    std::vector<std::string> merged;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string_view text(*entry);
        if (!extra.contains(std::string(text.substr(0, text.find('='))))) merged.emplace_back(text);
    }
    for (const auto& [name, value] : extra)
        merged.emplace_back(name).append("=").append(value);
    return merged;
}

std::vector<char*> pointersTo(const std::vector<std::string>& strings) {
    std::vector<char*> pointers;
    pointers.reserve(strings.size() + 1);
    for (const std::string& string : strings)
        pointers.push_back(const_cast<char*>(string.c_str()));
    pointers.push_back(nullptr);
    return pointers;
}

/** All that the child needs, made before the fork: after it only system calls are safe. */
struct Prepared {
    unique_fd program;
    unique_fd input;
    unique_fd log;
    unique_fd output;
    unique_fd errorReader;
    unique_fd errorWriter;
    /** Not open when nobody wants the child to wait. */
    unique_fd goReader;
    unique_fd goWriter;
    std::vector<std::string> environment;
    std::vector<char*> argv;
    std::vector<char*> envp;
    int passedFd = -1;
    bool isPersons = false;
    std::optional<uid_t> uid;
    bool keepsRoot = false;
    pid_t parent = 0;
};

[[noreturn]] void reportAndExit(int fd) {
    const int error = errno;
    // Nobody is left to tell when this fails too.
    [[maybe_unused]] const ssize_t written = write(fd, &error, sizeof(error));
    _exit(127);
}

bool placeDescriptors(const Prepared& prepared) {
    return dup2(prepared.input.get(), STDIN_FILENO) >= 0 &&
           dup2(prepared.output.get(), STDOUT_FILENO) >= 0 &&
           dup2(prepared.log.get(), STDERR_FILENO) >= 0 &&
           (prepared.passedFd < 0 || dup2(prepared.passedFd, ChildProcess::kPassedFd) >= 0);
}

bool mayGo(const Prepared& prepared) {
    // A copy kept here would hide the parent's end.
    close(prepared.goWriter.get());
    char byte = 0;
    return TEMP_FAILURE_RETRY(read(prepared.goReader.get(), &byte, 1)) == 1;
}

/** Keys pressed for the session's controller are not meant for its children. */
void leaveKeysToParent() {
    setpgid(0, 0);
    // Those pressed since the fork came here, too, and wait where the parent has them blocked.
    sigset_t keys;
    sigemptyset(&keys);
    sigaddset(&keys, SIGINT);
    sigaddset(&keys, SIGQUIT);
    const timespec now{};
    while (sigtimedwait(&keys, nullptr, &now) > 0) {
    }
}

[[noreturn]] void runChild(const Prepared& prepared) {
    if (!prepared.isPersons) {
        leaveKeysToParent();
        if (!placeDescriptors(prepared)) reportAndExit(prepared.errorWriter.get());
    }
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    // Whoever started the session may have left descriptors open in it: they end here.
    close_range(prepared.passedFd < 0 ? ChildProcess::kPassedFd : ChildProcess::kPassedFd + 1, ~0U,
                CLOSE_RANGE_CLOEXEC);
    if (prepared.uid && !takeIdentity(*prepared.uid, prepared.keepsRoot))
        reportAndExit(prepared.errorWriter.get());
    // A change of identity clears the death signal, so it is asked for afterwards; a parent that
    // has ended before that is seen by the comparison.
    if (prctl(PR_SET_PDEATHSIG, SIGKILL) != 0) reportAndExit(prepared.errorWriter.get());
    if (getppid() != prepared.parent) _exit(127);
    if (prepared.goReader.ok() && !mayGo(prepared)) _exit(127);
    syscall(SYS_execveat, prepared.program.get(), "", prepared.argv.data(), prepared.envp.data(),
            AT_EMPTY_PATH);
    reportAndExit(prepared.errorWriter.get());
}

/** Moves a descriptor out of the numbers that placeDescriptors() writes to. */
unique_fd aboveReserved(unique_fd fd) {
    return unique_fd(fcntl(fd.get(), F_DUPFD_CLOEXEC, ChildProcess::kPassedFd + 1));
}

bool prepare(const Launch& launch, Prepared* out, std::string* error) {
    const std::string log = launch.logFile.empty() ? "/dev/null" : launch.logFile;
    out->program = aboveReserved(unique_fd(open(launch.program.c_str(), O_PATH | O_CLOEXEC)));
    if (!out->program.ok()) {
        *error = launch.program + ": " + strerror(errno);
        return false;
    }
    out->input = aboveReserved(unique_fd(open("/dev/null", O_RDONLY | O_CLOEXEC)));
    out->log = aboveReserved(
            unique_fd(open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600)));
    const int written = launch.outputFd < 0 ? out->log.get() : launch.outputFd;
    out->output = unique_fd(fcntl(written, F_DUPFD_CLOEXEC, ChildProcess::kPassedFd + 1));
    if (!out->input.ok() || !out->log.ok() || !out->output.ok()) {
        *error = log + ": " + strerror(errno);
        return false;
    }
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        *error = std::string("pipe: ") + strerror(errno);
        return false;
    }
    out->errorReader = unique_fd(ends[0]);
    out->errorWriter = aboveReserved(unique_fd(ends[1]));
    if (launch.beforeExec) {
        if (pipe2(ends.data(), O_CLOEXEC) != 0) {
            *error = std::string("pipe: ") + strerror(errno);
            return false;
        }
        out->goReader = aboveReserved(unique_fd(ends[0]));
        out->goWriter = aboveReserved(unique_fd(ends[1]));
    }
    out->environment = mergedEnvironment(launch.environment);
    out->argv = pointersTo(launch.arguments);
    out->envp = pointersTo(out->environment);
    out->passedFd = launch.passedFd;
    out->isPersons = launch.isPersons;
    out->uid = launch.uid;
    out->keepsRoot = launch.keepsRoot;
    out->parent = getpid();
    return true;
}

}  // namespace

bool takeIdentity(uid_t uid, bool keepsRoot) {
    return setgroups(0, nullptr) == 0 && setresgid(uid, uid, uid) == 0 &&
           setresuid(keepsRoot ? 0 : uid, uid, uid) == 0;
}

std::unique_ptr<ChildProcess> ChildProcess::start(const Launch& launch, std::string* error) {
    Prepared prepared;
    if (!prepare(launch, &prepared, error)) return nullptr;
    unique_fd passed;
    if (prepared.passedFd >= 0) {
        passed.reset(fcntl(prepared.passedFd, F_DUPFD_CLOEXEC, kPassedFd + 1));
        prepared.passedFd = passed.get();
    }
    const pid_t pid = fork();
    if (pid < 0) {
        *error = std::string("fork: ") + strerror(errno);
        return nullptr;
    }
    if (pid == 0) runChild(prepared);
    prepared.errorWriter.reset();
    std::unique_ptr<ChildProcess> child(new ChildProcess(pid));
    if (launch.beforeExec) {
        const std::string problem = launch.beforeExec(pid);
        if (!problem.empty()) {
            *error = launch.program + ": " + problem;
            return nullptr;
        }
        // This process holds the other end as well: no signal, whatever has become of the child.
        if (write(prepared.goWriter.get(), "", 1) != 1) {
            *error = std::string("pipe: ") + strerror(errno);
            return nullptr;
        }
    }
    int childError = 0;
    const ssize_t size =
            TEMP_FAILURE_RETRY(read(prepared.errorReader.get(), &childError, sizeof(childError)));
    if (size != 0) {
        *error = launch.program + ": " + strerror(childError);
        return nullptr;
    }
    return child;
}

bool ChildProcess::canChangeUids() {
    if (geteuid() != 0) return false;
    const pid_t pid = fork();
    if (pid == 0) _exit(takeIdentity(kProbeUid, /*keepsRoot=*/false) ? 0 : 1);
    int status = 1;
    return pid > 0 && TEMP_FAILURE_RETRY(waitpid(pid, &status, 0)) == pid && status == 0;
}

ChildProcess::ChildProcess(pid_t pid)
      : mPid(pid), mEndFd(static_cast<int>(syscall(SYS_pidfd_open, pid, 0))) {}

ChildProcess::~ChildProcess() {
    kill();
}

bool ChildProcess::running() {
    int status = 0;
    if (!mExitStatus && waitpid(mPid, &status, WNOHANG) == mPid) ended(status);
    return !mExitStatus;
}

void ChildProcess::signal(int number) {
    if (running()) ::kill(mPid, number);
}

void ChildProcess::kill() {
    if (!running()) return;
    ::kill(mPid, SIGKILL);
    int status = 0;
    if (TEMP_FAILURE_RETRY(waitpid(mPid, &status, 0)) == mPid) ended(status);
}

bool ChildProcess::awaitEnd(std::chrono::milliseconds patience) {
    if (!running()) return true;
    pollfd end{mEndFd.get(), POLLIN, 0};
    const int ready = TEMP_FAILURE_RETRY(poll(&end, 1, static_cast<int>(patience.count())));
    return ready > 0 && !running();
}

bool ChildProcess::terminate(std::chrono::milliseconds patience) {
    signal(SIGTERM);
    resume();
    return awaitEnd(patience);
}

void ChildProcess::hang() {
    mSlowMotion.reset();
    if (mIsHung || !running()) return;
    // Whatever has stopped it before, this stop is the one that is waited for.
    ::kill(mPid, SIGCONT);
    ::kill(mPid, SIGSTOP);
    int status = 0;
    if (TEMP_FAILURE_RETRY(waitpid(mPid, &status, WUNTRACED)) != mPid) return;
    mIsHung = WIFSTOPPED(status);
    if (!mIsHung) ended(status);
}

void ChildProcess::resume() {
    mSlowMotion.reset();
    mIsHung = false;
    signal(SIGCONT);
}

void ChildProcess::slowDown(std::chrono::milliseconds held) {
    resume();
    if (!running() || !mEndFd.ok()) return;
    mSlowMotion = std::make_unique<SlowMotion>(
            unique_fd(fcntl(mEndFd.get(), F_DUPFD_CLOEXEC, kPassedFd + 1)), held);
}

void ChildProcess::ended(int waitStatus) {
    mSlowMotion.reset();
    mIsHung = false;
    if (WIFSIGNALED(waitStatus)) {
        mExitStatus = 128 + WTERMSIG(waitStatus);
        mEnding = "signal " + std::to_string(WTERMSIG(waitStatus));
    } else {
        mExitStatus = WEXITSTATUS(waitStatus);
        mEnding = "exit status " + std::to_string(WEXITSTATUS(waitStatus));
    }
}

}  // namespace sim

// SPDX-License-Identifier: Apache-2.0
//
// Tool process.
#include "tests/ToolProcess.h"

#include <android-base/file.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tools {

using android::base::unique_fd;

namespace {

constexpr int kPatienceMs = 30'000;

[[noreturn]] void die(const char* what) {
    perror(what);
    abort();
}

void place(int fd, int number) {
    if (fd >= 0 && dup2(fd, number) < 0) _exit(126);
}

[[noreturn]] void becomeProgram(const std::vector<std::string>& words, const Surroundings& around,
                                pid_t parent) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(126);
    place(around.in, STDIN_FILENO);
    place(around.out, STDOUT_FILENO);
    place(around.err, STDERR_FILENO);
    place(around.ready, ToolProcess::kReadyFd);
    if (around.closeOut) close(STDOUT_FILENO);
    setenv("BINDER_DRIVER", around.driver.c_str(), /*overwrite=*/1);
    std::vector<char*> argv;
    for (const std::string& word : words)
        argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    execv((std::string(PROGRAMS "/") + words[0]).c_str(), argv.data());
    perror(words[0].c_str());
    _exit(127);
}

unique_fd memoryFile() {
    unique_fd file(memfd_create("output", MFD_CLOEXEC));
    if (!file.ok()) die("memfd_create");
    return file;
}

std::string contents(const unique_fd& file) {
    std::string text;
    if (lseek(file.get(), 0, SEEK_SET) != 0 || !android::base::ReadFdToString(file, &text)) {
        die("memory file");
    }
    return text;
}

pid_t launch(const std::vector<std::string>& words, const Surroundings& surroundings) {
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid < 0) die("fork");
    if (pid == 0) becomeProgram(words, surroundings, parent);
    return pid;
}

}  // namespace

ToolProcess::ToolProcess(const std::vector<std::string>& words, const Surroundings& surroundings)
      : mPid(launch(words, surroundings)) {}

ToolProcess::~ToolProcess() {
    if (mReaped) return;
    kill(mPid, SIGKILL);
    waitpid(mPid, nullptr, 0);
}

void ToolProcess::stop() const {
    siginfo_t stopped{};
    if (kill(mPid, SIGSTOP) != 0 || waitid(P_PID, id_t(mPid), &stopped, WSTOPPED) != 0) {
        die("stop");
    }
}

void ToolProcess::goOn() const {
    if (kill(mPid, SIGCONT) != 0) die("SIGCONT");
}

int ToolProcess::wait() {
    const unique_fd process(static_cast<int>(syscall(SYS_pidfd_open, mPid, 0)));
    pollfd ended{.fd = process.get(), .events = POLLIN, .revents = 0};
    if (TEMP_FAILURE_RETRY(poll(&ended, 1, kPatienceMs)) != 1) return -1;
    int status = 0;
    if (waitpid(mPid, &status, 0) != mPid) die("waitpid");
    mReaped = true;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

Transcript runTool(const std::vector<std::string>& words, Surroundings surroundings) {
    const unique_fd out = memoryFile();
    const unique_fd err = memoryFile();
    if (surroundings.out < 0) surroundings.out = out.get();
    if (surroundings.err < 0) surroundings.err = err.get();
    Transcript transcript;
    {
        ToolProcess process(words, surroundings);
        transcript.status = process.wait();
    }
    transcript.out = contents(out);
    transcript.err = contents(err);
    return transcript;
}

}  // namespace tools

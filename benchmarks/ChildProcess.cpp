// SPDX-License-Identifier: Apache-2.0
#include "ChildProcess.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace {

[[noreturn]] void fail(const char* what) {
    perror(what);
    exit(1);
}

}  // namespace

void leaveRoot() {
    constexpr uid_t kNobody = 65534;
    if (geteuid() == 0 && setresuid(kNobody, kNobody, kNobody) != 0) fail("leave root");
}

pid_t startChild(const std::function<void()>& body) {
    const pid_t pid = fork();
    if (pid < 0) fail("fork");
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        body();
        _exit(0);
    }
    return pid;
}

pid_t startReady(const std::function<void(int)>& body) {
    int ready[2];
    if (pipe(ready) != 0) fail("pipe");
    const pid_t pid = startChild([&] {
        close(ready[0]);
        body(ready[1]);
    });
    close(ready[1]);
    char byte;
    if (read(ready[0], &byte, 1) != 1) {
        fprintf(stderr, "a process did not become ready\n");
        exit(1);
    }
    close(ready[0]);
    return pid;
}

pid_t startServer(std::vector<std::string> command) {
    return startReady([&command](int readyFd) {
        command.emplace_back("--ready-fd");
        command.push_back(std::to_string(readyFd));
        std::vector<char*> arguments;
        arguments.reserve(command.size() + 1);
        for (std::string& word : command)
            arguments.push_back(word.data());
        arguments.push_back(nullptr);
        execv(arguments[0], arguments.data());
        perror(arguments[0]);
        _exit(127);
    });
}

void stopChild(pid_t pid) {
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}

// SPDX-License-Identifier: Apache-2.0
// A person's shell inside a running stack.
#include "session/PersonsShell.h"

#include <android-base/file.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>

#include "session/SessionError.h"

namespace sim {
namespace {

constexpr int kHangUpMilliseconds = 2000;
const char* const kDefaultShell = "/bin/sh";
const char* const kPrompt = "(headset) ";
// The person's own settings come first, so that what they do to PATH is not the last word.
const char* const kBashSettings =
        "[ -f ~/.bashrc ] && . ~/.bashrc\n"
        "PATH=\"$HEADSET_PROGRAMS:$PATH\"\n"
        "PS1=\"(headset) $PS1\"\n";

std::string valueOf(const char* variable, const char* otherwise) {
    const char* value = getenv(variable);
    return value == nullptr || *value == '\0' ? otherwise : value;
}

bool isBash(const std::string& shell) {
    return std::filesystem::path(shell).filename() == "bash";
}

std::vector<std::string> shellCommand(const Stack& stack) {
    const std::string shell = valueOf("SHELL", kDefaultShell);
    if (!isBash(shell)) return {shell};
    const std::string settings = stack.folder().file("bashrc");
    if (!android::base::WriteStringToFile(kBashSettings, settings)) {
        throw SessionError("cannot write " + settings);
    }
    return {shell, "--rcfile", settings};
}

Launch launchOf(const Stack& stack, const std::vector<std::string>& command) {
    Launch launch;
    // It looks the command up, takes scripts too, and says what is wrong as shells say it.
    launch.program = kDefaultShell;
    launch.arguments = {"sh", "-c", "exec \"$@\"", "sh"};
    const auto words = command.empty() ? shellCommand(stack) : command;
    launch.arguments.insert(launch.arguments.end(), words.begin(), words.end());
    launch.environment = stack.environment();
    launch.environment["PATH"] = stack.programs() + ":" + valueOf("PATH", "/usr/bin:/bin");
    launch.environment["HEADSET_PROGRAMS"] = stack.programs();
    if (!isBash(words[0])) launch.environment["PS1"] = std::string(kPrompt) + "$ ";
    launch.isPersons = true;
    return launch;
}

/** For the rest of this process's life, whose calling thread has them blocked. */
void ignoreKeys() {
    sigset_t keys;
    sigemptyset(&keys);
    for (const int number : {SIGINT, SIGQUIT}) {
        sigaddset(&keys, number);
        signal(number, SIG_IGN);
    }
    // One that is blocked would wait all the same.
    pthread_sigmask(SIG_UNBLOCK, &keys, nullptr);
}

}  // namespace

bool PersonsShell::isInteractive(const std::vector<std::string>& command) {
    return command.empty() && isatty(STDIN_FILENO) == 1;
}

PersonsShell::PersonsShell(const Stack& stack, const std::vector<std::string>& command)
      : mTerminal([]() -> std::optional<Terminal> {
            Terminal terminal;
            terminal.group = tcgetpgrp(STDIN_FILENO);
            if (terminal.group < 0 || tcgetattr(STDIN_FILENO, &terminal.modes) != 0) return {};
            return terminal;
        }()) {
    std::string error;
    mProcess = ChildProcess::start(launchOf(stack, command), &error);
    if (mProcess == nullptr) throw SessionError("cannot start " + error);
    ignoreKeys();
}

PersonsShell::~PersonsShell() {
    mProcess->kill();
    if (!mTerminal || tcgetpgrp(STDIN_FILENO) == mTerminal->group) return;
    // A shell that was killed had no time for this. Whoever is not in front is stopped by SIGTTOU
    // unless it is blocked.
    sigset_t output;
    sigset_t before;
    sigemptyset(&output);
    sigaddset(&output, SIGTTOU);
    pthread_sigmask(SIG_BLOCK, &output, &before);
    tcsetpgrp(STDIN_FILENO, mTerminal->group);
    tcsetattr(STDIN_FILENO, TCSADRAIN, &mTerminal->modes);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void PersonsShell::hangUp() {
    mProcess->signal(SIGHUP);
    mProcess->signal(SIGCONT);
    pollfd watched{mProcess->endFd(), POLLIN, 0};
    TEMP_FAILURE_RETRY(poll(&watched, 1, kHangUpMilliseconds));
}

}  // namespace sim

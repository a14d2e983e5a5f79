// SPDX-License-Identifier: Apache-2.0
//
// A person's shell, or a command of theirs, inside a running stack.
//
// It has this process's terminal and standard streams, speaks to the stack through its environment
// and finds the stack's programs first. It stays in this process's group until it makes one of its
// own: keys reach whatever is in front, and from then on this process takes no notice of them, as a
// program that runs a command for somebody should, nor of those pressed while the session is taken
// down. The terminal is given back as it was.
//
// One thread. Errors as Stack's.
#pragma once

#include <sys/types.h>
#include <termios.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "session/Stack.h"

namespace sim {

class PersonsShell {
public:
    /** Starts it; command empty: the person's shell. The stack has booted, and outlives this. */
    PersonsShell(const Stack& stack, const std::vector<std::string>& command);
    /** Kills it when it still runs. */
    ~PersonsShell();
    PersonsShell(const PersonsShell&) = delete;
    PersonsShell& operator=(const PersonsShell&) = delete;

    /** Whether somebody types: no command was given, and the input is a terminal. */
    [[nodiscard]] static bool isInteractive(const std::vector<std::string>& command);

    [[nodiscard]] ChildProcess& process() { return *mProcess; }

    /** Asks it to end, with its jobs, as when the terminal is closed; not for ever. */
    void hangUp();

private:
    struct Terminal {
        pid_t group = 0;  // the one in front
        termios modes{};
    };

    const std::optional<Terminal> mTerminal;
    std::unique_ptr<ChildProcess> mProcess;
};

}  // namespace sim

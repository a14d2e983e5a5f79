// SPDX-License-Identifier: Apache-2.0
//
// dumpsys.
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <iostream>

#include "Dumpsys.h"

int main(int argc, char** argv) {
    // A reader of the output that goes away ends the dump, not the program.
    signal(SIGPIPE, SIG_IGN);
    if (!tools::fillStandardDescriptors()) return EXIT_FAILURE;
    const auto connect = [](std::ostream& err) {
        return tools::connectToServiceManager("dumpsys", err);
    };
    const int status =
            tools::dumpsysMain({argv + 1, argv + argc}, connect, STDOUT_FILENO, std::cerr);
    // A thread may still be inside a call to a service that does not answer: nothing that it uses
    // may be torn down.
    _exit(status);
}

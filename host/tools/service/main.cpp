// SPDX-License-Identifier: Apache-2.0
//
// service.
#include <stdlib.h>
#include <unistd.h>

#include <iostream>

#include "ServiceTool.h"

int main(int argc, char** argv) {
    if (!tools::fillStandardDescriptors()) return EXIT_FAILURE;
    const auto connect = [](std::ostream& err) {
        return tools::connectToServiceManager("service", err);
    };
    int status = tools::serviceMain({argv + 1, argv + argc}, connect, std::cout, std::cerr);
    std::cout.flush();
    if (!std::cout) {
        std::cerr << "service: cannot write the output\n";
        status = EXIT_FAILURE;
    }
    // A thread may still be inside a call to a service that does not answer: nothing that it uses
    // may be torn down.
    _exit(status);
}

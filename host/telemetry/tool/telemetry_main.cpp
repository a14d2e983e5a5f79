// SPDX-License-Identifier: Apache-2.0
//
// telemetry.
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <iostream>
#include <system_error>

#include "TelemetryTool.h"

int main(int argc, char** argv) {
    const char* sink = getenv("HOST_TELEMETRY");
    std::error_code
            ignored;  // Without the program's folder there are no descriptions, that is all.
    const auto program = std::filesystem::read_symlink("/proc/self/exe", ignored);
    const hosttelemetry::ToolEnvironment environment{
            .sink = sink == nullptr ? "" : sink,
            .schemas = program.parent_path() / "telemetry-events",
            .hangUpFd = STDOUT_FILENO,
    };
    const int status =
            hosttelemetry::telemetry({argv + 1, argv + argc}, environment, std::cout, std::cerr);
    std::cout.flush();
    if (std::cout) return status;
    std::cerr << "telemetry: cannot write the output\n";
    return 1;
}

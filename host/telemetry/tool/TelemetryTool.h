// SPDX-License-Identifier: Apache-2.0
//
// Telemetry tool: prints the events of a sink.
//
//      telemetry [--json] [FILE]            those that are in it
//      telemetry --follow [--json] [FILE]   those, and then each as it comes, until interrupted
//
// Exit status: 0; 1 when the file cannot be read or the output not be written, with the reason on
// `err`; 2 for a command line that is none, with the usage on `err`. Text in the file that is no
// event is skipped and told of on `err`.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace hosttelemetry {

/** What the tool takes from where it runs. */
struct ToolEnvironment {
    /** The file when the command line names none; empty: it must. */
    std::string sink;
    /** Folder of the events' descriptions. */
    std::string schemas;
    /** Following ends when this descriptor's other side has gone; -1: never. */
    int hangUpFd = -1;
};

[[nodiscard]] int telemetry(const std::vector<std::string>& arguments,
                            const ToolEnvironment& environment, std::ostream& out,
                            std::ostream& err);

}  // namespace hosttelemetry

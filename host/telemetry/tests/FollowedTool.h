// SPDX-License-Identifier: Apache-2.0
//
// Followed tool: the built program, following a sink, and its lines as they come.
#pragma once

#include <android-base/unique_fd.h>

#include <optional>
#include <string>

#include "../../testing/Child.h"

namespace hosttelemetry::test {

class FollowedTool {
public:
    /** Runs `telemetry --follow --json PATH`. */
    explicit FollowedTool(const std::string& path);
    /** The next line without its end; empty when none comes within the deadline. */
    [[nodiscard]] std::optional<std::string> nextLine();

    /** Closes this side of the tool's output, as a reader that has seen enough does. */
    void hangUp() { mOutput.reset(); }

    /** The exit status, or minus a signal; empty when it does not end within the deadline. */
    [[nodiscard]] std::optional<int> wait();

private:
    android::base::unique_fd mOutput;
    /** Kills it when it still runs. */
    std::optional<hosttesting::Child> mChild;
    std::string mText;
};

}  // namespace hosttelemetry::test

// SPDX-License-Identifier: Apache-2.0
//
// Followed tool: the built program, following a sink, and its lines as they come.
#pragma once

#include <android-base/unique_fd.h>
#include <sys/types.h>

#include <optional>
#include <string>

namespace hosttelemetry::test {

class FollowedTool {
public:
    /** Runs `telemetry --follow --json PATH`. */
    explicit FollowedTool(const std::string& path);
    /** Kills it when it still runs. */
    ~FollowedTool();
    FollowedTool(const FollowedTool&) = delete;
    FollowedTool& operator=(const FollowedTool&) = delete;

    /** The next line without its end; empty when none comes within the deadline. */
    [[nodiscard]] std::optional<std::string> nextLine();

    /** Closes this side of the tool's output, as a reader that has seen enough does. */
    void hangUp() { mOutput.reset(); }

    /** The exit status, or minus a signal; empty when it does not end within the deadline. */
    [[nodiscard]] std::optional<int> wait();

private:
    pid_t mPid = 0;
    android::base::unique_fd mOutput;
    std::string mText;
};

}  // namespace hosttelemetry::test

// SPDX-License-Identifier: Apache-2.0
//
// Sample stack: a hub, a service manager and sample services of one's own, in a temporary folder.
#pragma once

#include <android-base/file.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/ToolProcess.h"

namespace tools {

/** Start what is needed, in this order. All of it is gone with the object. */
class SampleStack {
public:
    /** In the opposite order, so that nobody sees another go. */
    ~SampleStack();
    void startHub();
    void startServiceManager();
    /** A process with services of these names; see SampleService.cpp for what they do. */
    ToolProcess& startServices(const std::vector<std::string>& names);

    /** What a process on this stack needs. */
    [[nodiscard]] Surroundings surroundings() const;
    [[nodiscard]] std::string folder() const { return mFolder.path; }

private:
    ToolProcess& start(const std::vector<std::string>& words);

    TemporaryDir mFolder;
    std::vector<std::unique_ptr<ToolProcess>> mProcesses;
};

}  // namespace tools

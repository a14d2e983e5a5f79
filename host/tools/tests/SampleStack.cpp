// SPDX-License-Identifier: Apache-2.0
//
// Sample stack.
#include "tests/SampleStack.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

namespace tools {

using android::base::unique_fd;

namespace {

constexpr int kReadyPatienceMs = 30'000;

}  // namespace

SampleStack::~SampleStack() {
    while (!mProcesses.empty())
        mProcesses.pop_back();
}

Surroundings SampleStack::surroundings() const {
    return {.driver = folder() + "/hub"};
}

ToolProcess& SampleStack::start(const std::vector<std::string>& words) {
    unique_fd readEnd;
    unique_fd writeEnd;
    if (!android::base::Pipe(&readEnd, &writeEnd, O_CLOEXEC)) abort();
    Surroundings around = surroundings();
    around.ready = writeEnd.get();
    ToolProcess& process = *mProcesses.emplace_back(std::make_unique<ToolProcess>(words, around));
    writeEnd.reset();
    pollfd readable{.fd = readEnd.get(), .events = POLLIN, .revents = 0};
    char byte = 0;
    EXPECT_EQ(TEMP_FAILURE_RETRY(poll(&readable, 1, kReadyPatienceMs)), 1) << words[0];
    EXPECT_EQ(read(readEnd.get(), &byte, 1), 1) << words[0] << " did not come up";
    return process;
}

void SampleStack::startHub() {
    static_cast<void>(start({"binderhub", "--ready-fd", std::to_string(ToolProcess::kReadyFd)}));
}

void SampleStack::startServiceManager() {
    static_cast<void>(
            start({"servicemanager", "--ready-fd", std::to_string(ToolProcess::kReadyFd)}));
}

ToolProcess& SampleStack::startServices(const std::vector<std::string>& names) {
    std::vector<std::string> words{"sample_service"};
    words.insert(words.end(), names.begin(), names.end());
    return start(words);
}

}  // namespace tools

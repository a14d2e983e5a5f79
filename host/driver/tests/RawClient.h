// SPDX-License-Identifier: Apache-2.0
//
// RawClient: a client in the test's own process.
//
// It opens a driver of its own, so it is a process to the hub. The kernel knows processes by their
// pids: there a test wants PeerClient.
#pragma once

#include <memory>
#include <string>

#include "StepClient.h"
#include "driver/Driver.h"

namespace binderhost::tests {

class RawClient : public StepClient {
public:
    explicit RawClient(const std::string& path) {
        std::string error;
        mDriver = openDriver(path, &error);
        if (!mDriver) throw std::runtime_error(error);
    }

    /** Another thread's view of the same process. */
    explicit RawClient(const RawClient* sibling) : mDriver(sibling->mDriver) {}

    [[nodiscard]] Driver& driver() { return *mDriver; }

    [[nodiscard]] int exchange(const Commands& commands, bool read) override {
        uint8_t room[512];
        binder_write_read bwr{};
        bwr.write_buffer = reinterpret_cast<uintptr_t>(commands.bytes.data());
        bwr.write_size = commands.bytes.size();
        bwr.read_buffer = reinterpret_cast<uintptr_t>(room);
        bwr.read_size = read ? sizeof(room) : 0;
        const int status = mDriver->writeRead(&bwr);
        std::vector<Return> returns = cut(room, bwr.read_consumed);
        for (Return& each : returns)
            each.copyBuffer();
        keep(std::move(returns));
        return status;
    }
    [[nodiscard]] int becomeContextManager() override { return mDriver->becomeContextManager(); }

private:
    std::shared_ptr<Driver> mDriver;
};

}  // namespace binderhost::tests

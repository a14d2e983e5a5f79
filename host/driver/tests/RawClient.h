// SPDX-License-Identifier: Apache-2.0
//
// RawClient: a client in the test's own process.
//
// It opens a driver of its own, so it is a process to the hub. The kernel knows processes by their
// pids: there a test wants PeerClient.
#pragma once

#include <memory>
#include <span>
#include <string>

#include "StepClient.h"
#include "driver/Driver.h"

namespace binderhost::tests {

/** One BINDER_WRITE_READ; without room for returns it writes only. */
inline int exchangeOnce(Driver& driver, std::span<const uint8_t> commands, std::span<uint32_t> room,
                        size_t* size = nullptr) {
    binder_write_read bwr{};
    bwr.write_buffer = reinterpret_cast<uintptr_t>(commands.data());
    bwr.write_size = commands.size();
    bwr.read_buffer = reinterpret_cast<uintptr_t>(room.data());
    bwr.read_size = room.size_bytes();
    const int status = driver.writeRead(&bwr);
    if (size) *size = bwr.read_consumed;
    return status;
}

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
        uint32_t room[128];
        size_t size = 0;
        const auto wanted = std::span(room).first(read ? std::size(room) : 0);
        const int status = exchangeOnce(*mDriver, commands.bytes, wanted, &size);
        std::vector<Return> returns = cut(reinterpret_cast<const uint8_t*>(room), size);
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

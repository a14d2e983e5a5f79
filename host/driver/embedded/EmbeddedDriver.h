// SPDX-License-Identifier: Apache-2.0
//
// EmbeddedDriver: the driver of a machine without a kernel driver: commands go to a hub.
//
// Threads: any. Each thread has a connection of its own, made at its first call and closed at its
// end or by exitThread(). After a fork the child has to open a driver of its own; this one answers
// -ECONNREFUSED there.
#pragma once

#include <memory>
#include <string>

#include "driver/Driver.h"
#include "embedded/Session.h"

namespace binderhost {

class EmbeddedDriver : public Driver {
public:
    /** Null with a message when no hub answers at the path. */
    [[nodiscard]] static std::unique_ptr<Driver> open(const std::string& path, std::string* error);
    ~EmbeddedDriver() override;

    [[nodiscard]] int writeRead(binder_write_read* bwr) override;
    [[nodiscard]] int becomeContextManager() override;
    [[nodiscard]] int setMaxThreads(uint32_t count) override;
    [[nodiscard]] int enableOnewaySpamDetection(bool enable) override;
    void exitThread() override;
    [[nodiscard]] std::string describe() const override;

private:
    explicit EmbeddedDriver(std::shared_ptr<Session> session);

    const std::shared_ptr<Session> mSession;
};

}  // namespace binderhost

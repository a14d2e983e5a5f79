// SPDX-License-Identifier: Apache-2.0
//
// KernelDriver: the kernel's binder module, through one of its devices.
//
// Threads: any; the kernel tells them apart by itself. The device is closed in a forked child,
// which would otherwise keep its parent alive to the kernel. The driver answers -ECONNREFUSED
// there, also in a child made past the C library's fork.
#pragma once

#include <android-base/unique_fd.h>

#include <memory>
#include <string>

#include "ForkGuard.h"
#include "driver/Driver.h"

namespace binderhost {

class KernelDriver : public Driver {
public:
    /**
     * Opens a device and maps its buffer. Null with a message that names the device when it is
     * missing, not permitted, no binder device, or of another version of the protocol.
     */
    [[nodiscard]] static std::unique_ptr<Driver> open(const std::string& path, std::string* error);
    ~KernelDriver() override;

    [[nodiscard]] int writeRead(binder_write_read* bwr) override;
    /**
     * A predecessor that has ended stays context manager until the kernel has closed its device:
     * a second long, -EBUSY is not taken for an answer.
     */
    [[nodiscard]] int becomeContextManager() override;
    [[nodiscard]] int setMaxThreads(uint32_t count) override;
    [[nodiscard]] int enableOnewaySpamDetection(bool enable) override;
    void exitThread() override;
    [[nodiscard]] std::string describe() const override;

private:
    /** What the process may have undelivered, as on a device: 1 MiB less two pages. */
    static constexpr size_t kBufferSize = 1024 * 1024 - 2 * 4096;

    KernelDriver(std::string path, android::base::unique_fd device, void* buffer);

    /** 0 or a negative errno. */
    [[nodiscard]] int control(unsigned long request, void* argument) const;

    const std::string mPath;
    const pid_t mPid;
    android::base::unique_fd mDevice;
    void* const mBuffer;
    ForkGuard mGuard{&mDevice};
};

}  // namespace binderhost

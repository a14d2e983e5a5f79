// SPDX-License-Identifier: Apache-2.0
//
// The seam below the binder runtime.
//
// Problem: the same runtime must work on a kernel's binder device and on a machine that has none.
// The runtime therefore speaks the kernel's command language (BC_* and BR_* of
// <linux/android/binder.h>) through this interface and does not know who answers.
//
//      IPCThreadState ── BC_* ──▶  Driver  ── ioctl  ──▶ binder device       (kernel driver)
//                     ◀── BR_* ──          ── socket ──▶ hub, a process      (embedded driver)
//
// Usage: openDriver() once per process; every thread then calls writeRead(). A thread is known to
// the driver from its first call until exitThread() (or its death).
#pragma once

#include <linux/android/binder.h>

#include <cstdint>
#include <memory>
#include <string>

namespace binderhost {

class Driver {
public:
    virtual ~Driver() = default;
    Driver(const Driver&) = delete;
    Driver& operator=(const Driver&) = delete;

    /**
     * One BINDER_WRITE_READ for the calling thread: hands over the commands in the write buffer,
     * then, when read_size is not zero, waits until there is something to read.
     *
     * Returns 0, or a negative errno: -EINTR (a signal; nothing lost, call again), -ECONNREFUSED
     * (the driver's other side is gone for good), -EINVAL (the write buffer holds something that
     * is no command), -EAGAIN (the process has as many threads as it may have). write_consumed and
     * read_consumed are always set; consumed commands are not to be sent again. After a return with
     * write_consumed == write_size the memory that commands pointed to (payloads, offsets) is no
     * longer looked at.
     *
     * Buffers named by BR_TRANSACTION and BR_REPLY belong to the driver until the process hands
     * them back with BC_FREE_BUFFER, on any thread. They are writable by this process (a kernel's
     * are not: do not write to them).
     *
     * A looper that writes BC_REPLY in a call that also reads promises not to send a BC_TRANSACTION
     * before its next read has returned something other than BR_NOOP and BR_TRANSACTION_COMPLETE.
     * A driver may then treat it as idle at once, and hand back the completion without a round
     * trip.
     */
    [[nodiscard]] virtual int writeRead(binder_write_read* bwr) = 0;

    /** Takes handle 0. 0, -EBUSY when another process has it, -EPERM when not allowed to. */
    [[nodiscard]] virtual int becomeContextManager() = 0;

    /** How many threads BR_SPAWN_LOOPER may ask for in total. 0 or a negative errno. */
    [[nodiscard]] virtual int setMaxThreads(uint32_t count) = 0;

    /** Asks for BR_ONEWAY_SPAM_SUSPECT. 0, or -ENOTTY when the driver does not know it. */
    [[nodiscard]] virtual int enableOnewaySpamDetection(bool enable) = 0;

    /** The calling thread will not call again; its unanswered callers get BR_DEAD_REPLY. */
    virtual void exitThread() = 0;

    /** What it talks to, for messages: "/dev/binder" or "hub at /run/user/1000/..." */
    [[nodiscard]] virtual std::string describe() const = 0;

protected:
    Driver() = default;
};

/**
 * Which device or socket to use: the environment variable BINDER_DRIVER; else the hub's default
 * socket, in $XDG_RUNTIME_DIR or in a folder below /tmp that only its owner can enter.
 */
[[nodiscard]] std::string driverPath();

/** Whether a path is that of a device; what is missing is taken for one where only devices are. */
[[nodiscard]] bool namesDevice(const std::string& path);

/**
 * Opens the driver at a path: a device gives the kernel driver, a socket the embedded driver. Null
 * when it cannot be had, with a message that names the path, what is wrong and what to start.
 */
[[nodiscard]] std::unique_ptr<Driver> openDriver(const std::string& path, std::string* error);

}  // namespace binderhost

// SPDX-License-Identifier: Apache-2.0
//
// The anchor of the runtime over a kernel's binder device: bare BINDER_WRITE_READ.
//
// What it sends and what it hands back is what the runtime sends and hands back for the same call,
// in as many exchanges; nothing is allocated, looked up or kept.
//
//      RawBinder client("/dev/hwbinder");
//      client.transact(/*handle=*/0, /*flags=*/0, data, size);
//      client.exchange([&](uint32_t command, const uint8_t* argument) { ... });
#pragma once

#include <linux/android/binder.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

class RawBinder {
public:
    /** Opens a device and maps its buffer. Ends the benchmark with a message on failure. */
    explicit RawBinder(const char* device);
    ~RawBinder();
    RawBinder(const RawBinder&) = delete;
    RawBinder& operator=(const RawBinder&) = delete;

    /** Takes handle 0 of the device. Ends the benchmark on failure. */
    void becomeContextManager();

    // These queue a command for the next exchange; data must stay until then.
    void put(uint32_t command) { append(&command, sizeof(command)); }
    template <typename T>
    void put(uint32_t command, const T& argument) {
        put(command);
        append(&argument, sizeof(argument));
    }
    void transact(uint32_t handle, uint32_t flags, const void* data, size_t size);
    void reply(const void* data, size_t size);
    /** A one-way call with a single object and nothing else. */
    void sendObject(uint32_t handle, const flat_binder_object& object);
    /** Of a transaction that was read. */
    void freeBuffer(const binder_transaction_data& transaction) {
        put(BC_FREE_BUFFER, transaction.data.ptr.buffer);
    }

    /** Writes what is queued, waits, and hands over each command that was read. */
    template <typename Function>
    void exchange(Function handle) {
        binder_write_read both{};
        both.write_buffer = reinterpret_cast<uintptr_t>(mOut.data());
        both.write_size = mOutSize;
        both.read_buffer = reinterpret_cast<uintptr_t>(mIn);
        both.read_size = sizeof(mIn);
        while (ioctl(mDevice, BINDER_WRITE_READ, &both) != 0) {
            if (errno != EINTR) fail("BINDER_WRITE_READ");
        }
        mOutSize = 0;
        const uint8_t* const end = mIn + both.read_consumed;
        for (const uint8_t* at = mIn; at < end;) {
            const auto command = read<uint32_t>(at);
            handle(command, at + sizeof(command));
            at += sizeof(command) + _IOC_SIZE(command);
        }
    }

    /** What stands at an argument. */
    template <typename T>
    static T read(const uint8_t* argument) {
        T value;
        std::memcpy(&value, argument, sizeof(value));
        return value;
    }

private:
    [[noreturn]] static void fail(const char* what);
    void append(const void* bytes, size_t size);

    int mDevice;
    void* mBuffer;
    std::vector<uint8_t> mOut;
    size_t mOutSize = 0;
    uint8_t mIn[1024];
};

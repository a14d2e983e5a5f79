// SPDX-License-Identifier: Apache-2.0
//
// One call and its answer over a kernel's binder device, by bare ioctl and through the runtime.
//
// Both servers ask who calls and answer with as many bytes as they got; both hand each buffer back
// with the next command that goes anyway; both have one thread. The server is the device's context
// manager, so the two need a device each.
#pragma once

#include <binder/IBinder.h>
#include <binder/Parcel.h>
#include <sys/types.h>

#include <cstdint>
#include <string>

#include "RawBinder.h"

class RawCalls {
public:
    /** Starts the server; the caller is the client. Ends the benchmark on failure. */
    explicit RawCalls(const char* device);
    ~RawCalls();
    RawCalls(const RawCalls&) = delete;
    RawCalls& operator=(const RawCalls&) = delete;

    /** Sends that many bytes there and back. Ends the benchmark on failure. */
    void call(size_t size);

private:
    pid_t mServer;
    RawBinder mClient;
};

/** Over the device, or the hub, that BINDER_DRIVER names. Before the first use of binder. */
class RuntimeCalls {
public:
    RuntimeCalls();
    ~RuntimeCalls();
    RuntimeCalls(const RuntimeCalls&) = delete;
    RuntimeCalls& operator=(const RuntimeCalls&) = delete;

    /** The server's object. Null when it has gone. */
    android::sp<android::IBinder> service() const;

    /** Code of a call that takes an object and keeps it. */
    static constexpr uint32_t kKeep = android::IBinder::FIRST_CALL_TRANSACTION + 1;
    /** Code of a call that answers with the count of those kept, and them. Keeps them no more. */
    static constexpr uint32_t kTake = kKeep + 1;

private:
    pid_t mServer;
};

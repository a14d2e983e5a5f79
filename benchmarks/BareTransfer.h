// SPDX-License-Identifier: Apache-2.0
//
// The anchor of calls with a payload: as many bytes to another process over a socket, and back.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <vector>

class BareTransfer {
public:
    /** Starts the other process. Ends the benchmark on failure. */
    explicit BareTransfer(size_t size);
    ~BareTransfer();
    BareTransfer(const BareTransfer&) = delete;
    BareTransfer& operator=(const BareTransfer&) = delete;

    /** The bytes there, all of them, and then back. */
    void call();

private:
    std::vector<char> mBytes;
    int mSocket;
    pid_t mServer;
};

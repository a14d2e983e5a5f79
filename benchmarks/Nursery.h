// SPDX-License-Identifier: Apache-2.0
//
// Nursery: a process that starts others on request.
//
// A process that forks pays for it afterwards: each page that it writes to is copied once. So the
// one that measures does not start what it looks at.
#pragma once

#include <sys/types.h>

#include <vector>

class Nursery {
public:
    /** Starts the nursery; before the first thread is. Ends the benchmark on failure. */
    Nursery();
    ~Nursery();
    Nursery(const Nursery&) = delete;
    Nursery& operator=(const Nursery&) = delete;

    /**
     * Starts processes that do nothing but exist; where root asks, as an app's user, since root's
     * are no apps. Returns when all are there.
     */
    std::vector<int> start(int count);

    /** Ends and reaps all that were started since the last time. */
    void stopAll();

private:
    pid_t mPid;
    int mSocket;
};

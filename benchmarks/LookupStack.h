// SPDX-License-Identifier: Apache-2.0
//
// LookupStack: a hub, a service manager and a process that has registered services, with a client
// that looks them up. All are processes of their own, so that stacks with few and with many
// services stand side by side.
#pragma once

#include <sys/types.h>

#include <string>

class LookupStack {
public:
    /** Starts everything in the folder. Ends the benchmark on failure. */
    LookupStack(const std::string& folder, int services);
    ~LookupStack();
    LookupStack(const LookupStack&) = delete;
    LookupStack& operator=(const LookupStack&) = delete;

    /** Looks up so many services, one after the other through all names. In seconds for one. */
    [[nodiscard]] double lookUp(int count) const;

private:
    int mSocket;
    pid_t mHub;
    pid_t mServiceManager;
    pid_t mOwner;
    pid_t mClient;
};

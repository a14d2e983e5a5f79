// SPDX-License-Identifier: Apache-2.0
//
// Service host.
//
// Problem: every native service process ends its main() in the same way: publish the services,
// serve until killed.
//
// Usage:
//
//      sp<IBinder> service = new FooService();
//      NQS::OS::ServiceHost host({{"foo", service}});
//      host.startThreadPool();
//
// Threads: the main thread, once. The thread pool has its default size and the main thread joins
// it.
//
// Limits: there is no way back to main() but the end of the process. Callers may arrive as soon as
// the constructor has registered a service; they wait until startThreadPool().
#pragma once

#include <binder/IBinder.h>
#include <utils/StrongPointer.h>

#include <string_view>
#include <utility>
#include <vector>

namespace NQS::OS {

class ServiceHost {
public:
    using Service = std::pair<std::string_view, android::sp<android::IBinder>>;

    /**
     * Registers each service with the service manager, in order, for dumps of the default
     * priority. The service manager holds the reference then; this object keeps none.
     *
     * Has the process ignore SIGPIPE from now on: a dump into a pipe whose reader has gone must
     * fail as a write, not end the process.
     *
     * When the service manager is missing or refuses a service, logs which and why and ends the
     * process with exit status 1: a process that serves nothing is of no use, and whoever started
     * it decides about another attempt.
     */
    explicit ServiceHost(const std::vector<Service>& services);

    ServiceHost(const ServiceHost&) = delete;
    ServiceHost& operator=(const ServiceHost&) = delete;

    /** Starts the thread pool and serves on this thread too. Returns only if the driver fails. */
    void startThreadPool();
};

}  // namespace NQS::OS

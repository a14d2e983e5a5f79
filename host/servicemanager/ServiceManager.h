// SPDX-License-Identifier: Apache-2.0
//
// Service manager: names to binders.
//
// Policy: the last one to add a name has it. A name stands as long as the process that holds its
// binder: the death notice removes it, so that nobody is handed a service that is known to be
// dead. Who waits for a name is told of every adding from then on, and at once when it is there.
//
// Threads: one. All calls and death notices arrive on the thread that serves (a pool of no further
// threads), so there is no lock. Calls out are one-way: no caller and no callback can hold it up.
//
// Ownership: holds a strong reference to each service and each callback until it dies, is replaced
// or is taken back.
#pragma once

#include <android/os/BnServiceManager.h>
#include <binder/IBinder.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Access.h"

namespace servicemanager {

class ServiceManager : public android::os::BnServiceManager,
                       public android::IBinder::DeathRecipient {
public:
    explicit ServiceManager(std::unique_ptr<const Access> access);

    using Status = android::binder::Status;
    using Callback = android::sp<android::os::IServiceCallback>;

    /** Null, with an ok status, when there is none of this name; nothing is waited for. */
    Status getService(const std::string& name, android::sp<android::IBinder>* out) override;
    Status checkService(const std::string& name, android::sp<android::IBinder>* out) override;

    /**
     * EX_SECURITY: the caller may not; EX_ILLEGAL_ARGUMENT: a name that is none, or no binder;
     * EX_ILLEGAL_STATE: the binder is dead already, or there are too many services.
     */
    Status addService(const std::string& name, const android::sp<android::IBinder>& service,
                      bool allowIsolated, int32_t dumpPriority) override;

    /** Names whose priority has a bit in common with the mask, in byte order. */
    Status listServices(int32_t dumpPriority, std::vector<std::string>* out) override;

    /** EX_NULL_POINTER: no callback; EX_ILLEGAL_ARGUMENT, EX_ILLEGAL_STATE as in addService(). */
    Status registerForNotifications(const std::string& name, const Callback& callback) override;

    /** EX_ILLEGAL_STATE: it was not registered for this name. */
    Status unregisterForNotifications(const std::string& name, const Callback& callback) override;

    // What a device declares in its manifests: there is none here.
    Status isDeclared(const std::string& name, bool* out) override;
    Status getDeclaredInstances(const std::string& iface, std::vector<std::string>* out) override;
    Status updatableViaApex(const std::string& name, std::unique_ptr<std::string>* out) override;
    Status getConnectionInfo(const std::string& name,
                             std::unique_ptr<android::os::ConnectionInfo>* out) override;

    // Services that come and go with their clients: EX_UNSUPPORTED_OPERATION.
    Status registerClientCallback(
            const std::string& name, const android::sp<android::IBinder>& service,
            const android::sp<android::os::IClientCallback>& callback) override;
    Status tryUnregisterService(const std::string& name,
                                const android::sp<android::IBinder>& service) override;

    /** Name and registering process of each service, in order of the names. */
    Status getServiceDebugInfo(std::vector<android::os::ServiceDebugInfo>* out) override;

    void binderDied(const android::wp<android::IBinder>& who) override;

private:
    struct Service {
        android::sp<android::IBinder> binder;
        bool allowIsolated = false;
        int32_t dumpPriority = 0;
        /** Of the process that added it; may have been reused by now. */
        pid_t debugPid = 0;
    };

    [[nodiscard]] bool watch(const android::sp<android::IBinder>& binder);
    void unwatch(const android::sp<android::IBinder>& binder);
    void notify(const std::string& name, const android::sp<android::IBinder>& service,
                const Callback& callback);
    void notifyAll(const std::string& name, const android::sp<android::IBinder>& service);

    const std::unique_ptr<const Access> mAccess;
    std::map<std::string, Service> mServices;
    std::map<std::string, std::vector<Callback>> mCallbacks;
    size_t mCallbackCount = 0;
};

}  // namespace servicemanager

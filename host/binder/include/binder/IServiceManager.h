// SPDX-License-Identifier: Apache-2.0
//
// Service manager: names to binders, as C++ programs see it.
//
// Thread-safe. Nothing here is cached: each question is a call to the service manager's process.
#pragma once

#include <binder/IInterface.h>
#include <utils/String16.h>
#include <utils/Vector.h>

namespace android {

class IServiceManager : public IInterface {
public:
    IServiceManager();
    ~IServiceManager() override;
    virtual const String16& getInterfaceDescriptor() const;

    static const int DUMP_FLAG_PRIORITY_CRITICAL = 1 << 0;
    static const int DUMP_FLAG_PRIORITY_HIGH = 1 << 1;
    static const int DUMP_FLAG_PRIORITY_NORMAL = 1 << 2;
    /** Services that did not say; dumped with those of normal priority. */
    static const int DUMP_FLAG_PRIORITY_DEFAULT = 1 << 3;
    static const int DUMP_FLAG_PRIORITY_ALL = DUMP_FLAG_PRIORITY_CRITICAL |
                                              DUMP_FLAG_PRIORITY_HIGH | DUMP_FLAG_PRIORITY_NORMAL |
                                              DUMP_FLAG_PRIORITY_DEFAULT;
    /** The service can dump itself as a protocol buffer. */
    static const int DUMP_FLAG_PROTO = 1 << 4;

    /** Waits up to 5 s for the service to be registered; null when it is not. */
    virtual sp<IBinder> getService(const String16& name) const = 0;
    /** Does not wait. */
    virtual sp<IBinder> checkService(const String16& name) const = 0;
    virtual status_t addService(const String16& name, const sp<IBinder>& service,
                                bool allowIsolated = false,
                                int dumpsysFlags = DUMP_FLAG_PRIORITY_DEFAULT) = 0;
    /** In alphabetical order; empty when the service manager does not answer. */
    virtual Vector<String16> listServices(int dumpsysFlags = DUMP_FLAG_PRIORITY_ALL) = 0;
    /** Waits until the service is registered. Needs a running thread pool. */
    virtual sp<IBinder> waitForService(const String16& name) = 0;
    virtual bool isDeclared(const String16& name) = 0;
};

/**
 * The process's service manager. When none runs at the first call, the process ends with status 1
 * and a message that says what to start.
 */
sp<IServiceManager> defaultServiceManager();

/** Puts another one in its place. Aborts unless it is called before the first use. */
void setDefaultServiceManager(const sp<IServiceManager>& sm);

template <typename INTERFACE>
sp<INTERFACE> waitForService(const String16& name) {
    return interface_cast<INTERFACE>(defaultServiceManager()->waitForService(name));
}

template <typename INTERFACE>
status_t getService(const String16& name, sp<INTERFACE>* outService) {
    *outService = interface_cast<INTERFACE>(defaultServiceManager()->getService(name));
    return *outService == nullptr ? NAME_NOT_FOUND : OK;
}

}  // namespace android

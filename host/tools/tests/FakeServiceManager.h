// SPDX-License-Identifier: Apache-2.0
//
// Fake service manager: names and binders in a map of this process.
#pragma once

#include <binder/IServiceManager.h>

#include <map>
#include <string>

namespace tools {

class FakeServiceManager : public android::IServiceManager {
public:
    /** A null service is one that is listed and gone when it is asked for. */
    void add(const std::string& name, const android::sp<android::IBinder>& service) {
        mServices[android::String16(name.c_str())] = service;
    }
    /** Lets go of all services. */
    void clear() { mServices.clear(); }

    android::sp<android::IBinder> checkService(const android::String16& name) const override {
        const auto service = mServices.find(name);
        return service == mServices.end() ? nullptr : service->second;
    }
    android::sp<android::IBinder> getService(const android::String16& name) const override {
        return checkService(name);
    }
    android::sp<android::IBinder> waitForService(const android::String16& name) override {
        return checkService(name);
    }
    android::status_t addService(const android::String16& name,
                                 const android::sp<android::IBinder>& service,
                                 bool /*allowIsolated*/, int /*dumpsysFlags*/) override {
        mServices[name] = service;
        return android::OK;
    }
    android::Vector<android::String16> listServices(int /*dumpsysFlags*/) override {
        android::Vector<android::String16> names;
        for (const auto& [name, service] : mServices)
            names.add(name);
        return names;
    }
    bool isDeclared(const android::String16& /*name*/) override { return false; }

protected:
    android::IBinder* onAsBinder() override { return nullptr; }

private:
    std::map<android::String16, android::sp<android::IBinder>> mServices;
};

}  // namespace tools

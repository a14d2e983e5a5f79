// SPDX-License-Identifier: Apache-2.0
//
// Fake service manager: lookups and registrations in a map.
#include "FakeServiceManager.h"

#include <log/log.h>
#include <utils/String8.h>

#include <utility>

namespace NQS::OS {

using android::IBinder;
using android::sp;
using android::String16;

FakeServiceManager& FakeServiceManager::installed() {
    static const sp<FakeServiceManager> manager = [] {
        const sp<FakeServiceManager> made = new FakeServiceManager;
        android::setDefaultServiceManager(made);
        return made;
    }();
    manager->clear();
    return *manager;
}

void FakeServiceManager::clear() {
    const std::lock_guard<std::mutex> lock(mMutex);
    mServices.clear();
    mLookups.clear();
    mLookupHook = nullptr;
}

void FakeServiceManager::add(const std::string& name, const sp<IBinder>& service) {
    const std::lock_guard<std::mutex> lock(mMutex);
    mServices[name] = service;
}

void FakeServiceManager::remove(const std::string& name) {
    const std::lock_guard<std::mutex> lock(mMutex);
    mServices.erase(name);
}

void FakeServiceManager::setLookupHook(std::function<void(const std::string&)> hook) {
    const std::lock_guard<std::mutex> lock(mMutex);
    mLookupHook = std::move(hook);
}

int FakeServiceManager::lookups(const std::string& name) const {
    const std::lock_guard<std::mutex> lock(mMutex);
    const auto count = mLookups.find(name);
    return count == mLookups.end() ? 0 : count->second;
}

sp<IBinder> FakeServiceManager::getService(const String16& name) const {
    LOG_ALWAYS_FATAL("a lookup that may block: %s", android::String8(name).c_str());
}

sp<IBinder> FakeServiceManager::checkService(const String16& name) const {
    const std::string key = android::String8(name).c_str();
    std::function<void(const std::string&)> hook;
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        ++mLookups[key];
        hook = mLookupHook;
    }
    if (hook) hook(key);
    const std::lock_guard<std::mutex> lock(mMutex);
    const auto service = mServices.find(key);
    return service == mServices.end() ? nullptr : service->second;
}

android::status_t FakeServiceManager::addService(const String16& name, const sp<IBinder>& service,
                                                 bool /*allowIsolated*/, int /*dumpsysFlags*/) {
    add(android::String8(name).c_str(), service);
    return android::OK;
}

android::Vector<String16> FakeServiceManager::listServices(int /*dumpsysFlags*/) {
    const std::lock_guard<std::mutex> lock(mMutex);
    android::Vector<String16> names;
    for (const auto& [name, service] : mServices) {
        names.push_back(String16(name.c_str()));
    }
    return names;
}

sp<IBinder> FakeServiceManager::waitForService(const String16& name) {
    return getService(name);
}

bool FakeServiceManager::isDeclared(const String16& name) {
    return checkService(name) != nullptr;
}

}  // namespace NQS::OS

// SPDX-License-Identifier: Apache-2.0
//
// Fake service manager: names to in-process binders, and what was looked up.
//
// Usage:
//
//      FakeServiceManager& names = FakeServiceManager::installed();  // clears it
//      names.add("activity", activityManager);
//      ConnectionManager tracker;
//
// Limits: lookup and registration only. Any thread.
#pragma once

#include <android-base/thread_annotations.h>
#include <binder/IServiceManager.h>

#include <functional>
#include <map>
#include <mutex>
#include <string>

namespace NQS::OS {

class FakeServiceManager : public android::IServiceManager {
public:
    /** The program's one default service manager, emptied: no names, no counts, no hook. */
    static FakeServiceManager& installed();

    void clear() EXCLUDES(mMutex);
    void add(const std::string& name, const android::sp<android::IBinder>& service)
            EXCLUDES(mMutex);
    void remove(const std::string& name) EXCLUDES(mMutex);
    /** Run by each lookup, with the name and no lock held, before it is answered. */
    void setLookupHook(std::function<void(const std::string&)> hook) EXCLUDES(mMutex);
    int lookups(const std::string& name) const EXCLUDES(mMutex);

    android::sp<android::IBinder> getService(const android::String16& name) const override;
    android::sp<android::IBinder> checkService(const android::String16& name) const override;
    android::status_t addService(const android::String16& name,
                                 const android::sp<android::IBinder>& service, bool allowIsolated,
                                 int dumpsysFlags) override;
    android::Vector<android::String16> listServices(int dumpsysFlags) override;
    android::sp<android::IBinder> waitForService(const android::String16& name) override;
    bool isDeclared(const android::String16& name) override;

protected:
    android::IBinder* onAsBinder() override { return nullptr; }

private:
    mutable std::mutex mMutex;
    std::map<std::string, android::sp<android::IBinder>> mServices GUARDED_BY(mMutex);
    mutable std::map<std::string, int> mLookups GUARDED_BY(mMutex);
    std::function<void(const std::string&)> mLookupHook GUARDED_BY(mMutex);
};

}  // namespace NQS::OS

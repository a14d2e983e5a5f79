// SPDX-License-Identifier: Apache-2.0
//
// The process's service manager: the C++ class over the generated interface of handle 0.
#include <android-base/thread_annotations.h>
#include <android/os/BnServiceCallback.h>
#include <android/os/IServiceManager.h>
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <log/log.h>
#include <unistd.h>
#include <utils/String8.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace android {
namespace {

using namespace std::chrono_literals;
using AidlServiceManager = os::IServiceManager;

constexpr auto kLookupInterval = 100ms;
constexpr auto kLookupTime = 5s;

std::string utf8(const String16& text) {
    return std::string(String8(text).string());
}

/** Told when a service comes up; waited for by waitForService(). */
class Arrival : public os::BnServiceCallback {
public:
    binder::Status onRegistration(const std::string& /*name*/, const sp<IBinder>& binder) override {
        {
            std::lock_guard lock(mLock);
            mBinder = binder;
        }
        mArrived.notify_all();
        return binder::Status::ok();
    }

    // Analysed without the annotations: waiting needs a unique_lock, which they do not follow.
    sp<IBinder> waitFor(std::chrono::milliseconds time) NO_THREAD_SAFETY_ANALYSIS;

private:
    std::mutex mLock;
    std::condition_variable mArrived;
    sp<IBinder> mBinder GUARDED_BY(mLock);
};

sp<IBinder> Arrival::waitFor(std::chrono::milliseconds time) {
    const auto deadline = std::chrono::steady_clock::now() + time;
    std::unique_lock lock(mLock);
    while (mBinder == nullptr) {
        if (mArrived.wait_until(lock, deadline) == std::cv_status::timeout) break;
    }
    return mBinder;
}

class ServiceManagerClient : public IServiceManager {
public:
    explicit ServiceManagerClient(const sp<AidlServiceManager>& remote) : mRemote(remote) {}

    sp<IBinder> checkService(const String16& name) const override {
        sp<IBinder> found;
        const binder::Status status = mRemote->checkService(utf8(name), &found);
        return status.isOk() ? found : nullptr;
    }

    sp<IBinder> getService(const String16& name) const override {
        const auto deadline = std::chrono::steady_clock::now() + kLookupTime;
        for (;;) {
            if (sp<IBinder> found = checkService(name); found != nullptr) return found;
            if (std::chrono::steady_clock::now() >= deadline) {
                ALOGW("service %s is not there", utf8(name).c_str());
                return nullptr;
            }
            std::this_thread::sleep_for(kLookupInterval);
        }
    }

    status_t addService(const String16& name, const sp<IBinder>& service, bool allowIsolated,
                        int dumpsysFlags) override {
        const binder::Status status =
                mRemote->addService(utf8(name), service, allowIsolated, dumpsysFlags);
        // An exception has no number of its own in this interface.
        if (status.isOk()) return OK;
        return status.transactionError() != OK ? status.transactionError() : status.exceptionCode();
    }

    Vector<String16> listServices(int dumpsysFlags) override {
        std::vector<std::string> names;
        Vector<String16> result;
        if (const binder::Status status = mRemote->listServices(dumpsysFlags, &names);
            !status.isOk()) {
            ALOGE("listServices: %s", status.toString8().string());
            return result;
        }
        for (const std::string& name : names)
            result.add(String16(name.c_str(), name.size()));
        return result;
    }

    sp<IBinder> waitForService(const String16& name) override {
        if (sp<IBinder> found = checkService(name); found != nullptr) return found;
        const sp<Arrival> arrival = new Arrival();
        if (!mRemote->registerForNotifications(utf8(name), arrival).isOk()) return nullptr;
        sp<IBinder> found;
        while (found == nullptr) {
            found = arrival->waitFor(1000ms);
            // For a process whose pool does not run, which hears of nothing.
            if (found == nullptr) found = checkService(name);
        }
        // When this fails the service manager has gone, and the callback with it.
        static_cast<void>(mRemote->unregisterForNotifications(utf8(name), arrival));
        return found;
    }

    bool isDeclared(const String16& name) override {
        bool declared = false;
        return mRemote->isDeclared(utf8(name), &declared).isOk() && declared;
    }

protected:
    IBinder* onAsBinder() override { return IInterface::asBinder(mRemote).get(); }

private:
    const sp<AidlServiceManager> mRemote;
};

/** Guards the one instance. */
std::mutex gLock;
/** Never destroyed: threads may ask until the process has ended. */
IServiceManager* gServiceManager GUARDED_BY(gLock) = nullptr;

void setLocked(const sp<IServiceManager>& sm) REQUIRES(gLock);

void setLocked(const sp<IServiceManager>& sm) {
    gServiceManager = sm.get();
    gServiceManager->incStrong(&gServiceManager);
}

sp<IServiceManager> current() {
    std::lock_guard lock(gLock);
    return gServiceManager;
}

/**
 * Without a service manager nothing can be found or published, and a session starts it before
 * anything else. Not exit(): other threads of this process are running.
 */
[[noreturn]] void giveUp() {
    fprintf(stderr, "no service manager answers on %s: start one with: servicemanager\n",
            ProcessState::self()->getDriverName().c_str());
    _exit(EXIT_FAILURE);
}

}  // namespace

static_assert(IServiceManager::DUMP_FLAG_PRIORITY_ALL == 15);

IServiceManager::IServiceManager() = default;
IServiceManager::~IServiceManager() = default;

const String16& IServiceManager::getInterfaceDescriptor() const {
    return AidlServiceManager::descriptor;
}

sp<IServiceManager> defaultServiceManager() {
    if (sp<IServiceManager> set = current(); set != nullptr) return set;
    const auto remote =
            interface_cast<AidlServiceManager>(ProcessState::self()->getContextObject(nullptr));
    if (remote == nullptr) giveUp();
    const sp<IServiceManager> made = new ServiceManagerClient(remote);
    std::lock_guard lock(gLock);
    if (gServiceManager == nullptr) setLocked(made);
    return gServiceManager;
}

void setDefaultServiceManager(const sp<IServiceManager>& sm) {
    std::lock_guard lock(gLock);
    LOG_ALWAYS_FATAL_IF(sm == nullptr, "setDefaultServiceManager: null");
    LOG_ALWAYS_FATAL_IF(gServiceManager != nullptr,
                        "setDefaultServiceManager: it is in use already");
    setLocked(sm);
}

}  // namespace android

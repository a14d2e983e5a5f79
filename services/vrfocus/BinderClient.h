// SPDX-License-Identifier: Apache-2.0
//
// Service connection: one self-healing connection to a named system service.
//
//                            found
//      [looking up] ----------------------> [connected]     stopped from any state
//       connect thread  <------------------  no thread       by the destructor
//       every interval         died
//
// A service that is missing is looked for at a fixed interval, for as long as it is missing and
// without a word in the log. A new lookup, also after a death, starts without a wait.
//
// Threads: on-connected runs on the connect thread; on-disconnected on the thread that delivers the
// death notice, which then starts the next connect thread. Both may run while the owner is still
// being constructed, and on-disconnected may run before on-connected of the same connection has:
// the next on-connected comes after both in any case.
//
// Locks: mThreadMutex guards starting and joining the connect thread; mServiceMutex the handle and
// its death link; the recipient's own mutex its way back to the connection. A death notice takes
// the recipient's mutex, and inside it first mServiceMutex, then, after letting go of it,
// mThreadMutex. No callback and no outgoing call runs under mServiceMutex.
#pragma once

#include <android-base/thread_annotations.h>
#include <binder/IBinder.h>
#include <binder/IInterface.h>
#include <binder/IServiceManager.h>
#include <log/log.h>
#include <utils/String16.h>
#include <utils/StrongPointer.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

namespace NQS::OS {

template <typename T>
class BinderClient {
public:
    using OnConnected = std::function<void(const android::sp<T>&)>;
    using OnDisconnected = std::function<void()>;
    using InterfaceCast = std::function<android::sp<T>(const android::sp<android::IBinder>&)>;
    using ServiceManager = std::function<android::sp<android::IServiceManager>()>;

    /**
     * Returns after the first lookup, connected or not. When it found the service, on-connected
     * has run. A thread that cannot be started is a std::system_error, here and later.
     */
    BinderClient(std::string_view name, std::chrono::milliseconds retryInterval,
                 const OnConnected& onConnected = ignoreConnected,
                 const OnDisconnected& onDisconnected = ignoreDisconnected,
                 const InterfaceCast& interfaceCast = castInterface,
                 const ServiceManager& serviceManager = findServiceManager);
    BinderClient(const BinderClient&) = delete;
    BinderClient& operator=(const BinderClient&) = delete;

    /** The service; null while it is not connected. */
    virtual android::sp<T> getService() const EXCLUDES(mServiceMutex);

    /**
     * Waits for a callback that is running and interrupts a wait between two lookups. Afterwards
     * no callback runs. Not to be called from a callback.
     */
    virtual ~BinderClient();

private:
    class ServiceDeathRecipient;

    static void ignoreConnected(const android::sp<T>&) {}
    static void ignoreDisconnected() {}
    static android::sp<T> castInterface(const android::sp<android::IBinder>& binder) {
        return android::interface_cast<T>(binder);
    }
    static android::sp<android::IServiceManager> findServiceManager() {
        return android::defaultServiceManager();
    }

    void connectAsync() EXCLUDES(mThreadMutex);
    /** Body of the connect thread: looks up until found or stopped. */
    void connect();
    /** One lookup; whether the service was found and on-connected told. */
    bool attemptConnection() EXCLUDES(mServiceMutex);
    void onServiceDisconnected() EXCLUDES(mServiceMutex, mThreadMutex);
    /** Forgets the service without telling the owner. */
    void resetService() EXCLUDES(mServiceMutex);

    const std::string mName;
    const std::chrono::milliseconds mRetryInterval;
    const OnConnected mOnConnected;
    const OnDisconnected mOnDisconnected;
    const InterfaceCast mInterfaceCast;
    const ServiceManager mServiceManager;
    std::thread mConnectThread GUARDED_BY(mThreadMutex);
    std::mutex mThreadMutex;
    std::promise<void> mStop;
    /** Waited on by the connect thread only. */
    std::future<void> mStopped = mStop.get_future();
    std::promise<void> mFirstAttempt;
    std::atomic<bool> mFirstAttemptSignalled = false;
    /** Cleared to have the current connect thread end before it is joined. */
    std::atomic<bool> mRunning = false;
    /** Set by a death notice on the connect thread itself, which cannot wait for its own end. */
    std::atomic<bool> mLookAgain = false;
    android::sp<T> mService GUARDED_BY(mServiceMutex);
    mutable std::mutex mServiceMutex;
    const android::sp<ServiceDeathRecipient> mDeathRecipient;
};

/** Passes a death on to the connection, for as long as there is one. */
template <typename T>
class BinderClient<T>::ServiceDeathRecipient : public android::IBinder::DeathRecipient {
public:
    explicit ServiceDeathRecipient(BinderClient* client) : mClient(client) {}

    void binderDied(const android::wp<android::IBinder>& /*who*/) override {
        const std::lock_guard<std::mutex> lock(mMutex);
        if (mClient != nullptr) mClient->onServiceDisconnected();
    }

    /** Later deaths do nothing; waits for one that is being handled. */
    void detach() EXCLUDES(mMutex) {
        const std::lock_guard<std::mutex> lock(mMutex);
        mClient = nullptr;
    }

private:
    std::mutex mMutex;
    BinderClient* mClient GUARDED_BY(mMutex);
};

template <typename T>
BinderClient<T>::BinderClient(std::string_view name, std::chrono::milliseconds retryInterval,
                              const OnConnected& onConnected, const OnDisconnected& onDisconnected,
                              const InterfaceCast& interfaceCast,
                              const ServiceManager& serviceManager)
      : mName(name),
        mRetryInterval(retryInterval),
        mOnConnected(onConnected),
        mOnDisconnected(onDisconnected),
        mInterfaceCast(interfaceCast),
        mServiceManager(serviceManager),
        mDeathRecipient(new ServiceDeathRecipient(this)) {
    std::future<void> firstAttempt = mFirstAttempt.get_future();
    connectAsync();
    firstAttempt.wait();
}

template <typename T>
BinderClient<T>::~BinderClient() {
    mDeathRecipient->detach();
    resetService();
    mStop.set_value();
    const std::lock_guard<std::mutex> lock(mThreadMutex);
    if (mConnectThread.joinable()) {
        mRunning = false;
        mConnectThread.join();
    }
}

template <typename T>
android::sp<T> BinderClient<T>::getService() const {
    const std::lock_guard<std::mutex> lock(mServiceMutex);
    return mService;
}

template <typename T>
void BinderClient<T>::connectAsync() {
    const std::lock_guard<std::mutex> lock(mThreadMutex);
    if (mConnectThread.get_id() == std::this_thread::get_id()) {
        mLookAgain = true;
        return;
    }
    if (mConnectThread.joinable()) {
        mRunning = false;
        mConnectThread.join();
    }
    mRunning = true;
    mConnectThread = std::thread([this] { connect(); });
}

template <typename T>
void BinderClient<T>::connect() {
    std::chrono::milliseconds wait{0};
    while (mStopped.valid() && mRunning) {
        if (mStopped.wait_for(wait) == std::future_status::ready) break;
        const bool connected = attemptConnection();
        if (!mFirstAttemptSignalled.exchange(true)) mFirstAttempt.set_value();
        wait = mRetryInterval;
        if (mLookAgain.exchange(false)) {
            wait = std::chrono::milliseconds{0};
        } else if (connected) {
            break;
        }
    }
}

template <typename T>
bool BinderClient<T>::attemptConnection() {
    const android::sp<android::IServiceManager> serviceManager = mServiceManager();
    if (serviceManager == nullptr) return false;
    const android::sp<android::IBinder> binder =
            serviceManager->checkService(android::String16(mName.c_str(), mName.size()));
    if (binder == nullptr) return false;
    const android::sp<T> service = mInterfaceCast(binder);
    if (service == nullptr) {
        // With its tag: a header has no LOG_TAG of its own.
        ALOG(LOG_ERROR, "VrFocus",
             "BinderClient: Failed to convert IBinder to expected service type %s", mName.c_str());
        return false;
    }
    {
        const std::lock_guard<std::mutex> lock(mServiceMutex);
        mService = service;
        // Fails for a local binder, which cannot die, and for one whose death this process has been
        // told of while something still holds it: the service manager hands that one out only until
        // it has been told as well.
        (void)binder->linkToDeath(mDeathRecipient, /*cookie=*/nullptr, /*flags=*/0);
    }
    mOnConnected(service);
    return true;
}

template <typename T>
void BinderClient<T>::onServiceDisconnected() {
    {
        const std::lock_guard<std::mutex> lock(mServiceMutex);
        mService = nullptr;
    }
    mOnDisconnected();
    connectAsync();
}

template <typename T>
void BinderClient<T>::resetService() {
    const std::lock_guard<std::mutex> lock(mServiceMutex);
    if (mService == nullptr) return;
    (void)android::IInterface::asBinder(mService)->unlinkToDeath(
            mDeathRecipient, /*cookie=*/nullptr, /*flags=*/0, /*outRecipient=*/nullptr);
    mService = nullptr;
}

}  // namespace NQS::OS

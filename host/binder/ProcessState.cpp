// SPDX-License-Identifier: Apache-2.0
//
// The process: opening the driver, proxies, the thread pool.
#include <binder/BpBinder.h>
#include <binder/HostDriver.h>
#include <binder/IPCThreadState.h>
#include <binder/ProcessState.h>
#include <log/log.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>

#include "ProcessInternals.h"

namespace android {
namespace {

/** Guards the two below. */
std::mutex gLock;
/** Never destroyed: threads of the pool run until the process has ended. */
ProcessState* gProcess GUARDED_BY(gLock) = nullptr;
/** A driver that a program chose itself, until the process state takes it. */
std::unique_ptr<binderhost::Driver>* gChosenDriver GUARDED_BY(gLock) = nullptr;

std::unique_ptr<binderhost::Driver> openOrExit(const std::string& path) {
    std::string error;
    std::unique_ptr<binderhost::Driver> driver = binderhost::openDriver(path, &error);
    if (driver == nullptr) {
        std::fprintf(stderr, "%s\n", error.c_str());
        std::fflush(nullptr);
        // Handlers of the exit are not run: they might ask for the process state, which is locked.
        _exit(1);
    }
    return driver;
}

}  // namespace

void setProcessDriver(std::unique_ptr<binderhost::Driver> driver) {
    std::lock_guard lock(gLock);
    LOG_ALWAYS_FATAL_IF(gProcess != nullptr, "setProcessDriver: the driver is open already");
    delete gChosenDriver;
    gChosenDriver = new std::unique_ptr<binderhost::Driver>(std::move(driver));
}

ProcessState::ProcessState(std::unique_ptr<Internals> internals)
      : mInternals(std::move(internals)) {
    static_cast<void>(setThreadPoolMaxThreadCount(Internals::kDefaultMaxThreads));
    const int spam = mInternals->driver->enableOnewaySpamDetection(true);
    ALOGE_IF(spam != 0 && spam != -ENOTTY, "no warning of one-way calls that pile up: %s",
             strerror(-spam));
}

ProcessState::~ProcessState() = default;

sp<ProcessState> ProcessState::self() {
    return initWithDriver(nullptr);
}

sp<ProcessState> ProcessState::selfOrNull() {
    std::lock_guard lock(gLock);
    return gProcess;
}

sp<ProcessState> ProcessState::initWithDriver(const char* path) {
    std::lock_guard lock(gLock);
    if (gProcess != nullptr) {
        LOG_ALWAYS_FATAL_IF(path != nullptr, "initWithDriver: the driver is open already");
        return gProcess;
    }
    std::unique_ptr<binderhost::Driver> driver;
    if (gChosenDriver != nullptr) {
        driver = std::move(*gChosenDriver);
        delete gChosenDriver;
        gChosenDriver = nullptr;
    } else {
        driver = openOrExit(path != nullptr ? path : binderhost::driverPath());
    }
    gProcess = new ProcessState(std::make_unique<Internals>(std::move(driver)));
    gProcess->incStrong(&gProcess);
    return gProcess;
}

sp<IBinder> ProcessState::getContextObject(const sp<IBinder>& /*caller*/) {
    return getStrongProxyForHandle(0);
}

sp<IBinder> ProcessState::getStrongProxyForHandle(int32_t handle) {
    IPCThreadState* thread = IPCThreadState::self();
    if (handle == 0 && !mInternals->proxies.contains(0)) {
        // Handle 0 is everyone's, whether somebody stands behind it or not.
        Parcel data;
        if (thread->transact(0, IBinder::PING_TRANSACTION, data, nullptr, 0) == DEAD_OBJECT) {
            return nullptr;
        }
    }
    bool made = false;
    sp<BpBinder> proxy = mInternals->proxies.findOrMake(
            handle, [handle] { return sp<BpBinder>(new BpBinder(handle)); }, &made);
    if (made) thread->incStrongHandle(handle, proxy);
    return proxy;
}

bool ProcessState::becomeContextManager() {
    const int result = mInternals->driver->becomeContextManager();
    if (result == 0) return true;
    ALOGE("becomeContextManager at %s: %s", mInternals->driver->describe().c_str(),
          strerror(-result));
    errno = -result;
    return false;
}

status_t ProcessState::setThreadPoolMaxThreadCount(size_t maxThreads) {
    mInternals->pool.setMaximum(maxThreads);
    const int result = mInternals->driver->setMaxThreads(uint32_t(maxThreads));
    ALOGE_IF(result != 0, "setThreadPoolMaxThreadCount: %s", strerror(-result));
    return result;
}

void ProcessState::startThreadPool() {
    if (!mInternals->poolStarted.exchange(true)) spawnPooledThread(/*isMain=*/true);
}

void ProcessState::giveThreadPoolName() {
    const std::string name = "binder:" + std::to_string(getpid()) + "_" +
                             std::to_string(mInternals->nextThread.fetch_add(1));
    // The kernel takes 15 letters; the number at the end is what tells threads apart.
    pthread_setname_np(pthread_self(),
                       name.substr(name.size() > 15 ? name.size() - 15 : 0).c_str());
}

void ProcessState::spawnPooledThread(bool isMain) {
    if (!mInternals->poolStarted.load()) return;
    try {
        std::thread([this, isMain] {
            giveThreadPoolName();
            IPCThreadState::self()->joinThreadPool(isMain);
        }).detach();
    } catch (const std::system_error& error) {
        ALOGE("no thread for the pool: %s", error.what());
    }
}

String8 ProcessState::getDriverName() {
    return String8(mInternals->driver->describe().c_str());
}

}  // namespace android

// SPDX-License-Identifier: Apache-2.0
//
// IPCThreadState: the thread's one instance, the caller's identity, the pool's loop.
#include <binder/IPCThreadState.h>
#include <log/log.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "ProcessInternals.h"
#include "ThreadQueues.h"

namespace android {
namespace {

thread_local IPCThreadState* tState = nullptr;
/** The thread's data is being destroyed, and the driver's share of it has gone. */
thread_local bool tEnded = false;

/** Says once why the process ends, and ends it. */
[[noreturn]] void exitWithoutDriver(const std::string& driver) {
    static std::atomic<bool> said{false};
    if (said.exchange(true)) {
        for (;;)
            pause();
    }
    std::fprintf(stderr, "the hub has gone: %s\n", driver.c_str());
    std::fflush(nullptr);
    _exit(1);
}

}  // namespace

IPCThreadState::IPCThreadState()
      : mQueues(std::make_unique<Queues>()), mCallingPid(getpid()), mCallingUid(getuid()) {
    mQueues->afterThreadExit = tEnded;
}

IPCThreadState::~IPCThreadState() {
    if (!mQueues->knownToDriver) return;
    flushCommands();
    internals().driver->exitThread();
}

void IPCThreadState::destroy(void* state) {
    // What the destructor does may ask for the instance again.
    tState = static_cast<IPCThreadState*>(state);
    delete tState;
    tState = nullptr;
}

void IPCThreadState::endBeforeDriver() {
    // Thread data goes in the reverse order of its making.
    struct Ender {
        bool armed = false;
        ~Ender() {
            tEnded = true;
            if (tState != nullptr) destroy(tState);
        }
    };
    static thread_local Ender ender;
    ender.armed = true;
}

IPCThreadState* IPCThreadState::self() {
    if (tState != nullptr) return tState;
    // For an instance that never met the driver, or that is made anew by thread data that goes
    // late.
    struct Owner {
        pthread_key_t key{};
        Owner() {
            const auto end = [](void*) {
                if (tState != nullptr) destroy(tState);
            };
            LOG_ALWAYS_FATAL_IF(pthread_key_create(&key, end) != 0, "no key for thread data");
        }
    };
    static const Owner owner;
    tState = new IPCThreadState();
    pthread_setspecific(owner.key, tState);
    return tState;
}

IPCThreadState* IPCThreadState::selfOrNull() {
    return tState;
}

sp<ProcessState> IPCThreadState::process() {
    return ProcessState::self();
}

ProcessState::Internals& IPCThreadState::internals() {
    if (mQueues->process == nullptr) mQueues->process = &ProcessState::self()->internals();
    return *mQueues->process;
}

bool IPCThreadState::isLooper() const {
    return mQueues->looper;
}

int64_t IPCThreadState::clearCallingIdentity() {
    const int64_t token = (int64_t(mCallingUid) << 32) | uint32_t(mCallingPid);
    mCallingPid = getpid();
    mCallingUid = getuid();
    mCallingSid = nullptr;
    return token;
}

void IPCThreadState::restoreCallingIdentity(int64_t token) {
    mCallingUid = uid_t(uint64_t(token) >> 32);
    mCallingPid = pid_t(uint32_t(token));
    // A token has no room for it.
    mCallingSid = nullptr;
}

int64_t IPCThreadState::setCallingWorkSourceUidWithoutPropagation(uid_t uid) {
    const int64_t token = (int64_t(mPropagateWorkSource) << 32) | uint32_t(mWorkSource);
    mWorkSource = int32_t(uid);
    return token;
}

int64_t IPCThreadState::setCallingWorkSourceUid(uid_t uid) {
    const int64_t token = setCallingWorkSourceUidWithoutPropagation(uid);
    mPropagateWorkSource = true;
    return token;
}

int64_t IPCThreadState::clearCallingWorkSource() {
    return setCallingWorkSourceUid(uid_t(kUnsetWorkSource));
}

void IPCThreadState::restoreCallingWorkSource(int64_t token) {
    mWorkSource = int32_t(uint32_t(token));
    mPropagateWorkSource = (token >> 32) != 0;
}

void IPCThreadState::setTheContextObject(const sp<BBinder>& object) {
    internals().contextObject = object;
}

void IPCThreadState::joinThreadPool(bool isMain) {
    ProcessState::Internals& shared = internals();
    mQueues->looper = true;
    mQueues->put(isMain ? BC_ENTER_LOOPER : BC_REGISTER_LOOPER);
    shared.pool.joined();
    status_t status = OK;
    // A thread that the driver asked for goes when it says so; the main ones stay.
    while (status == OK || (status == TIMED_OUT && isMain))
        status = serveOne();
    shared.pool.left();
    if (status == -ECONNREFUSED) exitWithoutDriver(shared.driver->describe());
    // References that came back with the last commands: to release one may bring more.
    while (!mQueues->strongReturns.empty() || !mQueues->weakReturns.empty())
        settle();
    mQueues->put(BC_EXIT_LOOPER);
    mQueues->looper = false;
    flushCommands();
}

void IPCThreadState::stopProcess(bool immediate) {
    flushCommands();
    std::fflush(nullptr);
    if (immediate) _exit(0);
    std::exit(0);
}

}  // namespace android

// SPDX-License-Identifier: Apache-2.0
#include "KernelFanout.h"

#include <binder/Binder.h>
#include <binder/IPCThreadState.h>
#include <binder/ProcessState.h>
#include <linux/futex.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <new>

#include "ChildProcess.h"

using android::BBinder;
using android::IBinder;
using android::IPCThreadState;
using android::Parcel;
using android::ProcessState;
using android::sp;
using android::status_t;

namespace {

[[noreturn]] void fail(const char* what) {
    fprintf(stderr, "fan-out: %s\n", what);
    exit(1);
}

void listenRaw(const char* device, KernelCountdown& countdown) {
    RawBinder binder(device);
    flat_binder_object self{};
    self.hdr.type = BINDER_TYPE_BINDER;
    self.flags = 0x7f | FLAT_BINDER_FLAG_ACCEPTS_FDS;
    self.binder = self.cookie = 1;
    binder.sendObject(/*handle=*/0, self);
    binder.put(BC_ENTER_LOOPER);
    while (true) {
        binder.exchange([&](uint32_t command, const uint8_t* argument) {
            if (command == BR_INCREFS || command == BR_ACQUIRE) {
                binder.put(command == BR_INCREFS ? BC_INCREFS_DONE : BC_ACQUIRE_DONE,
                           RawBinder::read<binder_ptr_cookie>(argument));
            } else if (command == BR_TRANSACTION) {
                binder.freeBuffer(RawBinder::read<binder_transaction_data>(argument));
                countdown.hit();
            }
        });
    }
}

class Listener : public BBinder {
public:
    explicit Listener(KernelCountdown& countdown) : mCountdown(countdown) {}

protected:
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override {
        if (code != FIRST_CALL_TRANSACTION) return BBinder::onTransact(code, data, reply, flags);
        mCountdown.hit();
        return android::OK;
    }

private:
    KernelCountdown& mCountdown;
};

void listen(const RuntimeCalls& calls, KernelCountdown& countdown) {
    ProcessState::self()->setThreadPoolMaxThreadCount(0);
    {
        Parcel data;
        Parcel reply;
        data.writeStrongBinder(new Listener(countdown));
        if (calls.service()->transact(RuntimeCalls::kKeep, data, &reply) != android::OK) _exit(1);
    }
    countdown.hit();
    IPCThreadState::self()->joinThreadPool();
}

}  // namespace

KernelCountdown::KernelCountdown() {
    void* const shared = mmap(nullptr, sizeof(*mLeft), PROT_READ | PROT_WRITE,
                              MAP_SHARED | MAP_ANONYMOUS, /*fd=*/-1, /*offset=*/0);
    if (shared == MAP_FAILED) fail("no shared memory");
    mLeft = new (shared) std::atomic<uint32_t>(0);
}

KernelCountdown::~KernelCountdown() {
    munmap(mLeft, sizeof(*mLeft));
}

void KernelCountdown::hit() {
    if (mLeft->fetch_sub(1) == 1) syscall(SYS_futex, mLeft, FUTEX_WAKE, 1, nullptr, nullptr, 0);
}

void KernelCountdown::wait() {
    for (uint32_t left = mLeft->load(); left != 0; left = mLeft->load())
        syscall(SYS_futex, mLeft, FUTEX_WAIT, left, nullptr, nullptr, 0);
}

RawFanout::RawFanout(const char* device, uint32_t listeners) : mSender(device) {
    mSender.becomeContextManager();
    for (uint32_t i = 0; i < listeners; i++)
        mListeners.push_back(startChild([&] { listenRaw(device, mCountdown); }));
    mSender.put(BC_ENTER_LOOPER);
    while (mHandles.size() < listeners) {
        mSender.exchange([&](uint32_t command, const uint8_t* argument) {
            if (command != BR_TRANSACTION) return;
            const auto request = RawBinder::read<binder_transaction_data>(argument);
            const auto object = RawBinder::read<flat_binder_object>(
                    reinterpret_cast<const uint8_t*>(request.data.ptr.buffer));
            mHandles.push_back(object.handle);
            mSender.put(BC_ACQUIRE, object.handle);
            mSender.freeBuffer(request);
        });
    }
}

RawFanout::~RawFanout() {
    for (pid_t listener : mListeners)
        stopChild(listener);
}

void RawFanout::tell(uint32_t count, bool batched) {
    mCountdown.start(count);
    for (uint32_t i = 0; i < count; i++) {
        mSender.transact(mHandles[i], TF_ONE_WAY, /*data=*/nullptr, /*size=*/0);
        if (!batched) complete(1);
    }
    if (batched) complete(count);
    mCountdown.wait();
}

void RawFanout::complete(uint32_t calls) {
    for (uint32_t done = 0; done < calls;) {
        mSender.exchange([&](uint32_t command, const uint8_t*) {
            if (command == BR_TRANSACTION_COMPLETE) done++;
            if (command == BR_FAILED_REPLY || command == BR_DEAD_REPLY) fail("a call failed");
        });
    }
}

RuntimeFanout::RuntimeFanout(const RuntimeCalls& calls, uint32_t listeners) : mCalls(calls) {
    mCountdown.start(listeners);
    for (uint32_t i = 0; i < listeners; i++)
        mListeners.push_back(startChild([&] { listen(mCalls, mCountdown); }));
    mCountdown.wait();
}

RuntimeFanout::~RuntimeFanout() {
    mProxies.clear();
    for (pid_t listener : mListeners)
        stopChild(listener);
}

void RuntimeFanout::takeListeners() {
    Parcel data;
    Parcel reply;
    if (mCalls.service()->transact(RuntimeCalls::kTake, data, &reply) != android::OK ||
        reply.readInt32() != static_cast<int32_t>(mListeners.size())) {
        fail("not all listeners are there");
    }
    while (mProxies.size() < mListeners.size())
        mProxies.push_back(reply.readStrongBinder());
}

void RuntimeFanout::tell(uint32_t count) {
    if (mProxies.empty()) takeListeners();
    mCountdown.start(count);
    const Parcel data;
    for (uint32_t i = 0; i < count; i++) {
        if (mProxies[i]->transact(IBinder::FIRST_CALL_TRANSACTION, data, nullptr,
                                  IBinder::FLAG_ONEWAY) != android::OK) {
            fail("a call failed");
        }
    }
    mCountdown.wait();
}

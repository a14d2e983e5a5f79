// SPDX-License-Identifier: Apache-2.0
#include "KernelCalls.h"

#include <benchmark/benchmark.h>
#include <binder/Binder.h>
#include <binder/IPCThreadState.h>
#include <binder/ProcessState.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <utility>
#include <vector>

#include "ChildProcess.h"

using android::BBinder;
using android::IBinder;
using android::IPCThreadState;
using android::Parcel;
using android::ProcessState;
using android::sp;
using android::status_t;

namespace {

/** A child that says by a byte that it serves. */
pid_t startServing(const std::function<void(const std::function<void()>& ready)>& body) {
    int pipeEnds[2];
    if (pipe(pipeEnds) != 0) {
        perror("pipe");
        exit(1);
    }
    const pid_t pid = startChild([&] {
        body([&] {
            if (write(pipeEnds[1], "", 1) != 1) _exit(1);
        });
    });
    close(pipeEnds[1]);
    char byte;
    if (read(pipeEnds[0], &byte, 1) != 1) {
        fprintf(stderr, "a server did not start\n");
        exit(1);
    }
    close(pipeEnds[0]);
    return pid;
}

void serveRaw(const char* device, const std::function<void()>& ready) {
    RawBinder binder(device);
    binder.becomeContextManager();
    ready();
    binder.put(BC_ENTER_LOOPER);
    std::vector<uint8_t> answer;
    while (true) {
        binder.exchange([&](uint32_t command, const uint8_t* argument) {
            if (command != BR_TRANSACTION) return;
            const auto request = RawBinder::read<binder_transaction_data>(argument);
            benchmark::DoNotOptimize(request.sender_euid);
            benchmark::DoNotOptimize(request.sender_pid);
            const auto* bytes = reinterpret_cast<const uint8_t*>(request.data.ptr.buffer);
            answer.assign(bytes, bytes + request.data_size);
            binder.freeBuffer(request);
            binder.reply(answer.data(), answer.size());
        });
    }
}

/** Answers with as many bytes as it got; keeps objects for whoever takes them. */
class EchoService : public BBinder {
protected:
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override {
        switch (code) {
            case FIRST_CALL_TRANSACTION: {
                benchmark::DoNotOptimize(IPCThreadState::self()->getCallingUid());
                benchmark::DoNotOptimize(IPCThreadState::self()->getCallingPid());
                const size_t size = data.dataSize();
                return size == 0 ? android::OK : reply->write(data.data(), size);
            }
            case RuntimeCalls::kKeep:
                mKept.push_back(data.readStrongBinder());
                return android::OK;
            case RuntimeCalls::kTake:
                reply->writeInt32(static_cast<int32_t>(mKept.size()));
                for (const sp<IBinder>& each : std::exchange(mKept, {}))
                    reply->writeStrongBinder(each);
                return android::OK;
            default:
                return BBinder::onTransact(code, data, reply, flags);
        }
    }

private:
    /** Of the one thread that serves. */
    std::vector<sp<IBinder>> mKept;
};

}  // namespace

RawCalls::RawCalls(const char* device)
      : mServer(startServing([device](const auto& ready) { serveRaw(device, ready); })),
        mClient(device) {}

RawCalls::~RawCalls() {
    stopChild(mServer);
}

void RawCalls::call(size_t size) {
    static const std::string kPayload(4096, 'x');
    mClient.transact(/*handle=*/0, /*flags=*/0, kPayload.data(), size);
    for (bool done = false; !done;) {
        mClient.exchange([&](uint32_t command, const uint8_t* argument) {
            if (command == BR_REPLY) {
                const auto reply = RawBinder::read<binder_transaction_data>(argument);
                benchmark::DoNotOptimize(reply.data_size);
                mClient.freeBuffer(reply);
                done = true;
            } else if (command == BR_FAILED_REPLY || command == BR_DEAD_REPLY) {
                fprintf(stderr, "a bare call failed\n");
                exit(1);
            }
        });
    }
}

RuntimeCalls::RuntimeCalls()
      : mServer(startServing([](const auto& ready) {
            const sp<ProcessState> process = ProcessState::self();
            process->setThreadPoolMaxThreadCount(0);
            if (!process->becomeContextManager()) {
                fprintf(stderr, "cannot become context manager\n");
                _exit(1);
            }
            IPCThreadState::self()->setTheContextObject(new EchoService());
            ready();
            IPCThreadState::self()->joinThreadPool();
        })) {}

RuntimeCalls::~RuntimeCalls() {
    stopChild(mServer);
}

sp<IBinder> RuntimeCalls::service() const {
    return ProcessState::self()->getContextObject(nullptr);
}

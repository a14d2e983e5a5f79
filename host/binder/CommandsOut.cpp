// SPDX-License-Identifier: Apache-2.0
//
// IPCThreadState: commands to the driver.
//
// Commands gather until the thread talks to the driver anyway. Threads outside the pool may not do
// that for long, so theirs go at once, save for small buffers handed back.
#include <log/log.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

#include "ProcessInternals.h"
#include "ThreadQueues.h"

namespace android {

void IPCThreadState::queueTransaction(uint32_t command, uint32_t flags, int32_t handle,
                                      uint32_t code, const Parcel& data) {
    binder_transaction_data transaction{};
    transaction.target.handle = uint32_t(handle);
    transaction.code = code;
    transaction.flags = flags;
    transaction.data_size = data.dataSize();
    transaction.offsets_size = data.objectsCount() * sizeof(binder_size_t);
    transaction.data.ptr.buffer = reinterpret_cast<uintptr_t>(data.data());
    transaction.data.ptr.offsets = reinterpret_cast<uintptr_t>(data.objects().data());
    mQueues->put(command, transaction);
}

void IPCThreadState::flushUnlessLooper() {
    if (!mQueues->looper) flushCommands();
}

void IPCThreadState::flushCommands() {
    // What was held until the write may, when it goes, queue more.
    while (!mQueues->out.empty()) {
        if (talkWithDriver(/*receive=*/false) != OK) return;
    }
}

status_t IPCThreadState::talkWithDriver(bool receive) {
    Queues& queues = *mQueues;
    if (receive && queues.unread()) return OK;
    if (queues.afterThreadExit) {
        // References that are given back this late leave with the next thread of the pool.
        internals().deferred.add([commands = std::exchange(queues.out, {})] {
            std::vector<uint8_t>& out = self()->mQueues->out;
            out.insert(out.end(), commands.begin(), commands.end());
        });
        return receive ? -ECONNREFUSED : OK;
    }
    binderhost::Driver& driver = *internals().driver;
    queues.knownToDriver = true;
    queues.promised = queues.promised || (receive && queues.replyQueued);

    binder_write_read exchange{};
    size_t written = 0;
    int result = 0;
    do {
        exchange = {};
        exchange.write_buffer = reinterpret_cast<uintptr_t>(queues.out.data() + written);
        exchange.write_size = queues.out.size() - written;
        if (receive) {
            exchange.read_buffer = reinterpret_cast<uintptr_t>(queues.in.data());
            exchange.read_size = queues.in.size();
        }
        result = driver.writeRead(&exchange);
        written += std::min<size_t>(exchange.write_consumed, exchange.write_size);
    } while (result == -EINTR && exchange.read_consumed == 0);

    // The driver has made the thread's own data by now: this ends before that does.
    endBeforeDriver();
    LOG_ALWAYS_FATAL_IF(result == -EINVAL, "binder: the driver refused a command");
    if (result != 0 && result != -EINTR) {
        // What is queued points into parcels that the caller is about to release.
        ALOGE_IF(result != -ECONNREFUSED, "binder: no exchange with the driver: %s",
                 strerror(-result));
        written = queues.out.size();
    }
    if (written == queues.out.size()) {
        queues.out.clear();
    } else {
        queues.out.erase(queues.out.begin(), queues.out.begin() + ptrdiff_t(written));
    }
    if (receive) {
        queues.inPosition = 0;
        queues.inEnd = std::min<size_t>(exchange.read_consumed, queues.in.size());
    }
    if (queues.out.empty()) {
        queues.urgent = false;
        queues.replyQueued = false;
        // Their last reference may go here, and their destructors come back to this function.
        if (!queues.heldUntilWritten.empty()) std::exchange(queues.heldUntilWritten, {}).clear();
    }
    if (result == -EINTR) return OK;
    return result;
}

void IPCThreadState::freeBuffer(const uint8_t* data, bool prompt) {
    IPCThreadState* thread = self();
    thread->mQueues->put(BC_FREE_BUFFER, binder_uintptr_t(reinterpret_cast<uintptr_t>(data)));
    if (prompt) thread->flushUnlessLooper();
}

void IPCThreadState::incStrongHandle(int32_t handle, const sp<BpBinder>& proxy) {
    mQueues->put(BC_ACQUIRE, uint32_t(handle));
    mQueues->heldUntilWritten.push_back(proxy);
    flushUnlessLooper();
}

void IPCThreadState::decStrongHandle(int32_t handle) {
    mQueues->put(BC_RELEASE, uint32_t(handle));
    flushUnlessLooper();
}

namespace {

binder_handle_cookie deathRequest(int32_t handle, uint64_t cookie) {
    binder_handle_cookie request{};
    request.handle = uint32_t(handle);
    request.cookie = cookie;
    return request;
}

}  // namespace

void IPCThreadState::requestDeathNotification(int32_t handle, uint64_t cookie) {
    mQueues->put(BC_REQUEST_DEATH_NOTIFICATION, deathRequest(handle, cookie));
}

void IPCThreadState::clearDeathNotification(int32_t handle, uint64_t cookie) {
    mQueues->put(BC_CLEAR_DEATH_NOTIFICATION, deathRequest(handle, cookie));
}

}  // namespace android

// SPDX-License-Identifier: Apache-2.0
//
// IPCThreadState: commands from the driver.
//
//      await()       a caller: until its reply, serving calls that come back meanwhile
//      serveOne()    a thread of the pool: the next command, whatever it is
//
// What may run a user's code other than a call itself (death recipients, the last reference of a
// local object) waits until a thread of the pool stands at the head of its loop: never inside a
// wait, where locks may be held.
#include <log/log.h>

#include <algorithm>
#include <functional>
#include <utility>
#include <vector>

#include "ProcessInternals.h"
#include "ThreadQueues.h"

namespace android {

status_t IPCThreadState::nextCommand(uint32_t* command) {
    Queues& queues = *mQueues;
    for (;;) {
        if (!queues.unread()) {
            settle();
            // Releasing may have called out and left something unread.
            if (const status_t status = talkWithDriver(/*receive=*/true); status != OK) {
                return status;
            }
        }
        if (!queues.take(command)) {
            queues.inPosition = queues.inEnd;
            continue;
        }
        // Stands before all that a kernel hands over.
        if (*command == BR_NOOP) continue;
        queues.promised = queues.promised && *command == BR_TRANSACTION_COMPLETE;
        return OK;
    }
}

void IPCThreadState::settle() {
    Queues& queues = *mQueues;
    if (queues.promised) return;
    const bool atHead = queues.looper && queues.waits == 0;
    const bool returns = atHead && (!queues.strongReturns.empty() || !queues.weakReturns.empty() ||
                                    internals().deferred.any());
    if (queues.doneReplies.empty() && !returns) return;

    std::vector<std::function<void()>> deferred;
    if (atHead) deferred = internals().deferred.take();
    if (queues.replyQueued) flushCommands();
    std::exchange(queues.doneReplies, {}).clear();
    for (const std::function<void()>& work : deferred)
        work();
    if (!atHead) return;
    for (RefBase::weakref_type* refs : std::exchange(queues.weakReturns, {}))
        refs->decWeak(this);
    for (BBinder* object : std::exchange(queues.strongReturns, {}))
        object->decStrong(this);
}

bool IPCThreadState::completeReply() {
    Queues& queues = *mQueues;
    if (queues.repliesInFlight.empty()) return false;
    std::unique_ptr<Parcel> reply = std::move(queues.repliesInFlight.front());
    queues.repliesInFlight.pop_front();
    if (reply->objectsCount() > 0) {
        queues.doneReplies.push_back(std::move(reply));
    } else {
        queues.keepReply(std::move(reply));
    }
    return true;
}

status_t IPCThreadState::await(Await what, Parcel* reply) {
    mQueues->waits++;
    status_t status = OK;
    bool done = false;
    while (!done) {
        uint32_t command = 0;
        status = nextCommand(&command);
        if (status != OK) {
            status = status == -ECONNREFUSED ? status_t(DEAD_OBJECT) : status;
            break;
        }
        switch (command) {
            case BR_ONEWAY_SPAM_SUSPECT:
                ALOGE("a process does not keep up with the one-way calls that this one sends");
                [[fallthrough]];
            case BR_TRANSACTION_COMPLETE:
                // Answers given on the way complete in their order, before the call does.
                done = !completeReply() && what == Await::kCompletion;
                break;
            case BR_DEAD_REPLY:
                status = DEAD_OBJECT;
                done = true;
                break;
            case BR_FAILED_REPLY:
            case BR_FROZEN_REPLY:
                status = FAILED_TRANSACTION;
                done = true;
                break;
            case BR_ERROR:
                status = mQueues->argument<int32_t>();
                done = true;
                break;
            case BR_REPLY:
                status = receiveReply(reply);
                done = true;
                break;
            default:
                status = executeCommand(command);
                done = status != OK;
                break;
        }
    }
    mQueues->waits--;
    if (status != OK && reply != nullptr) reply->setError(status);
    return status;
}

status_t IPCThreadState::receiveReply(Parcel* reply) {
    if (reply == nullptr) {
        Parcel ignored;
        return receiveReply(&ignored);
    }
    const auto transaction = mQueues->argument<binder_transaction_data>();
    const auto* data = reinterpret_cast<const uint8_t*>(transaction.data.ptr.buffer);
    const auto* offsets = reinterpret_cast<const uint64_t*>(transaction.data.ptr.offsets);
    reply->adoptDriverBuffer(data, transaction.data_size, offsets,
                             transaction.offsets_size / sizeof(binder_size_t), freeBuffer);
    if ((transaction.flags & TF_STATUS_CODE) == 0) return OK;
    int32_t result = FAILED_TRANSACTION;
    if (const status_t status = reply->readInt32(&result); status != OK) result = status;
    reply->freeData();
    return result;
}

status_t IPCThreadState::transact(int32_t handle, uint32_t code, const Parcel& data, Parcel* reply,
                                  uint32_t flags) {
    if (data.errorCheck() != OK) return data.errorCheck();
    if (mQueues->afterThreadExit) return DEAD_OBJECT;
    queueTransaction(BC_TRANSACTION, flags | TF_ACCEPT_FDS, handle, code, data);
    const bool oneway = (flags & TF_ONE_WAY) != 0;
    const status_t status =
            oneway ? await(Await::kCompletion, nullptr) : await(Await::kReply, reply);
    // The driver waits for the acknowledgement of references it has asked for on the way.
    if (mQueues->urgent && mQueues->waits == 0) flushUnlessLooper();
    return status;
}

void IPCThreadState::acquireNode(uint32_t command) {
    const auto node = mQueues->argument<binder_ptr_cookie>();
    if (command == BR_ACQUIRE) {
        reinterpret_cast<BBinder*>(node.cookie)->incStrong(process().get());
        mQueues->put(BC_ACQUIRE_DONE, node);
    } else {
        reinterpret_cast<RefBase::weakref_type*>(node.ptr)->incWeak(process().get());
        mQueues->put(BC_INCREFS_DONE, node);
    }
}

void IPCThreadState::releaseNode(uint32_t command) {
    const auto node = mQueues->argument<binder_ptr_cookie>();
    auto* object = reinterpret_cast<BBinder*>(node.cookie);
    auto* refs = reinterpret_cast<RefBase::weakref_type*>(node.ptr);
    const bool strong = command == BR_RELEASE;
    if (!mQueues->looper) {
        // Not a thread that ever stands at the head of a loop.
        internals().deferred.add([=, holder = process().get()] {
            strong ? object->decStrong(holder) : refs->decWeak(holder);
        });
    } else if (strong) {
        mQueues->strongReturns.push_back(object);
    } else {
        mQueues->weakReturns.push_back(refs);
    }
}

void IPCThreadState::deathNotice(uint64_t cookie) {
    DeathTable& deaths = internals().deaths;
    const auto notify = [&deaths, cookie] {
        if (const sp<BpBinder> proxy = deaths.find(cookie); proxy != nullptr) {
            proxy->sendObituary();
        }
        self()->mQueues->put(BC_DEAD_BINDER_DONE, binder_uintptr_t(cookie));
    };
    if (mQueues->looper && mQueues->waits == 0) {
        if (mQueues->replyQueued) flushCommands();
        notify();
    } else {
        internals().deferred.add(notify);
    }
}

status_t IPCThreadState::executeCommand(uint32_t command) {
    Queues& queues = *mQueues;
    switch (command) {
        case BR_OK:
            return OK;
        case BR_ERROR:
            ALOGE("binder: the driver reports error %d", queues.argument<int32_t>());
            return OK;
        case BR_TRANSACTION:
        case BR_TRANSACTION_SEC_CTX:
            executeTransaction(command);
            return OK;
        case BR_TRANSACTION_COMPLETE:
        case BR_ONEWAY_SPAM_SUSPECT:
        case BR_DEAD_REPLY:
        case BR_FAILED_REPLY:
        case BR_FROZEN_REPLY:
            // Of an answer: there is no call that waits.
            static_cast<void>(completeReply());
            return OK;
        case BR_INCREFS:
        case BR_ACQUIRE:
            acquireNode(command);
            return OK;
        case BR_RELEASE:
        case BR_DECREFS:
            releaseNode(command);
            return OK;
        case BR_DEAD_BINDER:
            deathNotice(queues.argument<binder_uintptr_t>());
            return OK;
        case BR_CLEAR_DEATH_NOTIFICATION_DONE:
            internals().deaths.erase(queues.argument<binder_uintptr_t>());
            return OK;
        case BR_SPAWN_LOOPER:
            process()->spawnPooledThread(/*isMain=*/false);
            return OK;
        case BR_FINISHED:
            return TIMED_OUT;
        default:
            ALOGE("binder: a command of the driver that is not known: 0x%x", command);
            queues.inPosition = std::min(queues.inPosition + _IOC_SIZE(command), queues.inEnd);
            return OK;
    }
}

status_t IPCThreadState::serveOne() {
    uint32_t command = 0;
    if (const status_t status = nextCommand(&command); status != OK) return status;
    // The rest runs nobody's code.
    const bool works = command == BR_TRANSACTION || command == BR_TRANSACTION_SEC_CTX ||
                       command == BR_DEAD_BINDER;
    if (!works) return executeCommand(command);
    PoolWatch& pool = internals().pool;
    pool.workBegins();
    const status_t status = executeCommand(command);
    pool.workEnds();
    return status;
}

}  // namespace android

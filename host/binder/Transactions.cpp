// SPDX-License-Identifier: Apache-2.0
//
// IPCThreadState: serving one call.
//
//      as the caller:   onTransact()
//      as ourselves:    release the request and the target, which may run a user's code
//      then:            queue BC_FREE_BUFFER and BC_REPLY, and go back to wait: one exchange
//                       with the driver sends the answer and brings the next call
#include <log/log.h>

#include <utility>

#include "ProcessInternals.h"
#include "ThreadQueues.h"

namespace android {
namespace {

/** Puts back, at the end of a call, what a thread was before it. */
struct CallerScope {
    IPCThreadState* thread;
    int64_t identity = (int64_t(thread->getCallingUid()) << 32) | uint32_t(thread->getCallingPid());
    int32_t policy = thread->getStrictModePolicy();
    bool propagates = thread->shouldPropagateWorkSource();
    uid_t workSource = thread->getCallingWorkSourceUid();

    explicit CallerScope(IPCThreadState* of) : thread(of) {}
    CallerScope(const CallerScope&) = delete;
    CallerScope& operator=(const CallerScope&) = delete;
    ~CallerScope() {
        thread->restoreCallingIdentity(identity);
        thread->setStrictModePolicy(policy);
        thread->setCallingWorkSourceUidWithoutPropagation(workSource);
        if (propagates) thread->setCallingWorkSourceUid(workSource);
    }
};

}  // namespace

status_t IPCThreadState::dispatch(const binder_transaction_data& transaction, const Parcel& request,
                                  Parcel* reply) {
    if (transaction.target.ptr == 0) {
        BBinder* const manager = internals().contextObject.get();
        if (manager == nullptr) return UNKNOWN_TRANSACTION;
        return manager->transact(transaction.code, request, reply, transaction.flags);
    }
    // The driver may know an object by a weak reference only: it can be gone.
    auto* refs = reinterpret_cast<RefBase::weakref_type*>(transaction.target.ptr);
    if (!refs->attemptIncStrong(this)) return UNKNOWN_TRANSACTION;
    auto* const target = reinterpret_cast<BBinder*>(transaction.cookie);
    const status_t status = target->transact(transaction.code, request, reply, transaction.flags);
    target->decStrong(this);
    return status;
}

void IPCThreadState::executeTransaction(uint32_t command) {
    binder_transaction_data_secctx received{};
    if (command == BR_TRANSACTION_SEC_CTX) {
        received = mQueues->argument<binder_transaction_data_secctx>();
    } else {
        received.transaction_data = mQueues->argument<binder_transaction_data>();
    }
    const binder_transaction_data& transaction = received.transaction_data;
    // The call may make calls of its own, behind which an answer must not wait.
    if (mQueues->replyQueued) flushCommands();
    std::unique_ptr<Parcel> reply = mQueues->takeReply();
    status_t result = OK;
    const char* const outerSid = mCallingSid;
    {
        Parcel request;
        request.adoptDriverBuffer(reinterpret_cast<const uint8_t*>(transaction.data.ptr.buffer),
                                  transaction.data_size,
                                  reinterpret_cast<const uint64_t*>(transaction.data.ptr.offsets),
                                  transaction.offsets_size / sizeof(binder_size_t), freeBuffer);
        const CallerScope scope(this);
        const int32_t outerFlags = std::exchange(mLastTransactionFlags, int32_t(transaction.flags));
        mCallingPid = transaction.sender_pid;
        mCallingUid = transaction.sender_euid;
        // Lies behind the payload, in the buffer that the request gives back at its end.
        mCallingSid = reinterpret_cast<const char*>(received.secctx);
        mStrictModePolicy = 0;
        mWorkSource = kUnsetWorkSource;
        mPropagateWorkSource = false;
        result = dispatch(transaction, request, reply.get());
        mLastTransactionFlags = outerFlags;
    }
    mCallingSid = outerSid;
    if ((transaction.flags & TF_ONE_WAY) == 0) {
        queueReply(std::move(reply), result);
        return;
    }
    ALOGW_IF(result != OK, "a one-way call (code %u) ended with status %d, which nobody learns",
             transaction.code, result);
    if (reply->objectsCount() == 0) mQueues->keepReply(std::move(reply));
}

void IPCThreadState::queueReply(std::unique_ptr<Parcel> reply, status_t result) {
    if (result >= OK) result = reply->errorCheck();
    uint32_t flags = 0;
    if (result < OK) {
        reply->freeData();
        static_cast<void>(reply->writeInt32(result));
        flags = TF_STATUS_CODE;
    }
    queueTransaction(BC_REPLY, flags, /*handle=*/-1, /*code=*/0, *reply);
    const bool holdsObjects = reply->objectsCount() > 0;
    mQueues->repliesInFlight.push_back(std::move(reply));
    mQueues->replyQueued = true;
    // Releasing what it holds may run a user's code, which an exchange that sends an answer and
    // reads in one go rules out until the next call has come.
    if (holdsObjects) flushCommands();
}

}  // namespace android

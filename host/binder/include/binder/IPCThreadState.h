// SPDX-License-Identifier: Apache-2.0
//
// One thread's conversation with the driver, and the identity of the caller it serves.
//
//      transact() ── queue BC_TRANSACTION ──▶ write and read ──▶ BR_REPLY: done
//                                               ▲       │
//                                               └───────┴─ BR_TRANSACTION: serve it, queue the
//                                                          answer, which leaves with the next read
//
// Made at a thread's first use, gone with the thread. Only the thread itself uses it.
#pragma once

#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <sys/types.h>
#include <utils/Errors.h>

#include <cstdint>
#include <memory>

struct binder_transaction_data;

namespace android {

class BpBinder;

class IPCThreadState {
public:
    static IPCThreadState* self();
    static IPCThreadState* selfOrNull();
    IPCThreadState(const IPCThreadState&) = delete;
    IPCThreadState& operator=(const IPCThreadState&) = delete;

    sp<ProcessState> process();

    /**
     * Who called: pid and effective uid of the sender of the call that this thread serves; the
     * process itself outside of one. The pid is 0 in a one-way call.
     */
    pid_t getCallingPid() const { return mCallingPid; }
    uid_t getCallingUid() const { return mCallingUid; }

    /**
     * The caller's security context, in a call to the context manager where the kernel has one to
     * tell; null in all others and once the identity was cleared or restored. Valid until the call
     * has been served.
     */
    const char* getCallingSid() const { return mCallingSid; }

    /** From here on the process itself is the caller. The token restores who it was before. */
    int64_t clearCallingIdentity();
    /** Token: the uid in the upper, the pid in the lower 32 bits. */
    void restoreCallingIdentity(int64_t token);

    void setStrictModePolicy(int32_t policy) { mStrictModePolicy = policy; }
    int32_t getStrictModePolicy() const { return mStrictModePolicy; }

    static constexpr int32_t kUnsetWorkSource = -1;
    /** On whose behalf the thread works; travels on in its calls. Returns a token to restore. */
    int64_t setCallingWorkSourceUid(uid_t uid);
    int64_t setCallingWorkSourceUidWithoutPropagation(uid_t uid);
    uid_t getCallingWorkSourceUid() const { return uid_t(mWorkSource); }
    int64_t clearCallingWorkSource();
    void restoreCallingWorkSource(int64_t token);
    void clearPropagateWorkSource() { mPropagateWorkSource = false; }
    bool shouldPropagateWorkSource() const { return mPropagateWorkSource; }

    /** Flags of the call that this thread serves. */
    int32_t getLastTransactionBinderFlags() const { return mLastTransactionFlags; }

    /** Serves calls until the process ends (or, when not main, is no longer needed). */
    void joinThreadPool(bool isMain = true);
    /** Ends the process with status 0; immediate: without running exit handlers. */
    [[noreturn]] void stopProcess(bool immediate = true);

    /** The object that answers handle 0, for the process that becomes the context manager. */
    void setTheContextObject(const sp<BBinder>& object);

    /** Hands all queued commands to the driver, without waiting for anything. */
    void flushCommands();

    /** The call behind BpBinder::transact(). */
    status_t transact(int32_t handle, uint32_t code, const Parcel& data, Parcel* reply,
                      uint32_t flags);

    /** The driver's counts of a handle, one each; commands of threads outside the pool go at once.
     */
    void incStrongHandle(int32_t handle, const sp<BpBinder>& proxy);
    void decStrongHandle(int32_t handle);

    /** Cookie: comes back with the notice. These only queue, and never run incoming work. */
    void requestDeathNotification(int32_t handle, uint64_t cookie);
    void clearDeathNotification(int32_t handle, uint64_t cookie);

    /** Whether this thread is one of the pool. */
    bool isLooper() const;

private:
    struct Queues;

    IPCThreadState();
    ~IPCThreadState();
    static void destroy(void* state);

    // Commands out (CommandsOut.cpp).
    void queueTransaction(uint32_t command, uint32_t flags, int32_t handle, uint32_t code,
                          const Parcel& data);
    void flushUnlessLooper();
    status_t talkWithDriver(bool receive);
    static void endBeforeDriver();
    static void freeBuffer(const uint8_t* data, bool prompt);

    // Commands in (CommandsIn.cpp).
    enum class Await { kReply, kCompletion };
    status_t await(Await what, Parcel* reply);
    status_t nextCommand(uint32_t* command);
    bool completeReply();
    status_t receiveReply(Parcel* reply);
    status_t executeCommand(uint32_t command);
    void acquireNode(uint32_t command);
    void releaseNode(uint32_t command);
    void deathNotice(uint64_t cookie);
    void settle();
    status_t serveOne();

    // Executing a transaction (Transactions.cpp).
    void executeTransaction(uint32_t command);
    status_t dispatch(const binder_transaction_data& transaction, const Parcel& request,
                      Parcel* reply);
    void queueReply(std::unique_ptr<Parcel> reply, status_t result);

    ProcessState::Internals& internals();

    const std::unique_ptr<Queues> mQueues;
    pid_t mCallingPid;
    uid_t mCallingUid;
    const char* mCallingSid = nullptr;
    int32_t mStrictModePolicy = 0;
    int32_t mWorkSource = kUnsetWorkSource;
    bool mPropagateWorkSource = false;
    int32_t mLastTransactionFlags = 0;
};

}  // namespace android

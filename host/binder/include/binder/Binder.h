// SPDX-License-Identifier: Apache-2.0
//
// Local objects: the base of everything that answers calls in this process.
#pragma once

#include <binder/IBinder.h>

#include <memory>
#include <mutex>

namespace android {

/**
 * An object that other processes can call. Derived classes answer in onTransact(), on any thread of
 * the pool and on several at once.
 *
 * While another process holds a reference, the runtime holds a strong one for it.
 */
class BBinder : public IBinder {
public:
    BBinder();
    BBinder(const BBinder&) = delete;
    BBinder& operator=(const BBinder&) = delete;

    const String16& getInterfaceDescriptor() const override;
    bool isBinderAlive() const override;
    status_t pingBinder() override;
    status_t dump(int fd, const Vector<String16>& args) override;

    status_t transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags = 0) final;

    status_t linkToDeath(const sp<DeathRecipient>& recipient, void* cookie = nullptr,
                         uint32_t flags = 0) override;
    status_t unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie = nullptr,
                           uint32_t flags = 0, wp<DeathRecipient>* outRecipient = nullptr) override;

    void attachObject(const void* objectId, void* object, void* cleanupCookie,
                      object_cleanup_func func) final;
    void* findObject(const void* objectId) const final;
    void detachObject(const void* objectId) final;

    BBinder* localBinder() override;

    /** Answered to EXTENSION_TRANSACTION. Set it before the object is first sent anywhere. */
    void setExtension(const sp<IBinder>& extension);
    sp<IBinder> getExtension();

    pid_t getDebugPid();

protected:
    ~BBinder() override;

    /**
     * One call. Unknown codes go to this base, which answers the transactions every binder knows
     * and UNKNOWN_TRANSACTION to the rest. The result is sent to the caller as it is.
     */
    virtual status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                                uint32_t flags = 0);

private:
    struct Extras;
    Extras& extras() const;
    status_t answerExtension(Parcel* reply);

    /** Made at first use: most binders carry neither an extension nor attached objects. */
    mutable std::once_flag mExtrasOnce;
    mutable std::unique_ptr<Extras> mExtras;
};

/** What a typed proxy holds: one strong reference on the binder it speaks to. */
class BpRefBase : public virtual RefBase {
protected:
    explicit BpRefBase(const sp<IBinder>& remote);
    ~BpRefBase() override;
    BpRefBase(const BpRefBase&) = delete;
    BpRefBase& operator=(const BpRefBase&) = delete;

    IBinder* remote() const { return mRemote.get(); }

private:
    const sp<IBinder> mRemote;
};

}  // namespace android

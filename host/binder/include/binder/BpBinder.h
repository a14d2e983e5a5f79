// SPDX-License-Identifier: Apache-2.0
//
// Proxy: an object in another process, as this process sees it.
//
//      sp<IBinder> ──▶ BpBinder ── handle ──▶ driver ──▶ BBinder elsewhere
//
// There is one BpBinder per handle in a process at any time, so equal pointers mean the same
// object. It holds one strong reference of the driver from its creation to its destruction.
#pragma once

#include <android-base/thread_annotations.h>
#include <binder/IBinder.h>

#include <atomic>
#include <map>
#include <mutex>
#include <vector>

namespace android {

class BpBinder : public IBinder {
public:
    int32_t handle() const { return mHandle; }

    // Analysed without the annotations: once known, the descriptor does not change any more.
    const String16& getInterfaceDescriptor() const override NO_THREAD_SAFETY_ANALYSIS;
    bool isBinderAlive() const override;
    status_t pingBinder() override;
    status_t dump(int fd, const Vector<String16>& args) override;

    /** DEAD_OBJECT, from the first time on without asking the driver again. */
    status_t transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags = 0) final;

    status_t linkToDeath(const sp<DeathRecipient>& recipient, void* cookie = nullptr,
                         uint32_t flags = 0) override;
    status_t unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie = nullptr,
                           uint32_t flags = 0, wp<DeathRecipient>* outRecipient = nullptr) override;

    void attachObject(const void* objectId, void* object, void* cleanupCookie,
                      object_cleanup_func func) final;
    void* findObject(const void* objectId) const final;
    void detachObject(const void* objectId) final;

    BpBinder* remoteBinder() override;

    /** The driver's death notice has come: tells every recipient, once. Called by the runtime. */
    void sendObituary();

protected:
    ~BpBinder() override;

private:
    friend class ProcessState;
    explicit BpBinder(int32_t handle);

    struct Obituary {
        wp<DeathRecipient> recipient;
        void* cookie;
        uint32_t flags;
    };
    struct Attachment {
        void* object;
        void* cleanupCookie;
        object_cleanup_func cleanup;
    };

    bool isDescriptorKnown() const;

    const int32_t mHandle;

    /** Guards what is below it. Never held while user code runs or a reply is awaited. */
    mutable std::mutex mLock;
    std::atomic<bool> mAlive{true};
    bool mObituariesSent GUARDED_BY(mLock) = false;
    std::vector<Obituary> mObituaries GUARDED_BY(mLock);
    /** The driver's cookie of the standing death request; 0 when there is none. */
    uint64_t mDeathCookie GUARDED_BY(mLock) = 0;
    std::map<const void*, Attachment> mAttachments GUARDED_BY(mLock);
    /** Written once, under mLock; a reference to it may be handed out after that. */
    mutable String16 mDescriptor GUARDED_BY(mLock);
    mutable std::atomic<bool> mDescriptorKnown{false};
};

}  // namespace android

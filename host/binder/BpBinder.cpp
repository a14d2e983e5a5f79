// SPDX-License-Identifier: Apache-2.0
//
// Proxy of an object in another process.
#include <binder/BpBinder.h>
#include <binder/IPCThreadState.h>
#include <binder/Parcel.h>

#include <algorithm>
#include <utility>

#include "ProcessInternals.h"

namespace android {

BpBinder::BpBinder(int32_t handle) : mHandle(handle) {}

BpBinder::~BpBinder() {
    std::map<const void*, Attachment> attachments;
    ProcessState::Internals& internals = ProcessState::self()->internals();
    IPCThreadState* thread = IPCThreadState::self();
    {
        std::lock_guard lock(mLock);
        attachments = std::move(mAttachments);
        if (mDeathCookie != 0) {
            thread->clearDeathNotification(mHandle, mDeathCookie);
            mDeathCookie = 0;
            thread->decStrongHandle(mHandle);
            // The next proxy of this handle may ask for notices on another thread.
            thread->flushCommands();
        } else {
            thread->decStrongHandle(mHandle);
        }
    }
    internals.proxies.erase(mHandle, this);
    for (const auto& [id, attachment] : attachments) {
        if (attachment.cleanup == nullptr) continue;
        attachment.cleanup(id, attachment.object, attachment.cleanupCookie);
    }
}

BpBinder* BpBinder::remoteBinder() {
    return this;
}

bool BpBinder::isBinderAlive() const {
    return mAlive.load();
}

status_t BpBinder::transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    if (!mAlive.load()) return DEAD_OBJECT;
    const status_t status = IPCThreadState::self()->transact(mHandle, code, data, reply, flags);
    if (status == DEAD_OBJECT) mAlive.store(false);
    return status;
}

status_t BpBinder::pingBinder() {
    Parcel data;
    Parcel reply;
    return transact(PING_TRANSACTION, data, &reply);
}

status_t BpBinder::dump(int fd, const Vector<String16>& args) {
    Parcel data;
    data.writeFileDescriptor(fd);
    data.writeInt32(int32_t(args.size()));
    for (const String16& argument : args)
        data.writeString16(argument);
    Parcel reply;
    return transact(DUMP_TRANSACTION, data, &reply);
}

bool BpBinder::isDescriptorKnown() const {
    return mDescriptorKnown.load();
}

const String16& BpBinder::getInterfaceDescriptor() const {
    if (!isDescriptorKnown()) {
        Parcel data;
        Parcel reply;
        auto* self = const_cast<BpBinder*>(this);
        if (self->transact(INTERFACE_TRANSACTION, data, &reply) == OK) {
            const String16 answer = reply.readString16();
            std::lock_guard lock(mLock);
            if (!isDescriptorKnown()) {
                mDescriptor = answer;
                mDescriptorKnown.store(true);
            }
        }
    }
    static const String16 unknown;
    return isDescriptorKnown() ? mDescriptor : unknown;
}

status_t BpBinder::linkToDeath(const sp<DeathRecipient>& recipient, void* cookie, uint32_t flags) {
    if (recipient == nullptr) return BAD_VALUE;
    // What a write releases may run a user's code; below, under the lock, nothing is left of it.
    IPCThreadState::self()->flushCommands();
    std::lock_guard lock(mLock);
    if (mObituariesSent) return DEAD_OBJECT;
    mObituaries.push_back({recipient, cookie, flags});
    if (mDeathCookie == 0) {
        mDeathCookie = ProcessState::self()->internals().deaths.add(this);
        IPCThreadState* thread = IPCThreadState::self();
        thread->requestDeathNotification(mHandle, mDeathCookie);
        // Under the lock: requests and withdrawals of several threads reach the driver in order.
        thread->flushCommands();
    }
    return OK;
}

status_t BpBinder::unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie, uint32_t flags,
                                 wp<DeathRecipient>* outRecipient) {
    IPCThreadState::self()->flushCommands();
    // Released outside the lock: it may be the last reference.
    wp<DeathRecipient> removed;
    std::lock_guard lock(mLock);
    if (mObituariesSent) return DEAD_OBJECT;
    const auto found =
            std::find_if(mObituaries.begin(), mObituaries.end(), [&](const Obituary& obituary) {
                return obituary.cookie == cookie && obituary.flags == flags &&
                       (recipient == nullptr || obituary.recipient == recipient);
            });
    if (found == mObituaries.end()) return NAME_NOT_FOUND;
    removed = found->recipient;
    if (outRecipient != nullptr) *outRecipient = removed;
    mObituaries.erase(found);
    if (mObituaries.empty()) {
        IPCThreadState* thread = IPCThreadState::self();
        thread->clearDeathNotification(mHandle, std::exchange(mDeathCookie, 0));
        thread->flushCommands();
    }
    return OK;
}

void BpBinder::sendObituary() {
    std::vector<Obituary> obituaries;
    {
        std::lock_guard lock(mLock);
        mAlive.store(false);
        if (mObituariesSent) return;
        mObituariesSent = true;
        obituaries = std::move(mObituaries);
        mObituaries.clear();
        if (mDeathCookie != 0) {
            // The driver forgets the request, and tells when its cookie is free again.
            IPCThreadState::self()->clearDeathNotification(mHandle, std::exchange(mDeathCookie, 0));
        }
    }
    for (const Obituary& obituary : obituaries) {
        const sp<DeathRecipient> recipient = obituary.recipient.promote();
        if (recipient != nullptr) recipient->binderDied(wp<IBinder>(this));
    }
}

void BpBinder::attachObject(const void* objectId, void* object, void* cleanupCookie,
                            object_cleanup_func func) {
    std::lock_guard lock(mLock);
    mAttachments.insert_or_assign(objectId, Attachment{object, cleanupCookie, func});
}

void* BpBinder::findObject(const void* objectId) const {
    std::lock_guard lock(mLock);
    const auto found = mAttachments.find(objectId);
    return found == mAttachments.end() ? nullptr : found->second.object;
}

void BpBinder::detachObject(const void* objectId) {
    std::lock_guard lock(mLock);
    mAttachments.erase(objectId);
}

}  // namespace android

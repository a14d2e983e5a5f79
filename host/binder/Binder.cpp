// SPDX-License-Identifier: Apache-2.0
//
// Local binders, and the transactions that every binder answers.
#include <binder/Binder.h>
#include <binder/BpBinder.h>
#include <binder/IInterface.h>
#include <binder/IPCThreadState.h>
#include <binder/Parcel.h>
#include <unistd.h>

#include <map>
#include <utility>

namespace android {
namespace {

/** The whole of an interface that shells implement: one one-way call with the result. */
constexpr const char16_t* kResultReceiver = u"com.android.internal.os.IResultReceiver";
constexpr uint32_t kResultReceiverSend = IBinder::FIRST_CALL_TRANSACTION;

status_t answerDump(BBinder* object, const Parcel& data) {
    const int fd = data.readFileDescriptor();
    if (fd < 0) return BAD_TYPE;
    Vector<String16> args;
    for (int32_t left = data.readInt32(); left > 0 && data.dataAvail() > 0; left--) {
        String16 argument;
        if (const status_t status = data.readString16(&argument); status != OK) return status;
        args.add(argument);
    }
    return object->dump(fd, args);
}

/** An object without commands says so to whoever waits for the result. */
status_t refuseShellCommand(const Parcel& data) {
    for (int descriptors = 0; descriptors < 3; descriptors++) {
        if (data.readFileDescriptor() < 0) return BAD_TYPE;
    }
    for (int32_t left = data.readInt32(); left > 0 && data.dataAvail() > 0; left--) {
        String16 argument;
        if (const status_t status = data.readString16(&argument); status != OK) return status;
    }
    sp<IBinder> callback;
    sp<IBinder> receiver;
    if (data.readNullableStrongBinder(&callback) != OK) return BAD_TYPE;
    if (data.readNullableStrongBinder(&receiver) != OK) return BAD_TYPE;
    if (receiver == nullptr) return OK;
    Parcel result;
    result.writeInterfaceToken(String16(kResultReceiver));
    result.writeInt32(INVALID_OPERATION);
    result.writeInt32(/*no bundle=*/0);
    return receiver->transact(kResultReceiverSend, result, nullptr, IBinder::FLAG_ONEWAY);
}

}  // namespace

IBinder::IBinder() = default;
IBinder::~IBinder() = default;

sp<IInterface> IBinder::queryLocalInterface(const String16& /*descriptor*/) {
    return nullptr;
}
bool IBinder::checkSubclass(const void* /*subclassId*/) const {
    return false;
}
BBinder* IBinder::localBinder() {
    return nullptr;
}
BpBinder* IBinder::remoteBinder() {
    return nullptr;
}

status_t IBinder::getExtension(sp<IBinder>* out) {
    if (BBinder* local = localBinder(); local != nullptr) {
        *out = local->getExtension();
        return OK;
    }
    Parcel data;
    Parcel reply;
    if (const status_t status = transact(EXTENSION_TRANSACTION, data, &reply); status != OK) {
        return status;
    }
    return reply.readNullableStrongBinder(out);
}

status_t IBinder::getDebugPid(pid_t* outPid) {
    if (BBinder* local = localBinder(); local != nullptr) {
        *outPid = local->getDebugPid();
        return OK;
    }
    Parcel data;
    Parcel reply;
    if (const status_t status = transact(DEBUG_PID_TRANSACTION, data, &reply); status != OK) {
        return status;
    }
    int32_t pid = 0;
    if (const status_t status = reply.readInt32(&pid); status != OK) return status;
    if (pid <= 0) return BAD_VALUE;
    *outPid = pid;
    return OK;
}

struct BBinder::Extras {
    struct Attachment {
        void* object;
        void* cleanupCookie;
        object_cleanup_func cleanup;
    };

    std::mutex lock;
    sp<IBinder> extension GUARDED_BY(lock);
    std::map<const void*, Attachment> attachments GUARDED_BY(lock);
};

BBinder::BBinder() = default;

BBinder::~BBinder() {
    if (mExtras == nullptr) return;
    std::map<const void*, Extras::Attachment> attachments;
    {
        std::lock_guard lock(mExtras->lock);
        attachments.swap(mExtras->attachments);
    }
    for (const auto& [id, attachment] : attachments) {
        if (attachment.cleanup == nullptr) continue;
        attachment.cleanup(id, attachment.object, attachment.cleanupCookie);
    }
}

BBinder::Extras& BBinder::extras() const {
    std::call_once(mExtrasOnce, [this] { mExtras = std::make_unique<Extras>(); });
    return *mExtras;
}

BBinder* BBinder::localBinder() {
    return this;
}
const String16& BBinder::getInterfaceDescriptor() const {
    static const String16 none;
    return none;
}
bool BBinder::isBinderAlive() const {
    return true;
}
status_t BBinder::pingBinder() {
    return OK;
}
status_t BBinder::dump(int /*fd*/, const Vector<String16>& /*args*/) {
    return OK;
}
pid_t BBinder::getDebugPid() {
    return getpid();
}

status_t BBinder::linkToDeath(const sp<DeathRecipient>& /*recipient*/, void* /*cookie*/,
                              uint32_t /*flags*/) {
    return INVALID_OPERATION;
}
status_t BBinder::unlinkToDeath(const wp<DeathRecipient>& /*recipient*/, void* /*cookie*/,
                                uint32_t /*flags*/, wp<DeathRecipient>* /*outRecipient*/) {
    return INVALID_OPERATION;
}

void BBinder::setExtension(const sp<IBinder>& extension) {
    std::lock_guard lock(extras().lock);
    extras().extension = extension;
}
sp<IBinder> BBinder::getExtension() {
    std::lock_guard lock(extras().lock);
    return extras().extension;
}

void BBinder::attachObject(const void* objectId, void* object, void* cleanupCookie,
                           object_cleanup_func func) {
    std::lock_guard lock(extras().lock);
    extras().attachments.insert_or_assign(objectId,
                                          Extras::Attachment{object, cleanupCookie, func});
}
void* BBinder::findObject(const void* objectId) const {
    std::lock_guard lock(extras().lock);
    const auto found = extras().attachments.find(objectId);
    return found == extras().attachments.end() ? nullptr : found->second.object;
}
void BBinder::detachObject(const void* objectId) {
    std::lock_guard lock(extras().lock);
    extras().attachments.erase(objectId);
}

status_t BBinder::transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    data.setDataPosition(0);
    status_t status = OK;
    // These no object answers in its own way.
    switch (code) {
        case PING_TRANSACTION:
            status = pingBinder();
            break;
        case EXTENSION_TRANSACTION:
            status = reply == nullptr ? UNEXPECTED_NULL : reply->writeStrongBinder(getExtension());
            break;
        case DEBUG_PID_TRANSACTION:
            status = reply == nullptr ? UNEXPECTED_NULL : reply->writeInt32(getDebugPid());
            break;
        default: {
            if (reply != nullptr) {
                status = onTransact(code, data, reply, flags);
                break;
            }
            // Stubs write an answer whether or not the caller wants one.
            Parcel unwanted;
            status = onTransact(code, data, &unwanted, flags);
            break;
        }
    }
    if (reply != nullptr) reply->setDataPosition(0);
    return status;
}

status_t BBinder::onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t /*flags*/) {
    switch (code) {
        case INTERFACE_TRANSACTION:
            return reply->writeString16(getInterfaceDescriptor());
        case DUMP_TRANSACTION:
            return answerDump(this, data);
        case SHELL_COMMAND_TRANSACTION:
            return refuseShellCommand(data);
        case SYSPROPS_TRANSACTION:
            return OK;
        default:
            return UNKNOWN_TRANSACTION;
    }
}

BpRefBase::BpRefBase(const sp<IBinder>& remote) : mRemote(remote) {}
BpRefBase::~BpRefBase() = default;

IInterface::IInterface() = default;
IInterface::~IInterface() = default;

sp<IBinder> IInterface::asBinder(const IInterface* interface) {
    return interface == nullptr ? nullptr : const_cast<IInterface*>(interface)->onAsBinder();
}
sp<IBinder> IInterface::asBinder(const sp<IInterface>& interface) {
    return asBinder(interface.get());
}

}  // namespace android

// SPDX-License-Identifier: Apache-2.0
//
// A reference to an object that can be called across processes.
//
// An IBinder is either a BBinder (the object itself, in this process) or a BpBinder (a proxy for an
// object elsewhere). Callers need not know which: transact() works the same on both.
#pragma once

#include <sys/types.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/String16.h>
#include <utils/Vector.h>

#include <cstdint>

namespace android {

class BBinder;
class BpBinder;
class IInterface;
class Parcel;

namespace internal {

/** The number that four letters make, as in the codes of the transactions every binder knows. */
constexpr uint32_t packLetters(const char (&letters)[5]) {
    uint32_t packed = 0;
    for (int i = 0; i < 4; i++)
        packed = (packed << 8) | static_cast<uint8_t>(letters[i]);
    return packed;
}

}  // namespace internal

class IBinder : public virtual RefBase {
public:
    enum : uint32_t {
        FIRST_CALL_TRANSACTION = 0x00000001,
        LAST_CALL_TRANSACTION = 0x00ffffff,

        PING_TRANSACTION = internal::packLetters("_PNG"),
        DUMP_TRANSACTION = internal::packLetters("_DMP"),
        SHELL_COMMAND_TRANSACTION = internal::packLetters("_CMD"),
        INTERFACE_TRANSACTION = internal::packLetters("_NTF"),
        SYSPROPS_TRANSACTION = internal::packLetters("_SPR"),
        EXTENSION_TRANSACTION = internal::packLetters("_EXT"),
        DEBUG_PID_TRANSACTION = internal::packLetters("_PID"),

        /** The caller does not wait; it learns nothing of the call's fate beyond its delivery. */
        FLAG_ONEWAY = 0x00000001,
        FLAG_PRIVATE_VENDOR = 0x10000000,
    };

    IBinder();

    /** The object behind this binder as an interface, when it lives here; else null. */
    virtual sp<IInterface> queryLocalInterface(const String16& descriptor);

    /** A remote object is asked for it once; empty when it does not answer. */
    virtual const String16& getInterfaceDescriptor() const = 0;

    /** False once a call has failed with DEAD_OBJECT or the death notice has come. */
    virtual bool isBinderAlive() const = 0;
    virtual status_t pingBinder() = 0;
    virtual status_t dump(int fd, const Vector<String16>& args) = 0;

    /** The extension object that the service attached, or null. */
    status_t getExtension(sp<IBinder>* out);

    /** The pid of the process that the object lives in. */
    status_t getDebugPid(pid_t* outPid);

    /**
     * Calls the object. data is only read. reply may be null when the answer is of no interest; it
     * is filled when the result is OK. Any thread; holds no lock of the runtime during the call.
     */
    virtual status_t transact(uint32_t code, const Parcel& data, Parcel* reply,
                              uint32_t flags = 0) = 0;

    class DeathRecipient : public virtual RefBase {
    public:
        /** Called on a thread of the pool, with no lock of the runtime held. */
        virtual void binderDied(const wp<IBinder>& who) = 0;
    };

    /**
     * Asks for one notice when the process that holds the object ends. The recipient is held
     * weakly: keep it alive. No notice comes when this proxy is destroyed first.
     *
     * Only queues a command: incoming work is never run from here. OK also when the object is dead
     * but this process has not been told yet (the notice follows); DEAD_OBJECT when it has;
     * INVALID_OPERATION on a local object, which cannot die before its process does.
     */
    virtual status_t linkToDeath(const sp<DeathRecipient>& recipient, void* cookie = nullptr,
                                 uint32_t flags = 0) = 0;

    /**
     * Removes the first request with this recipient, cookie and flags. A null recipient matches by
     * cookie alone. NAME_NOT_FOUND when there is none, DEAD_OBJECT when the notices have been sent.
     */
    virtual status_t unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie = nullptr,
                                   uint32_t flags = 0,
                                   wp<DeathRecipient>* outRecipient = nullptr) = 0;

    virtual bool checkSubclass(const void* subclassId) const;

    using object_cleanup_func = void (*)(const void* id, void* obj, void* cleanupCookie);

    /** Keeps a pointer with this binder until it is destroyed; func, if any, is called then. */
    virtual void attachObject(const void* objectId, void* object, void* cleanupCookie,
                              object_cleanup_func func) = 0;
    virtual void* findObject(const void* objectId) const = 0;
    virtual void detachObject(const void* objectId) = 0;

    virtual BBinder* localBinder();
    virtual BpBinder* remoteBinder();

protected:
    ~IBinder() override;
};

}  // namespace android

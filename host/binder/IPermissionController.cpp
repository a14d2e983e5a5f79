// SPDX-License-Identifier: Apache-2.0
//
// Permission controller: proxy and stub. Replies are an exception code and then the result.
#include <binder/IPermissionController.h>
#include <binder/Parcel.h>
#include <log/log.h>

#include <algorithm>

namespace android {
namespace {

constexpr int32_t kModeErrored = 2;
constexpr int32_t kNoUid = -1;
/** More names than a reply can carry mean a reply that is not what it says. */
constexpr size_t kMinNameSize = 8;

}  // namespace

class BpPermissionController : public BpInterface<IPermissionController> {
public:
    explicit BpPermissionController(const sp<IBinder>& remote) : BpInterface(remote) {}

    bool checkPermission(const String16& permission, int32_t pid, int32_t uid) override {
        Parcel data;
        data.writeInterfaceToken(descriptor);
        data.writeString16(permission);
        data.writeInt32(pid);
        data.writeInt32(uid);
        return ask(CHECK_PERMISSION_TRANSACTION, data, /*otherwise=*/0) != 0;
    }

    int32_t noteOp(const String16& op, int32_t uid, const String16& packageName) override {
        Parcel data;
        data.writeInterfaceToken(descriptor);
        data.writeString16(op);
        data.writeInt32(uid);
        data.writeString16(packageName);
        return ask(NOTE_OP_TRANSACTION, data, kModeErrored);
    }

    void getPackagesForUid(const uid_t uid, Vector<String16>& packages) override {
        Parcel data;
        Parcel reply;
        data.writeInterfaceToken(descriptor);
        data.writeInt32(int32_t(uid));
        if (remote()->transact(GET_PACKAGES_FOR_UID_TRANSACTION, data, &reply) != OK) return;
        if (reply.readExceptionCode() != 0) return;
        const int32_t count = reply.readInt32();
        if (count < 0 || size_t(count) > reply.dataAvail() / kMinNameSize) return;
        for (int32_t i = 0; i < count; i++)
            packages.push(reply.readString16());
    }

    bool isRuntimePermission(const String16& permission) override {
        Parcel data;
        data.writeInterfaceToken(descriptor);
        data.writeString16(permission);
        return ask(IS_RUNTIME_PERMISSION_TRANSACTION, data, /*otherwise=*/0) != 0;
    }

    int getPackageUid(const String16& package, int flags) override {
        Parcel data;
        data.writeInterfaceToken(descriptor);
        data.writeString16(package);
        data.writeInt32(flags);
        return ask(GET_PACKAGE_UID_TRANSACTION, data, kNoUid);
    }

private:
    int32_t ask(uint32_t code, const Parcel& data, int32_t otherwise) {
        Parcel reply;
        int32_t result = 0;
        if (remote()->transact(code, data, &reply) != OK) return otherwise;
        if (reply.readExceptionCode() != 0 || reply.readInt32(&result) != OK) return otherwise;
        return result;
    }
};

IMPLEMENT_META_INTERFACE(PermissionController, "android.os.IPermissionController")

namespace {

status_t answer(Parcel* reply, int32_t result) {
    if (const status_t status = reply->writeNoException(); status != OK) return status;
    return reply->writeInt32(result);
}

status_t answer(Parcel* reply, const Vector<String16>& names) {
    if (const status_t status = answer(reply, int32_t(names.size())); status != OK) return status;
    for (const String16& name : names) {
        if (const status_t status = reply->writeString16(name); status != OK) return status;
    }
    return OK;
}

}  // namespace

status_t BnPermissionController::onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                                            uint32_t flags) {
    if (code < CHECK_PERMISSION_TRANSACTION || code > GET_PACKAGE_UID_TRANSACTION) {
        return BBinder::onTransact(code, data, reply, flags);
    }
    CHECK_INTERFACE(IPermissionController, data, reply);
    String16 text;
    String16 package;
    int32_t first = 0;
    int32_t second = 0;
    if (code != GET_PACKAGES_FOR_UID_TRANSACTION) {
        if (const status_t status = data.readString16(&text); status != OK) return status;
    }
    if (code != IS_RUNTIME_PERMISSION_TRANSACTION) {
        if (const status_t status = data.readInt32(&first); status != OK) return status;
    }
    switch (code) {
        case CHECK_PERMISSION_TRANSACTION:
            if (const status_t status = data.readInt32(&second); status != OK) return status;
            return answer(reply, checkPermission(text, first, second) ? 1 : 0);
        case NOTE_OP_TRANSACTION:
            if (const status_t status = data.readString16(&package); status != OK) return status;
            return answer(reply, noteOp(text, first, package));
        case GET_PACKAGES_FOR_UID_TRANSACTION: {
            Vector<String16> packages;
            getPackagesForUid(uid_t(first), packages);
            return answer(reply, packages);
        }
        case IS_RUNTIME_PERMISSION_TRANSACTION:
            return answer(reply, isRuntimePermission(text) ? 1 : 0);
        default:
            return answer(reply, getPackageUid(text, first));
    }
}

}  // namespace android

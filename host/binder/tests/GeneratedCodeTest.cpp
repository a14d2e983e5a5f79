// SPDX-License-Identifier: Apache-2.0
//
// Generated stubs and proxies over our parcels: cut, random and hostile input ends in a status.
#include <android/content/pm/BnPackageManagerNative.h>
#include <android/os/BnClientCallback.h>
#include <android/os/BnServiceCallback.h>
#include <android/os/IServiceManager.h>
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace {

using namespace android;
using binder::Status;
using content::pm::IPackageManagerNative;

constexpr int kRounds = 10000;

class Packages : public content::pm::BnPackageManagerNative {
public:
    int handled = 0;

    Status getNamesForUids(const std::vector<int32_t>& uids,
                           std::vector<std::string>* names) override {
        handled++;
        for (const int32_t uid : uids)
            names->push_back(std::to_string(uid));
        return Status::ok();
    }
    Status getInstallerForPackage(const String16& package, std::string* installer) override {
        handled++;
        *installer = String8(package).string();
        return package == String16("unknown") ? Status::fromExceptionCode(Status::EX_ILLEGAL_STATE)
                                              : Status::ok();
    }
    Status getVersionCodeForPackage(const String16& /*package*/, int64_t* version) override {
        handled++;
        *version = 1LL << 40;
        return Status::ok();
    }
};

class Watcher : public os::BnServiceCallback {
public:
    int handled = 0;

    Status onRegistration(const std::string& /*name*/, const sp<IBinder>& binder) override {
        handled++;
        EXPECT_NE(binder, nullptr);
        return Status::ok();
    }
};

/** Hands calls on, so that they pass through parcels although all is in one process. */
class Relay : public BBinder {
public:
    explicit Relay(const sp<IBinder>& target) : mTarget(target) {}

protected:
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override {
        return mTarget->transact(code, data, reply, flags);
    }

private:
    const sp<IBinder> mTarget;
};

/** Random words, texts and objects; the numbers lean towards sizes and limits. */
void fillRandomly(std::mt19937* random, Parcel* parcel) {
    const sp<BBinder> binder = new BBinder();
    for (size_t left = (*random)() % 12; left > 0; left--) {
        switch ((*random)() % 8) {
            case 0:
                parcel->writeInt32(int32_t((*random)()));
                break;
            case 1:
                parcel->writeInt32(int32_t((*random)() % 64));
                break;
            case 2:
                parcel->writeInt32(-int32_t((*random)() % 3));
                break;
            case 3:
                parcel->writeInt32(INT32_MAX - int32_t((*random)() % 3));
                break;
            case 4:
                parcel->writeString16(String16("text"));
                break;
            case 5:
                parcel->writeStrongBinder(binder);
                break;
            case 6:
                parcel->writeStrongBinder(nullptr);
                break;
            default:
                for (int i = 0; i < 4; i++)
                    parcel->writeInt32(int32_t((*random)()));
                break;
        }
    }
    if ((*random)() % 4 == 0) parcel->setDataSize((*random)() % (parcel->dataSize() + 1));
}

TEST(GeneratedCodeTest, CallsPassThroughParcels) {
    const sp<Packages> packages = new Packages();
    const sp<IPackageManagerNative> proxy =
            interface_cast<IPackageManagerNative>(new Relay(packages));
    std::vector<std::string> names;
    EXPECT_TRUE(proxy->getNamesForUids({1000, -1}, &names).isOk());
    EXPECT_EQ(names, (std::vector<std::string>{"1000", "-1"}));
    std::string installer;
    EXPECT_TRUE(proxy->getInstallerForPackage(String16("a.b"), &installer).isOk());
    EXPECT_EQ(installer, "a.b");
    int64_t version = 0;
    EXPECT_TRUE(proxy->getVersionCodeForPackage(String16("a.b"), &version).isOk());
    EXPECT_EQ(version, 1LL << 40);
    EXPECT_EQ(proxy->getInstallerForPackage(String16("unknown"), &installer).exceptionCode(),
              Status::EX_ILLEGAL_STATE);
}

TEST(GeneratedCodeTest, LocalInterfaceIsCastToItself) {
    const sp<Packages> packages = new Packages();
    const sp<IBinder> binder = packages;
    EXPECT_EQ(interface_cast<IPackageManagerNative>(binder).get(), packages.get());
    EXPECT_EQ(IInterface::asBinder(packages), binder);
    EXPECT_EQ(IInterface::asBinder(static_cast<IInterface*>(nullptr)), nullptr);
    EXPECT_EQ(interface_cast<IPackageManagerNative>(sp<IBinder>()), nullptr);
    const sp<IBinder> relay = new Relay(packages);
    EXPECT_EQ(IInterface::asBinder(interface_cast<IPackageManagerNative>(relay)), relay);
    EXPECT_EQ(checked_interface_cast<os::IServiceManager>(binder), nullptr);
    EXPECT_NE(checked_interface_cast<IPackageManagerNative>(binder), nullptr);
}

TEST(GeneratedCodeTest, RequestCutAnywhereIsRefusedBeforeTheHandler) {
    const sp<Packages> packages = new Packages();
    const sp<Watcher> watcher = new Watcher();
    struct Row {
        const char* name;
        sp<IBinder> stub;
        uint32_t code;
        Parcel request;
    };
    std::vector<std::unique_ptr<Row>> rows;
    const auto row = [&rows](const char* name, const sp<IBinder>& stub, uint32_t code) -> Parcel& {
        rows.push_back(std::make_unique<Row>());
        rows.back()->name = name;
        rows.back()->stub = stub;
        rows.back()->code = code;
        rows.back()->request.writeInterfaceToken(stub->getInterfaceDescriptor());
        return rows.back()->request;
    };
    row("uids", packages, 1).writeInt32Vector({1, 2, 3});
    row("installer", packages, 2).writeString16(String16("package"));
    row("version", packages, 3).writeString16(String16("package"));
    Parcel& registration = row("registration", watcher, 1);
    registration.writeUtf8AsUtf16(std::string("service"));
    registration.writeStrongBinder(new BBinder());

    for (const auto& each : rows) {
        for (size_t size = 0; size < each->request.dataSize(); size += 4) {
            SCOPED_TRACE(std::string(each->name) + " cut to " + std::to_string(size));
            Parcel cut;
            ASSERT_EQ(cut.appendFrom(&each->request, 0, size), OK);
            Parcel reply;
            EXPECT_NE(each->stub->transact(each->code, cut, &reply), OK);
        }
        EXPECT_EQ(packages->handled + watcher->handled, 0);
    }
    for (const auto& each : rows) {
        Parcel reply;
        EXPECT_EQ(each->stub->transact(each->code, each->request, &reply), OK);
    }
    EXPECT_EQ(packages->handled, 3);
    EXPECT_EQ(watcher->handled, 1);
}

TEST(GeneratedCodeTest, StubsSurviveRandomRequests) {
    std::mt19937 random(20211);
    const sp<Packages> packages = new Packages();
    const sp<Watcher> watcher = new Watcher();
    const sp<IBinder> stubs[] = {packages, watcher};
    int refused = 0;
    for (int round = 0; round < kRounds; round++) {
        const sp<IBinder>& stub = stubs[random() % 2];
        Parcel data;
        Parcel reply;
        if (random() % 8 != 0) data.writeInterfaceToken(stub->getInterfaceDescriptor());
        fillRandomly(&random, &data);
        if (stub->transact(1 + random() % 4, data, &reply) != OK) refused++;
    }
    EXPECT_GT(refused, 0);
    EXPECT_GT(packages->handled, 0) << "some of the requests must be good";
}

/** Answers every call with random contents. */
class RandomRemote : public BBinder {
public:
    explicit RandomRemote(uint32_t seed) : mRandom(seed) {}

protected:
    status_t onTransact(uint32_t /*code*/, const Parcel& /*data*/, Parcel* reply,
                        uint32_t /*flags*/) override {
        if (mRandom() % 4 != 0) reply->writeNoException();
        fillRandomly(&mRandom, reply);
        return OK;
    }

private:
    std::mt19937 mRandom;
};

TEST(GeneratedCodeTest, ProxiesSurviveRandomReplies) {
    const sp<os::IServiceManager> proxy =
            interface_cast<os::IServiceManager>(new RandomRemote(20212));
    std::mt19937 random(20213);
    int fine = 0;
    int refused = 0;
    for (int round = 0; round < kRounds; round++) {
        sp<IBinder> found;
        std::vector<std::string> names;
        std::vector<os::ServiceDebugInfo> infos;
        std::unique_ptr<os::ConnectionInfo> connection;
        bool declared = false;
        Status status;
        switch (random() % 5) {
            case 0:
                status = proxy->checkService("x", &found);
                break;
            case 1:
                status = proxy->listServices(15, &names);
                break;
            case 2:
                status = proxy->getServiceDebugInfo(&infos);
                EXPECT_TRUE(status.isOk() || infos.empty()) << "no part of a reply that failed";
                break;
            case 3:
                status = proxy->getConnectionInfo("x", &connection);
                break;
            default:
                status = proxy->isDeclared("x", &declared);
                break;
        }
        ++(status.isOk() ? fine : refused);
    }
    EXPECT_GT(fine, 0);
    EXPECT_GT(refused, 0);
}

}  // namespace

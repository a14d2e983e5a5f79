// SPDX-License-Identifier: Apache-2.0
// What stands before a service: calls pass through it, or go wrong as planned. In one process, with
// the generated proxies before it.
#include "services/ServiceFront.h"

#include <android/app/BnActivityManager.h>
#include <android/app/BnProcessObserver.h>
#include <android/app/BpActivityManager.h>
#include <android/content/pm/BpPackageManagerNative.h>
#include <android/hardware/display/BpDisplayManager.h>
#include <binder/IPermissionController.h>
#include <binder/Parcel.h>
#include <gtest/gtest.h>
#include <velmar/internal/BpVelmarWindowManager.h>
#include <velmar/internal/BpVrFocusHelper.h>

#include <algorithm>
#include <vector>

#include "services/ActivityManager.h"
#include "services/WorldReplica.h"
#include "world/ServiceMethods.h"

namespace sim {
namespace {

using android::sp;
using android::String16;
using android::binder::Status;
using Kind = FaultPlan::Kind;

/** Notes which calls arrive, and answers none. */
class Recorder : public android::BBinder {
public:
    std::vector<uint32_t> mCodes;

protected:
    android::status_t onTransact(uint32_t code, const android::Parcel&, android::Parcel*,
                                 uint32_t) override {
        mCodes.push_back(code);
        return android::UNKNOWN_TRANSACTION;
    }
};

/** Calls every method of a service through its proxy, in the order of their names in the table. */
void callAll(const std::string& service, const sp<Recorder>& recorder) {
    bool flag = false;
    std::vector<int32_t> numbers;
    std::vector<std::string> names;
    std::string name;
    String16 wide;
    int64_t version = 0;
    android::Vector<String16> packages;
    if (service == "activity") {
        const sp<android::app::BpActivityManager> holder(
                new android::app::BpActivityManager(recorder));
        android::app::BpActivityManager& proxy = *holder;
        proxy.registerProcessObserver(nullptr);
        proxy.unregisterProcessObserver(nullptr);
        proxy.hasForegroundPanelService(1, 2, &flag);
        proxy.hasActivityOnPrimaryDisplay(1, 2, &flag);
        proxy.getDisplaysWithTopActivities(1, {}, &numbers);
        proxy.getTopActivityOnPrimaryDisplay(&wide);
    } else if (service == "display") {
        const sp<android::hardware::display::BpDisplayManager> proxy(
                new android::hardware::display::BpDisplayManager(recorder));
        proxy->registerCallbackWithEventMask(nullptr, 0);
    } else if (service == "permission") {
        const auto proxy = android::interface_cast<android::IPermissionController>(recorder);
        proxy->checkPermission(wide, 1, 2);
        proxy->noteOp(wide, 1, wide);
        proxy->getPackagesForUid(1, packages);
        proxy->isRuntimePermission(wide);
        proxy->getPackageUid(wide, 0);
    } else if (service == "package_native") {
        const sp<android::content::pm::BpPackageManagerNative> holder(
                new android::content::pm::BpPackageManagerNative(recorder));
        android::content::pm::BpPackageManagerNative& proxy = *holder;
        proxy.getNamesForUids({}, &names);
        proxy.getInstallerForPackage(wide, &name);
        proxy.getVersionCodeForPackage(wide, &version);
    } else if (service == "VelmarWindowManager") {
        const sp<velmar::internal::BpVelmarWindowManager> holder(
                new velmar::internal::BpVelmarWindowManager(recorder));
        velmar::internal::BpVelmarWindowManager& proxy = *holder;
        proxy.registerWindowLayoutObserver(nullptr, &flag);
        proxy.unregisterWindowLayoutObserver(nullptr);
        proxy.registerSystemKeyEventHandler(nullptr, &flag);
        proxy.unregisterSystemKeyEventHandler(nullptr, &flag);
    } else {
        const sp<velmar::internal::BpVrFocusHelper> holder(
                new velmar::internal::BpVrFocusHelper(recorder));
        velmar::internal::BpVrFocusHelper& proxy = *holder;
        proxy.onFocusChanged(0);
        proxy.onTopActivityChanged(nullptr);
        proxy.onImmersiveAppChanged(nullptr);
    }
}

TEST(ServiceMethodsTest, theCodesAreThoseThatTheProxiesSend) {
    for (const char* service : {"activity", "display", "permission", "package_native",
                                "VelmarWindowManager", "vrfocushelper"}) {
        const sp<Recorder> recorder(new Recorder);
        callAll(service, recorder);
        std::vector<uint32_t> codes;
        for (const ServiceMethod& method : methodsOf(service))
            codes.push_back(method.code);
        EXPECT_EQ(recorder->mCodes, codes) << service;
    }
    EXPECT_TRUE(methodsOf("surfaceflinger").empty());
}

class ServiceFrontTest : public testing::Test {
protected:
    ServiceFrontTest() {
        World world;
        world.addProcess(7, "com.a", 10050);
        static_cast<void>(world.startActivity(7, 0));
        mWorld.set(world);
    }

    FaultPlan plan(Kind kind, const std::string& method = FaultPlan::kAllMethods, int times = 0) {
        FaultPlan plan;
        plan.kind = kind;
        plan.method = method;
        plan.times = times;
        return plan;
    }

    Status top() {
        mTop = String16();
        return mProxy->getTopActivityOnPrimaryDisplay(&mTop);
    }
    Status onDisplay(bool* out) { return mProxy->hasActivityOnPrimaryDisplay(7, 10050, out); }

    WorldReplica mWorld;
    const sp<ServiceFront> mFront{
            new ServiceFront("activity", sp<android::IBinder>(new ActivityManager(mWorld)))};
    const sp<android::app::BpActivityManager> mProxy{new android::app::BpActivityManager(mFront)};
    String16 mTop;
};

TEST_F(ServiceFrontTest, callsPassThrough) {
    EXPECT_TRUE(top().isOk());
    EXPECT_EQ(mTop, String16("com.a"));
    EXPECT_EQ(mFront->getInterfaceDescriptor(), android::app::IActivityManager::descriptor);
    EXPECT_EQ(mFront->callers().size(), 1u);
}

TEST_F(ServiceFrontTest, anErrorIsAnsweredAsOftenAsPlannedAndForItsMethodOnly) {
    FaultPlan fault = plan(Kind::Error, "getTopActivityOnPrimaryDisplay", /*times=*/2);
    fault.exception = Status::EX_SECURITY;
    mFront->set(fault);
    bool is = false;
    EXPECT_TRUE(onDisplay(&is).isOk() && is);
    EXPECT_EQ(top().exceptionCode(), Status::EX_SECURITY);
    EXPECT_EQ(top().exceptionCode(), Status::EX_SECURITY);
    EXPECT_TRUE(top().isOk());
}

TEST_F(ServiceFrontTest, anErrorOfTheTransportIsOne) {
    FaultPlan fault = plan(Kind::Error);
    fault.transport = android::FAILED_TRANSACTION;
    mFront->set(fault);
    EXPECT_EQ(top().transactionError(), android::FAILED_TRANSACTION);
    mFront->set(plan(Kind::None));
    EXPECT_TRUE(top().isOk());
}

TEST_F(ServiceFrontTest, aMethodsOwnFaultGoesBeforeThatForAll) {
    FaultPlan all = plan(Kind::Error);
    all.exception = Status::EX_ILLEGAL_STATE;
    FaultPlan own = plan(Kind::Error, "getTopActivityOnPrimaryDisplay");
    own.exception = Status::EX_NULL_POINTER;
    mFront->set(own);
    mFront->set(all);
    bool is = false;
    EXPECT_EQ(top().exceptionCode(), Status::EX_NULL_POINTER);
    EXPECT_EQ(onDisplay(&is).exceptionCode(), Status::EX_ILLEGAL_STATE);
}

TEST_F(ServiceFrontTest, aTruncatedReplyLacksItsEnd) {
    mFront->set(plan(Kind::Truncated));
    EXPECT_NE(top().transactionError(), android::OK);
    bool is = false;
    EXPECT_EQ(onDisplay(&is).transactionError(), android::NOT_ENOUGH_DATA);
}

TEST_F(ServiceFrontTest, randomRepliesAreThoseOfTheSeed) {
    const auto replies = [this](uint32_t seed) {
        FaultPlan fault = plan(Kind::Random);
        fault.seed = seed;
        mFront->set(fault);
        std::vector<std::string> replies;
        for (int call = 0; call < 20; ++call) {
            android::Parcel data;
            android::Parcel reply;
            data.writeInterfaceToken(android::app::IActivityManager::descriptor);
            EXPECT_EQ(mFront->transact(228, data, &reply), android::OK);
            replies.emplace_back(reinterpret_cast<const char*>(reply.data()), reply.dataSize());
        }
        return replies;
    };
    const auto first = replies(1);
    EXPECT_EQ(replies(1), first);
    EXPECT_NE(replies(2), first);
    const std::string fine(4, '\0');
    const auto looksFine = [&](const std::string& reply) { return reply.starts_with(fine); };
    const auto many = std::count_if(first.begin(), first.end(), looksFine);
    EXPECT_GT(many, 0) << "what follows a success is read, too";
    EXPECT_LT(many, 20);
}

TEST_F(ServiceFrontTest, itDiesInTheCallThatIsPlannedAndInNoOther) {
    mFront->set(plan(Kind::Dies, FaultPlan::kRegistration));
    EXPECT_TRUE(top().isOk());
    EXPECT_EQ(mFront->pingBinder(), android::OK);
    EXPECT_EXIT(mProxy->registerProcessObserver(nullptr), testing::ExitedWithCode(1), "");
}

TEST_F(ServiceFrontTest, underAWrongDescriptorEveryCallIsRefused) {
    FaultPlan fault = plan(Kind::Descriptor);
    fault.descriptor = "some.other.IThing";
    mFront->set(fault);
    EXPECT_EQ(mFront->getInterfaceDescriptor(), String16("some.other.IThing"));
    android::Parcel data;
    android::Parcel reply;
    EXPECT_EQ(mFront->transact(android::IBinder::INTERFACE_TRANSACTION, data, &reply), android::OK);
    EXPECT_EQ(reply.readString16(), String16("some.other.IThing"));
    EXPECT_EQ(top().transactionError(), android::BAD_TYPE);
    EXPECT_EQ(mFront->pingBinder(), android::OK);
}

}  // namespace
}  // namespace sim

// SPDX-License-Identifier: Apache-2.0
//
// Contracts on the wire: the bytes and codes of what the daemon calls, and of what it is told.
#include <android/app/BnProcessObserver.h>
#include <android/app/IActivityManager.h>
#include <android/hardware/display/BnDisplayManagerCallback.h>
#include <android/hardware/display/IDisplayManager.h>
#include <binder/Parcel.h>
#include <gtest/gtest.h>
#include <velmar/internal/BnSystemKeyEventHandler.h>
#include <velmar/internal/BnWindowLayoutObserver.h>
#include <velmar/internal/IVelmarWindowManager.h>
#include <velmar/internal/IVrFocusHelper.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "GoldenParcel.h"

namespace NQS::OS {
namespace {

using android::IBinder;
using android::Parcel;
using android::sp;
using android::String16;
using android::binder::Status;
using Activity = android::app::IActivityManager;
using Display = android::hardware::display::IDisplayManager;
using Window = velmar::internal::IVelmarWindowManager;
using Helper = velmar::internal::IVrFocusHelper;

/** What the stubs were told last. */
std::string gTold;
sp<IBinder> gToken;

Status told(const char* what, std::initializer_list<int32_t> arguments) {
    gTold = what;
    for (const int32_t argument : arguments)
        gTold += " " + std::to_string(argument);
    return Status::ok();
}

class ProcessStub : public android::app::BnProcessObserver {
    Status onForegroundActivitiesChanged(int32_t pid, int32_t uid, bool fg) override {
        return told("activities", {pid, uid, fg ? 1 : 0});
    }
    Status onForegroundServicesChanged(int32_t pid, int32_t uid, int32_t types) override {
        return told("services", {pid, uid, types});
    }
    Status onProcessDied(int32_t pid, int32_t uid) override { return told("died", {pid, uid}); }
};
class DisplayStub : public android::hardware::display::BnDisplayManagerCallback {
    Status onDisplayEvent(int32_t displayId, int32_t event) override {
        return told("display", {displayId, event});
    }
};
class WindowStub : public velmar::internal::BnWindowLayoutObserver {
    Status onFocusedWindowChanged(const sp<IBinder>& token, int32_t uid, int32_t pid) override {
        gToken = token;
        return told("window", {uid, pid});
    }
};

/** A remote object as a proxy sees one: keeps the request, gives a prepared answer. */
class RecordingBinder : public android::BBinder {
public:
    uint32_t code = 0, flags = 0;
    std::vector<uint8_t> request, reply;

protected:
    android::status_t onTransact(uint32_t sentCode, const Parcel& data, Parcel* out,
                                 uint32_t sentFlags) override {
        code = sentCode;
        flags = sentFlags;
        request.assign(data.data(), data.data() + data.dataSize());
        return out != nullptr ? out->setData(reply.data(), reply.size()) : android::OK;
    }
};

class WireProxyTest : public testing::Test {
protected:
    /** A call to the remote object, which answers with these bytes; those that were sent. */
    void expectSent(const Status& status, uint32_t code, const GoldenParcel& request,
                    uint32_t flags = 0) {
        SCOPED_TRACE(code);
        EXPECT_TRUE(status.isOk());
        EXPECT_EQ(remote->code, code);
        EXPECT_EQ(remote->flags, flags);
        EXPECT_EQ(remote->request, request.bytes());
    }
    template <typename Interface>
    sp<Interface> answering(const GoldenParcel& reply) {
        remote->reply = reply.bytes();
        return android::interface_cast<Interface>(remote);
    }

    const sp<RecordingBinder> remote = new RecordingBinder;
    const GoldenParcel done = GoldenParcel::reply();
    const GoldenParcel yes = GoldenParcel::reply().int32(1);
};

TEST_F(WireProxyTest, ActivityManagerCallsSendTheirBytesAndReadTheAnswer) {
    const sp<ProcessStub> observer = new ProcessStub;
    const auto am = [] { return GoldenParcel::request(u"android.app.IActivityManager"); };
    const sp<Activity> remoteManager = answering<Activity>(done);
    expectSent(remoteManager->registerProcessObserver(observer), 110, am().binder(observer));
    expectSent(remoteManager->unregisterProcessObserver(observer), 111, am().binder(observer));
    bool panel = false, primary = false;
    answering<Activity>(yes);
    expectSent(remoteManager->hasForegroundPanelService(43, 100, &panel), 225,
               am().int32(43).int32(100));
    expectSent(remoteManager->hasActivityOnPrimaryDisplay(-1, INT32_MIN, &primary), 226,
               am().int32(-1).int32(INT32_MIN));
    EXPECT_TRUE(panel && primary);
    std::vector<int32_t> displays;
    answering<Activity>(GoldenParcel::reply().int32(2).int32(5).int32(-1));
    expectSent(remoteManager->getDisplaysWithTopActivities(43, {0, 5}, &displays), 227,
               am().int32(43).int32(2).int32(0).int32(5));
    EXPECT_EQ(displays, (std::vector<int32_t>{5, -1}));
    String16 top;
    answering<Activity>(GoldenParcel::reply().string16(u"com.app"));
    expectSent(remoteManager->getTopActivityOnPrimaryDisplay(&top), 228, am());
    EXPECT_EQ(top, String16("com.app"));
}

TEST_F(WireProxyTest, DisplayAndWindowManagerCallsSendTheirBytesAndReadTheAnswer) {
    const sp<DisplayStub> callback = new DisplayStub;
    expectSent(answering<Display>(done)->registerCallbackWithEventMask(callback, 0x200000001), 5,
               GoldenParcel::request(u"android.hardware.display.IDisplayManager")
                       .binder(callback)
                       .int64(0x200000001));
    const sp<WindowStub> observer = new WindowStub;
    const sp<velmar::internal::ISystemKeyEventHandler> keys =
            new velmar::internal::BnSystemKeyEventHandler;
    const auto wm = [](const auto& binder) {
        return GoldenParcel::request(u"velmar.internal.IVelmarWindowManager")
                .binder(android::IInterface::asBinder(binder));
    };
    bool first = false, third = false, fourth = false;
    const sp<Window> window = answering<Window>(yes);
    expectSent(window->registerWindowLayoutObserver(observer, &first), 1, wm(observer));
    expectSent(window->unregisterWindowLayoutObserver(observer), 2, wm(observer));
    expectSent(window->registerSystemKeyEventHandler(keys, &third), 3, wm(keys));
    expectSent(window->unregisterSystemKeyEventHandler(keys, &fourth), 4, wm(keys));
    EXPECT_TRUE(first && third && fourth);
}

TEST_F(WireProxyTest, HelperNoticesAreOneWayAndTellNoPackageFromAnEmptyOne) {
    const auto to = [] { return GoldenParcel::request(u"velmar.internal.IVrFocusHelper"); };
    const sp<Helper> helper = answering<Helper>(done);
    expectSent(helper->onFocusChanged(1), 1, to().int32(1), IBinder::FLAG_ONEWAY);
    for (const uint32_t code : {2U, 3U}) {
        const auto notice =
                code == 2 ? &Helper::onTopActivityChanged : &Helper::onImmersiveAppChanged;
        const auto send = [&](std::unique_ptr<String16> name) { return ((*helper).*notice)(name); };
        expectSent(send(std::make_unique<String16>("a.b")), code, to().string16(u"a.b"),
                   IBinder::FLAG_ONEWAY);
        expectSent(send(std::make_unique<String16>()), code, to().string16(u""),
                   IBinder::FLAG_ONEWAY);
        expectSent(send(nullptr), code, to().int32(-1), IBinder::FLAG_ONEWAY);
    }
}

TEST_F(WireProxyTest, AnAnswerThatIsAnExceptionOrCutAnywhereIsAnError) {
    using Call = std::function<Status(Activity&)>;
    bool answer = false;
    std::vector<int32_t> displays;
    String16 top;
    const std::pair<GoldenParcel, Call> rows[] = {
            {done, [](auto& am) { return am.registerProcessObserver(new ProcessStub); }},
            {yes, [&](auto& am) { return am.hasActivityOnPrimaryDisplay(1, 2, &answer); }},
            {GoldenParcel::reply().int32(2).int32(0).int32(5),
             [&](auto& am) { return am.getDisplaysWithTopActivities(1, {0}, &displays); }},
            {GoldenParcel::reply().string16(u"com.app"),
             [&](auto& am) { return am.getTopActivityOnPrimaryDisplay(&top); }},
    };
    for (const auto& [reply, call] : rows) {
        const sp<Activity> manager = answering<Activity>(reply);
        const std::vector<uint8_t> whole = reply.bytes();
        for (size_t length = 0; length < whole.size(); length += 4) {
            SCOPED_TRACE(length);
            remote->reply.resize(length);
            std::copy_n(whole.begin(), length, remote->reply.begin());
            EXPECT_NE(call(*manager).transactionError(), android::OK);
        }
        answering<Activity>(GoldenParcel().int32(-5).string16(u"no").int32(0).int32(1));
        EXPECT_EQ(call(*manager).exceptionCode(), -5);
    }
}

struct StubRow {
    sp<IBinder> stub;
    const char16_t* descriptor;
    uint32_t code;
    std::vector<int32_t> arguments;
    std::string told;
};

std::vector<StubRow> stubRows() {
    const sp<IBinder> process = new ProcessStub;
    constexpr const char16_t* kProcess = u"android.app.IProcessObserver";
    return {
            {process, kProcess, 1, {43, 100, 1}, "activities 43 100 1"},
            {process, kProcess, 2, {43, 100, 7}, "services 43 100 7"},
            {process, kProcess, 3, {-1, 100}, "died -1 100"},
            {new DisplayStub,
             u"android.hardware.display.IDisplayManagerCallback",
             1,
             {5, 3},
             "display 5 3"},
            // Its first argument is a binder.
            {new WindowStub,
             u"velmar.internal.IWindowLayoutObserver",
             1,
             {100, 43},
             "window 100 43"},
    };
}

void fill(Parcel& parcel, const StubRow& row, const std::u16string& descriptor,
          const sp<IBinder>& token) {
    const std::vector<uint8_t> head = GoldenParcel::request(descriptor).bytes();
    EXPECT_EQ(parcel.setData(head.data(), head.size()), android::OK);
    parcel.setDataPosition(head.size());
    if (row.told.starts_with("window")) parcel.writeStrongBinder(token);
    for (const int32_t argument : row.arguments)
        parcel.writeInt32(argument);
    parcel.setDataPosition(0);
}

TEST(WireStubTest, ANoticeReachesItsHandlerWholeAndFromItsOwnInterfaceOnly) {
    const sp<IBinder> token = new android::BBinder;
    for (const StubRow& row : stubRows()) {
        SCOPED_TRACE(row.told);
        Parcel whole, foreign, reply;
        fill(whole, row, row.descriptor, token);
        fill(foreign, row, u"android.app.IActivityManager", token);
        gTold.clear();
        EXPECT_EQ(row.stub->transact(row.code, foreign, &reply, IBinder::FLAG_ONEWAY),
                  android::BAD_TYPE);
        for (size_t length = 0; length < whole.dataSize(); length += 4) {
            Parcel cut;
            ASSERT_EQ(cut.appendFrom(&whole, 0, length), android::OK);
            EXPECT_NE(row.stub->transact(row.code, cut, &reply, IBinder::FLAG_ONEWAY), android::OK)
                    << length;
        }
        EXPECT_EQ(gTold, "");
        EXPECT_EQ(row.stub->transact(row.code, whole, &reply, IBinder::FLAG_ONEWAY), android::OK);
        EXPECT_EQ(gTold, row.told);
        EXPECT_EQ(reply.dataSize(), 0U);
    }
    EXPECT_EQ(gToken, token);
    gToken = nullptr;
}

TEST(WireStubTest, ANullTokenOfAWindowReachesNoHandler) {
    const StubRow row = stubRows().back();
    Parcel data, reply;
    fill(data, row, row.descriptor, nullptr);
    gTold.clear();
    EXPECT_EQ(row.stub->transact(row.code, data, &reply, IBinder::FLAG_ONEWAY), android::OK);
    Status status;
    EXPECT_EQ(status.readFromParcel(reply), android::OK);
    EXPECT_EQ(status.exceptionCode(), Status::EX_NULL_POINTER);
    EXPECT_EQ(gTold, "");
}

}  // namespace
}  // namespace NQS::OS

// SPDX-License-Identifier: Apache-2.0
//
// The called contracts on the wire: what each method sends, and what it makes of the answer.
#include <android/app/BnProcessObserver.h>
#include <android/app/IActivityManager.h>
#include <android/hardware/display/BnDisplayManagerCallback.h>
#include <android/hardware/display/IDisplayManager.h>
#include <gtest/gtest.h>
#include <velmar/internal/BnSystemKeyEventHandler.h>
#include <velmar/internal/BnWindowLayoutObserver.h>
#include <velmar/internal/IVelmarWindowManager.h>
#include <velmar/internal/IVrFocusHelper.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "GoldenParcel.h"

namespace NQS::OS {
namespace {

using android::IBinder;
using android::interface_cast;
using android::sp;
using android::status_t;
using android::String16;
using android::app::IActivityManager;
using android::binder::Status;
using android::hardware::display::IDisplayManager;
using velmar::internal::IVelmarWindowManager;
using velmar::internal::IVrFocusHelper;

constexpr char16_t kActivity[] = u"android.app.IActivityManager";
constexpr char16_t kDisplay[] = u"android.hardware.display.IDisplayManager";
constexpr char16_t kWindow[] = u"velmar.internal.IVelmarWindowManager";
constexpr char16_t kHelper[] = u"velmar.internal.IVrFocusHelper";

class PassedObserver : public android::app::BnProcessObserver {
    Status onForegroundActivitiesChanged(int32_t, int32_t, bool) override { return Status::ok(); }
    Status onForegroundServicesChanged(int32_t, int32_t, int32_t) override { return Status::ok(); }
    Status onProcessDied(int32_t, int32_t) override { return Status::ok(); }
};
class PassedCallback : public android::hardware::display::BnDisplayManagerCallback {
    Status onDisplayEvent(int32_t, int32_t) override { return Status::ok(); }
};
class PassedLayoutObserver : public velmar::internal::BnWindowLayoutObserver {
    Status onFocusedWindowChanged(const sp<IBinder>&, int32_t, int32_t) override {
        return Status::ok();
    }
};
class PassedHandler : public velmar::internal::BnSystemKeyEventHandler {};

const sp<PassedObserver> gObserver = new PassedObserver;
const sp<PassedCallback> gCallback = new PassedCallback;
const sp<PassedLayoutObserver> gLayoutObserver = new PassedLayoutObserver;
const sp<PassedHandler> gHandler = new PassedHandler;

/** What a call leaves in its result, as text; "untouched" before it. */
using Call = std::function<Status(const sp<IBinder>& remote, std::string* result)>;

struct WireRow {
    const char* what;
    uint32_t code;
    uint32_t flags;
    GoldenParcel request;
    /** Empty for one-way calls. */
    std::vector<uint8_t> reply;
    std::string result;
    Call call;
};

template <typename Interface>
Call withoutResult(std::function<Status(Interface&)> call) {
    return [call](const sp<IBinder>& remote, std::string*) {
        return call(*interface_cast<Interface>(remote));
    };
}

template <typename Interface>
Call withBool(bool before, std::function<Status(Interface&, bool*)> call) {
    return [before, call](const sp<IBinder>& remote, std::string* result) {
        bool out = before;
        const Status status = call(*interface_cast<Interface>(remote), &out);
        if (out != before) *result = out ? "true" : "false";
        return status;
    };
}

Status callDisplays(const sp<IBinder>& remote, std::string* result) {
    std::vector<int32_t> out = {77};
    const Status status = interface_cast<IActivityManager>(remote)->getDisplaysWithTopActivities(
            4321, {0, 5}, &out);
    if (out == std::vector<int32_t>{77}) return status;
    result->clear();
    for (const int32_t id : out)
        *result += std::to_string(id) + " ";
    return status;
}

Status callTopActivity(const sp<IBinder>& remote, std::string* result) {
    String16 out("before");
    const Status status =
            interface_cast<IActivityManager>(remote)->getTopActivityOnPrimaryDisplay(&out);
    if (out != String16("before")) *result = android::String8(out).c_str();
    return status;
}

std::vector<WireRow> activityManagerRows() {
    const auto request = [] { return GoldenParcel::request(kActivity); };
    using I = IActivityManager;
    return {
            {"registerProcessObserver", 110, 0, request().binder(gObserver),
             GoldenParcel::reply().bytes(), "untouched",
             withoutResult<I>([](I& am) { return am.registerProcessObserver(gObserver); })},
            {"unregisterProcessObserver", 111, 0, request().binder(gObserver),
             GoldenParcel::reply().bytes(), "untouched",
             withoutResult<I>([](I& am) { return am.unregisterProcessObserver(gObserver); })},
            {"hasForegroundPanelService", 225, 0, request().int32(4321).int32(10050),
             GoldenParcel::reply().int32(1).bytes(), "true",
             withBool<I>(false,
                         [](I& am, bool* out) {
                             return am.hasForegroundPanelService(4321, 10050, out);
                         })},
            {"hasActivityOnPrimaryDisplay", 226, 0, request().int32(-1).int32(INT32_MIN),
             GoldenParcel::reply().int32(0).bytes(), "false",
             withBool<I>(true,
                         [](I& am, bool* out) {
                             return am.hasActivityOnPrimaryDisplay(-1, INT32_MIN, out);
                         })},
            {"getDisplaysWithTopActivities", 227, 0, request().int32(4321).int32Vector({0, 5}),
             GoldenParcel::reply().int32Vector({5, -1}).bytes(), "5 -1 ", callDisplays},
            {"getTopActivityOnPrimaryDisplay", 228, 0, request(),
             GoldenParcel::reply().string16(u"com.app").bytes(), "com.app", callTopActivity},
    };
}

std::vector<WireRow> displayAndWindowManagerRows() {
    const auto window = [] { return GoldenParcel::request(kWindow); };
    using D = IDisplayManager;
    using W = IVelmarWindowManager;
    const std::vector<uint8_t> yes = GoldenParcel::reply().int32(1).bytes();
    return {
            {"registerCallbackWithEventMask", 5, 0,
             GoldenParcel::request(kDisplay).binder(gCallback).int64(0x200000001),
             GoldenParcel::reply().bytes(), "untouched", withoutResult<D>([](D& display) {
                 return display.registerCallbackWithEventMask(gCallback, 0x200000001);
             })},
            {"registerWindowLayoutObserver", 1, 0, window().binder(gLayoutObserver), yes, "true",
             withBool<W>(false,
                         [](W& wm, bool* out) {
                             return wm.registerWindowLayoutObserver(gLayoutObserver, out);
                         })},
            {"unregisterWindowLayoutObserver", 2, 0, window().binder(gLayoutObserver),
             GoldenParcel::reply().bytes(), "untouched", withoutResult<W>([](W& wm) {
                 return wm.unregisterWindowLayoutObserver(gLayoutObserver);
             })},
            {"registerSystemKeyEventHandler", 3, 0, window().binder(gHandler), yes, "true",
             withBool<W>(false,
                         [](W& wm, bool* out) {
                             return wm.registerSystemKeyEventHandler(gHandler, out);
                         })},
            {"unregisterSystemKeyEventHandler", 4, 0, window().binder(gHandler), yes, "true",
             withBool<W>(false,
                         [](W& wm, bool* out) {
                             return wm.unregisterSystemKeyEventHandler(gHandler, out);
                         })},
    };
}

std::vector<WireRow> helperRows() {
    const auto helper = [] { return GoldenParcel::request(kHelper); };
    const auto text = [](const char* value) { return std::make_unique<String16>(value); };
    using H = IVrFocusHelper;
    const auto oneWay = [](const char* what, uint32_t code, const GoldenParcel& request,
                           const std::function<Status(H&)>& call) {
        return WireRow{what, code,        IBinder::FLAG_ONEWAY,  request,
                       {},   "untouched", withoutResult<H>(call)};
    };
    return {
            oneWay("focus", 1, helper().int32(1), [](H& h) { return h.onFocusChanged(1); }),
            oneWay("top", 2, helper().string16(u"com.app"),
                   [=](H& h) { return h.onTopActivityChanged(text("com.app")); }),
            oneWay("top, empty", 2, helper().string16(u""),
                   [=](H& h) { return h.onTopActivityChanged(text("")); }),
            oneWay("top, none", 2, helper().nullString(),
                   [](H& h) { return h.onTopActivityChanged(nullptr); }),
            oneWay("immersive", 3, helper().string16(u"com.velmar.game"),
                   [=](H& h) { return h.onImmersiveAppChanged(text("com.velmar.game")); }),
            oneWay("immersive, empty", 3, helper().string16(u""),
                   [=](H& h) { return h.onImmersiveAppChanged(text("")); }),
            oneWay("immersive, none", 3, helper().nullString(),
                   [](H& h) { return h.onImmersiveAppChanged(nullptr); }),
    };
}

std::vector<WireRow> allRows() {
    std::vector<WireRow> rows = activityManagerRows();
    for (const auto& more : {displayAndWindowManagerRows(), helperRows()})
        rows.insert(rows.end(), more.begin(), more.end());
    return rows;
}

class WireProxyTest : public testing::Test {
protected:
    Status run(const WireRow& row) {
        result = "untouched";
        return row.call(remote, &result);
    }

    const sp<RecordingBinder> remote = new RecordingBinder;
    std::string result;
};

TEST_F(WireProxyTest, RequestsAreTheGoldenOnes) {
    for (const WireRow& row : allRows()) {
        SCOPED_TRACE(row.what);
        remote->calls = 0;
        remote->reply = row.reply;
        EXPECT_TRUE(run(row).isOk());
        EXPECT_EQ(remote->calls, 1);
        EXPECT_EQ(remote->code, row.code);
        EXPECT_EQ(remote->flags, row.flags);
        EXPECT_EQ(GoldenParcel::toHex(remote->request), row.request.hex());
        EXPECT_EQ(result, row.result);
    }
}

TEST_F(WireProxyTest, ExceptionsComeBackAndLeaveTheResultAlone) {
    for (const WireRow& row : allRows()) {
        if (row.flags != 0) continue;
        for (const int32_t code : {-1, -3, -4, -5}) {
            SCOPED_TRACE(row.what);
            remote->reply = GoldenParcel::exception(code).bytes();
            // What would be a result stands behind the exception.
            const std::vector<uint8_t> rest(row.reply.begin() + 4, row.reply.end());
            remote->reply.insert(remote->reply.end(), rest.begin(), rest.end());
            EXPECT_EQ(run(row).exceptionCode(), code);
            EXPECT_EQ(result, "untouched");
        }
    }
}

TEST_F(WireProxyTest, ReplyThatIsCutAnywhereIsAnError) {
    for (const WireRow& row : allRows()) {
        if (row.flags != 0) continue;
        for (size_t length = 0; length < row.reply.size(); length += 4) {
            SCOPED_TRACE(row.what + std::string(" cut at ") + std::to_string(length));
            remote->reply.assign(row.reply.begin(),
                                 row.reply.begin() + static_cast<std::ptrdiff_t>(length));
            const Status status = run(row);
            EXPECT_FALSE(status.isOk());
            EXPECT_NE(status.transactionError(), android::OK);
        }
    }
}

TEST_F(WireProxyTest, LengthsThatTheReplyDoesNotHoldAreErrors) {
    const sp<IActivityManager> activityManager = interface_cast<IActivityManager>(remote);
    // An absent vector or string is none of these results either.
    for (const int32_t length : {-1, INT32_MIN, INT32_MAX, INT32_MAX / 4, 2}) {
        SCOPED_TRACE(length);
        remote->reply = GoldenParcel::reply().int32(length).bytes();
        std::vector<int32_t> displays;
        String16 topActivity;
        EXPECT_FALSE(activityManager->getDisplaysWithTopActivities(1, {0}, &displays).isOk());
        EXPECT_FALSE(activityManager->getTopActivityOnPrimaryDisplay(&topActivity).isOk());
    }
}

TEST_F(WireProxyTest, TransportErrorsComeBackAsTheyAre) {
    for (const WireRow& row : allRows()) {
        for (const status_t error :
             {android::DEAD_OBJECT, android::FAILED_TRANSACTION, android::BAD_TYPE,
              android::PERMISSION_DENIED, android::UNKNOWN_TRANSACTION}) {
            SCOPED_TRACE(row.what);
            // The helper's interface is given a default implementation below.
            if (error == android::UNKNOWN_TRANSACTION && row.flags != 0) continue;
            remote->result = error;
            remote->reply = row.reply;
            const Status status = run(row);
            EXPECT_EQ(status.transactionError(), error);
            EXPECT_EQ(result, "untouched");
        }
    }
}

/** Counts what is left to it. */
class CountingDefault : public velmar::internal::IVrFocusHelperDefault {
public:
    explicit CountingDefault(int& calls) : mCalls(calls) {
        // It is owned alone, without a count: only so is its count block freed with it.
        extendObjectLifetime(OBJECT_LIFETIME_WEAK);
    }
    Status onFocusChanged(int32_t) override {
        ++mCalls;
        return Status::ok();
    }

private:
    int& mCalls;
};

int gDefaultCalls = 0;

TEST_F(WireProxyTest, DefaultImplementationIsUsedForUnknownTransactionsOnly) {
    static const bool isInstalled =
            IVrFocusHelper::setDefaultImpl(std::make_unique<CountingDefault>(gDefaultCalls));
    ASSERT_TRUE(isInstalled);
    gDefaultCalls = 0;
    EXPECT_FALSE(IVrFocusHelper::setDefaultImpl(std::make_unique<CountingDefault>(gDefaultCalls)))
            << "there is one already";
    const sp<IVrFocusHelper> helper = interface_cast<IVrFocusHelper>(remote);
    for (const status_t error : std::vector<status_t>{
                 android::DEAD_OBJECT, android::FAILED_TRANSACTION, android::BAD_TYPE, -73, -75}) {
        remote->result = error;
        EXPECT_EQ(helper->onFocusChanged(0).transactionError(), error);
    }
    remote->result = android::OK;
    EXPECT_TRUE(helper->onFocusChanged(0).isOk());
    EXPECT_EQ(gDefaultCalls, 0);
    remote->result = -74;
    EXPECT_TRUE(helper->onFocusChanged(0).isOk());
    EXPECT_EQ(gDefaultCalls, 1);
    // Its other methods know no better than the remote object.
    EXPECT_EQ(helper->onTopActivityChanged(nullptr).transactionError(), -74);
}

}  // namespace
}  // namespace NQS::OS

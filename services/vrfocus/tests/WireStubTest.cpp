// SPDX-License-Identifier: Apache-2.0
//
// The implemented contracts on the wire: which requests reach a handler, and with what.
#include <android/app/BnProcessObserver.h>
#include <android/hardware/display/BnDisplayManagerCallback.h>
#include <gtest/gtest.h>
#include <velmar/internal/BnWindowLayoutObserver.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "GoldenParcel.h"

namespace NQS::OS {
namespace {

using android::IBinder;
using android::Parcel;
using android::sp;
using android::status_t;
using android::binder::Status;
using Lines = std::vector<std::string>;

constexpr char16_t kProcess[] = u"android.app.IProcessObserver";
constexpr char16_t kDisplay[] = u"android.hardware.display.IDisplayManagerCallback";
constexpr char16_t kWindow[] = u"velmar.internal.IWindowLayoutObserver";

Lines gHandled;
sp<IBinder> gToken;

Status handled(const std::string& what, std::initializer_list<int32_t> arguments) {
    std::string line = what;
    for (const int32_t argument : arguments)
        line += " " + std::to_string(argument);
    gHandled.push_back(line);
    return Status::ok();
}

class ProcessStub : public android::app::BnProcessObserver {
    Status onForegroundActivitiesChanged(int32_t pid, int32_t uid, bool fg) override {
        return handled("activities", {pid, uid, fg ? 1 : 0});
    }
    Status onForegroundServicesChanged(int32_t pid, int32_t uid, int32_t types) override {
        return handled("services", {pid, uid, types});
    }
    Status onProcessDied(int32_t pid, int32_t uid) override { return handled("died", {pid, uid}); }
};
class DisplayStub : public android::hardware::display::BnDisplayManagerCallback {
    Status onDisplayEvent(int32_t displayId, int32_t event) override {
        return handled("display", {displayId, event});
    }
};
class WindowStub : public velmar::internal::BnWindowLayoutObserver {
    Status onFocusedWindowChanged(const sp<IBinder>& token, int32_t uid, int32_t pid) override {
        gToken = token;
        return handled("window", {uid, pid});
    }
};

struct StubRow {
    const char* what;
    sp<IBinder> stub;
    const char16_t* descriptor;
    uint32_t code;
    GoldenParcel request;
    std::string handled;
    /** Handed over as the first argument; null where there is none. */
    sp<IBinder> binder = nullptr;
};

/** The parcel as it arrives; a binder among its bytes is marked as such, as a driver does it. */
void fill(Parcel& parcel, const StubRow& row) {
    const size_t head = GoldenParcel::request(row.descriptor).bytes().size();
    const std::vector<uint8_t>& bytes = row.request.bytes();
    if (row.binder == nullptr) {
        ASSERT_EQ(parcel.setData(bytes.data(), bytes.size()), android::OK);
        return;
    }
    ASSERT_EQ(parcel.setData(bytes.data(), head), android::OK);
    parcel.setDataPosition(head);
    ASSERT_EQ(parcel.writeStrongBinder(row.binder), android::OK);
    const size_t tail = parcel.dataPosition();
    ASSERT_EQ(parcel.write(bytes.data() + tail, bytes.size() - tail), android::OK);
    ASSERT_EQ(GoldenParcel::toHex({parcel.data(), parcel.data() + parcel.dataSize()}),
              row.request.hex());
}

class WireStubTest : public testing::Test {
protected:
    WireStubTest() { gHandled.clear(); }
    ~WireStubTest() override { gToken = nullptr; }

    std::vector<StubRow> rows() {
        const sp<IBinder> process = new ProcessStub;
        const auto row = [](const char* what, const sp<IBinder>& stub, const char16_t* descriptor,
                            uint32_t code, std::initializer_list<int32_t> arguments) {
            StubRow made{what, stub, descriptor, code, GoldenParcel::request(descriptor), what};
            for (const int32_t argument : arguments) {
                made.request.int32(argument);
                made.handled += " " + std::to_string(argument);
            }
            return made;
        };
        std::vector<StubRow> all = {
                row("activities", process, kProcess, 1, {4321, 10050, 1}),
                row("activities", process, kProcess, 1, {-1, -2, 0}),
                row("services", process, kProcess, 2, {4321, 10050, 7}),
                row("died", process, kProcess, 3, {4321, 10050}),
                row("display", new DisplayStub, kDisplay, 1, {5, 3}),
                row("window", new WindowStub, kWindow, 1, {}),
        };
        all.back().request.binder(token).int32(10050).int32(4321);
        all.back().handled += " 10050 4321";
        all.back().binder = token;
        return all;
    }

    const sp<IBinder> token = new android::BBinder;
};

TEST_F(WireStubTest, GoldenRequestsReachTheirHandlersAndGetNoReply) {
    for (const StubRow& row : rows()) {
        SCOPED_TRACE(row.handled);
        Parcel data, reply;
        ASSERT_NO_FATAL_FAILURE(fill(data, row));
        gHandled.clear();
        EXPECT_EQ(row.stub->transact(row.code, data, &reply, IBinder::FLAG_ONEWAY), android::OK);
        EXPECT_EQ(gHandled, Lines{row.handled});
        EXPECT_EQ(reply.dataSize(), 0U);
    }
    EXPECT_EQ(gToken, token);
}

TEST_F(WireStubTest, RequestThatIsCutAnywhereIsAnErrorAndReachesNoHandler) {
    for (const StubRow& row : rows()) {
        Parcel whole;
        ASSERT_NO_FATAL_FAILURE(fill(whole, row));
        for (size_t length = 0; length < whole.dataSize(); length += 4) {
            SCOPED_TRACE(row.what + std::string(" cut at ") + std::to_string(length));
            Parcel data, reply;
            ASSERT_EQ(data.appendFrom(&whole, 0, length), android::OK);
            const status_t status =
                    row.stub->transact(row.code, data, &reply, IBinder::FLAG_ONEWAY);
            EXPECT_NE(status, android::OK);
            EXPECT_TRUE(length != 0 || status == android::BAD_TYPE) << status;
        }
    }
    EXPECT_EQ(gHandled, Lines{});
}

TEST_F(WireStubTest, ForeignDescriptorIsRefusedBeforeAnyArgumentIsRead) {
    for (const StubRow& row : rows()) {
        for (const char16_t* descriptor : {u"android.app.IActivityManager", u"", u"a"}) {
            SCOPED_TRACE(row.what);
            const std::vector<uint8_t> bytes =
                    GoldenParcel::request(descriptor).int32(1).int32(2).int32(3).bytes();
            Parcel data, reply;
            ASSERT_EQ(data.setData(bytes.data(), bytes.size()), android::OK);
            EXPECT_EQ(row.stub->transact(row.code, data, &reply, IBinder::FLAG_ONEWAY),
                      -2147483647);
            EXPECT_LE(data.dataPosition(), bytes.size() - 12);
        }
    }
    EXPECT_EQ(gHandled, Lines{});
}

TEST_F(WireStubTest, UnknownCodesAreAnsweredAsByAnyBinder) {
    const std::vector<StubRow> all = rows();
    // The last row of each interface has its highest code.
    for (const size_t last : {3, 4, 5}) {
        const StubRow& row = all[last];
        for (const uint32_t code :
             {0U, row.code + 1, 99U, uint32_t{IBinder::LAST_CALL_TRANSACTION}}) {
            Parcel data, reply;
            ASSERT_NO_FATAL_FAILURE(fill(data, row));
            EXPECT_EQ(row.stub->transact(code, data, &reply), -74) << row.what << code;
        }
        Parcel data, reply;
        EXPECT_EQ(row.stub->transact(IBinder::INTERFACE_TRANSACTION, data, &reply), android::OK);
        EXPECT_EQ(reply.readString16(), android::String16(row.descriptor));
    }
    EXPECT_EQ(gHandled, Lines{});
}

TEST_F(WireStubTest, NullTokenOfAWindowReachesNoHandler) {
    const sp<IBinder> stub = new WindowStub;
    Parcel data;
    Parcel reply;
    data.writeInterfaceToken(android::String16(kWindow));
    data.writeStrongBinder(nullptr);
    data.writeInt32(10050);
    data.writeInt32(4321);
    EXPECT_EQ(stub->transact(1, data, &reply, IBinder::FLAG_ONEWAY), android::OK);
    Status status;
    EXPECT_EQ(status.readFromParcel(reply), android::OK);
    EXPECT_EQ(status.exceptionCode(), Status::EX_NULL_POINTER);
    EXPECT_EQ(gHandled, Lines{});
}

TEST_F(WireStubTest, AnyBytesAfterTheTokenEitherMakeOneCallOrAnError) {
    std::mt19937 random(1);
    const std::vector<StubRow> all = rows();
    for (int round = 0; round < 3000; ++round) {
        const StubRow& row = all[random() % all.size()];
        GoldenParcel request = GoldenParcel::request(row.descriptor);
        for (auto words = random() % 8; words > 0; --words)
            request.int32(static_cast<int32_t>(random()));
        Parcel data;
        Parcel reply;
        ASSERT_EQ(data.setData(request.bytes().data(), request.bytes().size()), android::OK);
        gHandled.clear();
        const status_t status =
                row.stub->transact(1 + random() % 4, data, &reply, IBinder::FLAG_ONEWAY);
        EXPECT_EQ(gHandled.size(), status == android::OK ? 1U : 0U);
    }
}

}  // namespace
}  // namespace NQS::OS

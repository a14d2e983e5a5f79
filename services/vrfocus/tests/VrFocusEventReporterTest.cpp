// SPDX-License-Identifier: Apache-2.0
//
// Focus event reporter: the events' bytes for every kind of answer of the policy.
#include <FakeTelemetry.h>
#include <WireBytes.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <utility>

#include "FakeSystem.h"
#include "VrFocusEventReporter.h"

namespace NQS::OS {

using android::String16;
using testing::ElementsAre;
namespace logger = com::velmar::os::statsdstructuredlogger;

namespace {

// Tag, length and "immersive_app_update".
constexpr const char* kKind = "0a14 696d6d6572736976655f6170705f757064617465";

ImmersiveApp immersiveApp(const String16& package, int32_t pid, int32_t uid,
                          bool isTopActivity = true) {
    ImmersiveApp app;
    app.packageName = package;
    app.pid = pid;
    app.uid = uid;
    app.isTopActivity = isTopActivity;
    return app;
}

class FocusEventReporter : public testing::Test {
protected:
    FocusEventReporter() {
        (void)mTelemetry.take();
        (void)fakeLog().take();
    }
    ~FocusEventReporter() override { mTelemetry.setStatus(0); }

    /** The bytes of the one event that the report submits. */
    std::string reported(std::optional<ImmersiveApp> app, const String16& topActivity) {
        mReporter.reportImmersiveAppUpdate(std::move(app), topActivity);
        const auto events = mTelemetry.take();
        EXPECT_EQ(events.size(), 1U);
        if (events.empty()) return "none";
        EXPECT_EQ(events[0].id, 120828);
        return events[0].bytes;
    }

    logger::FakeTelemetry& mTelemetry = logger::FakeTelemetry::instance();
    VrFocusEventReporter mReporter{std::make_shared<VrFocusEventReporter::Logger>()};
};

}  // namespace

TEST_F(FocusEventReporter, EachAnswerGivesItsBytes) {
    struct Row {
        const char* name;
        std::optional<ImmersiveApp> app;
        String16 topActivity;
        const char* bytes;
    };
    const String16 withNul(u"a\0b", 3);
    const Row rows[] = {
            {"nothing at all", std::nullopt, String16(), "3200"},
            {"no immersive app", std::nullopt, String16("a.b"), "3203 612e62"},
            {"an app", immersiveApp(String16("a.b"), 4321, 10042), String16("a.b"),
             "1203 612e62 18e121 20ba4e 2801 3203 612e62"},
            {"pid and uid in their places", immersiveApp(String16("p"), 1, 2), String16(),
             "1201 70 1801 2002 2801 3200"},
            {"nothing but zeros", immersiveApp(String16(), 0, 0, false), String16(),
             "1200 1800 2000 2800 3200"},
            {"negative numbers", immersiveApp(String16("p"), -1, INT32_MIN), String16(),
             "1201 70 18ffffffffffffffffff01 2080808080f8ffffffff01 2801 3200"},
            {"beyond ASCII", immersiveApp(String16(u"\u20ac"), 1, 2), String16(u"\U0001f600"),
             "1203 e282ac 1801 2002 2801 3204 f09f9880"},
            {"a NUL inside", immersiveApp(withNul, 1, 2), withNul,
             "1203 610062 1801 2002 2801 3203 610062"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(logger::hexOf(reported(row.app, row.topActivity)),
                  logger::hexOf(logger::bytesOf(std::string(kKind) + row.bytes)))
                << row.name;
    }
}

TEST_F(FocusEventReporter, EachReportLeavesOneDebugLineAndARefusedOneIsNotRepeated) {
    for (const int status : {0, 28}) {
        mTelemetry.setStatus(status);
        mReporter.reportImmersiveAppUpdate(std::nullopt, String16());
        EXPECT_EQ(mTelemetry.take().size(), 1U);
        EXPECT_THAT(fakeLog().take(),
                    ElementsAre("D VrFocusEventReporter: reportImmersiveAppUpdate"));
    }
}

}  // namespace NQS::OS

// SPDX-License-Identifier: Apache-2.0
//
// Focus event reporter: the events' bytes for every kind of answer of the policy.
#include <FakeTelemetry.h>
#include <WireBytes.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <type_traits>
#include <utility>

#include "FakeLog.h"
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
        (void)FakeLog::instance().take();
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

/** A logger that keeps the event's producer from running, or runs it and fails. */
class ScriptedLogger : public VrFocusEventReporter::Logger {
public:
    bool log(std::function<logger::VelmarVrfocusServiceEventsBuilder()> makeEvent) override {
        ++calls;
        bytes = makeEvent().release()->SerializeAsString();
        return false;
    }

    int calls = 0;
    std::string bytes;
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
            {"an app without a name, all zero", immersiveApp(String16(), 0, 0, false), String16(),
             "1200 1800 2000 2800 3200"},
            {"negative numbers", immersiveApp(String16("p"), -1, INT32_MIN), String16(),
             "1201 70 18ffffffffffffffffff01 2080808080f8ffffffff01 2801 3200"},
            {"largest numbers", immersiveApp(String16("p"), INT32_MAX, INT32_MAX), String16(),
             "1201 70 18ffffffff07 20ffffffff07 2801 3200"},
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

TEST_F(FocusEventReporter, TheStockDecoderReadsTheSame) {
    EXPECT_EQ(logger::decodeRaw(
                      reported(immersiveApp(String16("com.velmar.game"), -1, 10042), String16())),
              "1: \"immersive_app_update\"\n"
              "2: \"com.velmar.game\"\n"
              "3: 18446744073709551615\n"
              "4: 10042\n"
              "5: 1\n"
              "6: \"\"\n");
    EXPECT_EQ(logger::decodeRaw(reported(std::nullopt, String16("a.b"))),
              "1: \"immersive_app_update\"\n"
              "6: \"a.b\"\n");
}

TEST_F(FocusEventReporter, EachReportLeavesOneDebugLineAndARefusedOneIsNotRepeated) {
    for (const int status : {0, 28}) {
        mTelemetry.setStatus(status);
        mReporter.reportImmersiveAppUpdate(std::nullopt, String16());
        EXPECT_EQ(mTelemetry.take().size(), 1U);
        EXPECT_THAT(FakeLog::instance().take(),
                    ElementsAre("D VrFocusEventReporter: reportImmersiveAppUpdate"));
    }
}

TEST_F(FocusEventReporter, ReportsThroughTheLoggerItWasGivenAndNothingElse) {
    static_assert(std::is_constructible_v<VrFocusEventReporter, std::shared_ptr<ScriptedLogger>>);
    const auto scripted = std::make_shared<ScriptedLogger>();
    VrFocusEventReporter reporter(scripted);
    EXPECT_EQ(scripted.use_count(), 2) << "shared, not copied";
    reporter.reportImmersiveAppUpdate(std::nullopt, String16("t"));
    EXPECT_EQ(scripted->calls, 1);
    EXPECT_EQ(logger::hexOf(scripted->bytes),
              logger::hexOf(logger::bytesOf(std::string(kKind) + "320174")));
    EXPECT_TRUE(mTelemetry.take().empty());
}

TEST_F(FocusEventReporter, SixteenThreadsReportAtOnce) {
    constexpr int kThreads = 16;
    constexpr int kReports = 100;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kReports; ++i)
                mReporter.reportImmersiveAppUpdate(immersiveApp(String16("p"), t, i), String16());
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    std::vector<int> next(kThreads);
    const auto events = mTelemetry.take();
    EXPECT_EQ(events.size(), size_t{kThreads} * kReports);
    for (const logger::ReportedEvent& reported : events) {
        logger::events::VelmarVrfocusServiceEvents event;
        ASSERT_TRUE(event.ParseFromString(reported.bytes));
        ASSERT_EQ(event.uid(), next.at(static_cast<size_t>(event.pid()))++);
    }
}

}  // namespace NQS::OS

// SPDX-License-Identifier: Apache-2.0
//
// Focus event logger: what reaches the platform, and what the caller learns.
#include <gtest/gtest.h>
#include <velmar_vrfocus_service_events/VelmarVrfocusServiceEventsLogger.h>

#include <functional>

#include "FakeTelemetry.h"
#include "WireBytes.h"

namespace com::velmar::os::statsdstructuredlogger {

using Builder = VelmarVrfocusServiceEventsBuilder;

namespace {

class FocusEventLogger : public testing::Test {
protected:
    ~FocusEventLogger() override { mTelemetry.setStatus(0); }

    FakeTelemetry& mTelemetry = FakeTelemetry::instance();
    VelmarVrfocusServiceEventsLogger mLogger;
};

}  // namespace

TEST_F(FocusEventLogger, SubmitsOneEventOfExactlyItsBytes) {
    int runs = 0;
    EXPECT_TRUE(mLogger.log([&] {
        ++runs;
        return Builder().setCurrentTopActivity("").setFocusEvent("hi");
    }));
    EXPECT_EQ(runs, 1);
    const auto events = mTelemetry.take();
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].id, 120828);
    EXPECT_EQ(hexOf(events[0].bytes), hexOf(bytesOf("0a026869 3200")));
}

TEST_F(FocusEventLogger, AnEventWithoutFieldsHasNoBuffer) {
    EXPECT_TRUE(mLogger.log([] { return Builder(); }));
    const auto events = mTelemetry.take();
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].bytes, "");
    EXPECT_FALSE(events[0].hadBuffer);
}

TEST_F(FocusEventLogger, OnlyZeroMeansAccepted) {
    for (const int32_t status : {1, -1, 28, 256, INT32_MIN, INT32_MAX}) {
        mTelemetry.setStatus(status);
        EXPECT_FALSE(mLogger.log([] { return Builder().setFocusEvent("hi"); })) << status;
    }
    mTelemetry.setStatus(0);
    EXPECT_TRUE(mLogger.log([] { return Builder().setFocusEvent("hi"); }));
    EXPECT_EQ(mTelemetry.take().size(), 7U) << "an event that was refused is not sent again";
}

TEST_F(FocusEventLogger, AnEmptyFunctionThrowsAndSubmitsNothing) {
    EXPECT_THROW(mLogger.log({}), std::bad_function_call);
    EXPECT_TRUE(mTelemetry.take().empty());
}

}  // namespace com::velmar::os::statsdstructuredlogger

// SPDX-License-Identifier: Apache-2.0
//
// Focus events on a Linux machine: from the logger through the sink to what the tool prints.
#include <android-base/file.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <velmar_vrfocus_service_events/VelmarVrfocusServiceEventsLogger.h>

namespace com::velmar::os::statsdstructuredlogger {

using Builder = VelmarVrfocusServiceEventsBuilder;

namespace {

class HostTelemetry : public testing::Test {
protected:
    HostTelemetry() { setenv("HOST_TELEMETRY", sink().c_str(), /*overwrite=*/1); }
    ~HostTelemetry() override { unsetenv("HOST_TELEMETRY"); }

    [[nodiscard]] std::string sink() const { return std::string(mFolder.path) + "/sink"; }

    /** What the tool prints, with the times of the events taken out. */
    [[nodiscard]] std::string printed() const {
        FILE* const pipe =
                popen(("'" PROGRAMS "/telemetry' --json | sed 's/\"time_us\":[0-9]*,//'"), "re");
        if (pipe == nullptr) abort();
        std::string text;
        if (!android::base::ReadFdToString(fileno(pipe), &text) || pclose(pipe) != 0) abort();
        return text;
    }

    VelmarVrfocusServiceEventsLogger mLogger;

private:
    TemporaryDir mFolder;
};

}  // namespace

TEST_F(HostTelemetry, EventsArePrintedByTheirFieldsNames) {
    EXPECT_TRUE(mLogger.log([] {
        auto builder = Builder().setFocusEvent("immersive_app_update").setCurrentTopActivity("t");
        builder.message().set_uid(10042);
        builder.message().set_pid(-1);
        return std::move(builder).setPackageName("p").setIsTopActivity(true);
    }));
    EXPECT_TRUE(mLogger.log([] { return Builder().setCurrentTopActivity(""); }));
    EXPECT_TRUE(mLogger.log([] { return Builder(); }));
    EXPECT_EQ(printed(),
              "{\"id\":120828,\"event\":\"VelmarVrfocusServiceEvents\",\"fields\":{"
              "\"focus_event\":\"immersive_app_update\",\"package_name\":\"p\",\"pid\":-1,"
              "\"uid\":10042,\"is_top_activity\":true,\"current_top_activity\":\"t\"}}\n"
              "{\"id\":120828,\"event\":\"VelmarVrfocusServiceEvents\",\"fields\":{"
              "\"current_top_activity\":\"\"}}\n"
              "{\"id\":120828,\"event\":\"VelmarVrfocusServiceEvents\",\"fields\":{}}\n");
}

TEST_F(HostTelemetry, WithoutASinkThatTakesItAnEventIsRefused) {
    ASSERT_EQ(mkfifo(sink().c_str(), 0600), 0);
    EXPECT_FALSE(mLogger.log([] { return Builder().setFocusEvent("e"); })) << "nobody reads it";
    unsetenv("HOST_TELEMETRY");
    EXPECT_FALSE(mLogger.log([] { return Builder().setFocusEvent("e"); }));
}

}  // namespace com::velmar::os::statsdstructuredlogger

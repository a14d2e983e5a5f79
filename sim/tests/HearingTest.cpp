// SPDX-License-Identifier: Apache-2.0
// What one listener has heard: counted, remembered, put into a line.
#include "session/Hearing.h"

#include <gtest/gtest.h>
#include <json/reader.h>

#include <sstream>

#include "session/TelemetryFeed.h"

namespace sim {
namespace {

const Told kRacer{"com.racer", "com.racer", 123, 10061, true};

/** Entries written with ' for ". */
Json::Value heard(std::string entries) {
    for (char& letter : entries)
        letter = letter == '\'' ? '"' : letter;
    Json::Value answer(Json::objectValue);
    std::istringstream("[" + entries + "]") >> answer["heard"];
    answer["dropped"] = 0;
    return answer;
}

const char* const kToldRacer =
        "{'top':'com.racer','app':{'package':'com.racer','pid':123,'uid':10061,'top':true}}";
const char* const kToldNone =
        "{'top':'com.racer','app':{'package':'','pid':0,'uid':0,'top':false}}";

TEST(HearingTest, callsAreCountedByKindAndRepeatsInARowCollapsed) {
    Hearing hearing;
    hearing.take(heard(std::string("{'focus':1},{'focus':0},{'focus':0},") + kToldNone + "," +
                       kToldRacer + "," + kToldRacer));
    EXPECT_EQ(hearing.focusCalls(0), 2);
    EXPECT_EQ(hearing.focusCalls(1), 1);
    EXPECT_EQ(hearing.topCalls(), 3);
    EXPECT_EQ(hearing.last(), kRacer);
    EXPECT_EQ(hearing.problem(), "");
    EXPECT_EQ(hearing.takeLine(),
              "head focus x2; input focus; top com.racer, immersive none; "
              "top com.racer, immersive com.racer (pid 123) x2");
    EXPECT_EQ(hearing.takeLine(), "");
    EXPECT_EQ(hearing.last(), kRacer) << "the line is for people, what was heard stays";
}

TEST(HearingTest, theHelperHearsPackagesInPairs) {
    Hearing hearing;
    hearing.take(
            heard("{'topActivity':'com.racer'},{'immersiveApp':null},"
                  "{'topActivity':'com.racer'},{'immersiveApp':'com.racer'},"
                  "{'topActivity':''}"));
    EXPECT_EQ(hearing.topCalls(), 2) << "the third is half told";
    EXPECT_EQ(hearing.last(), kRacer.packagesOnly());
    hearing.take(heard("{'immersiveApp':null}"));
    EXPECT_EQ(hearing.takeLine(),
              "top com.racer, immersive none; top com.racer, immersive com.racer; "
              "top none, immersive none");
}

TEST(HearingTest, whatNoDaemonShouldTellIsAProblem) {
    for (const char* entry :
         {"{'focus':'0'}", "{'immersiveApp':null}", "{'focusType':0}", "{'topActivity':null}",
          "{'topActivity':'a'},{'topActivity':'a'}", "{'top':'a'}", "{'top':'a','app':null}",
          "{'top':'a','app':{'package':'a','pid':1,'uid':1,'top':1}}",
          "{'top':'a','app':{'package':null,'pid':1,'uid':1,'top':true}}"}) {
        Hearing hearing;
        hearing.take(heard(entry));
        EXPECT_NE(hearing.problem(), "") << entry;
    }
    Hearing hearing;
    Json::Value answer = heard("");
    answer["dropped"] = 1;
    hearing.take(answer);
    EXPECT_NE(hearing.problem(), "");
}

TEST(HearingTest, anEventIsComparedFieldByField) {
    Json::Value event = TelemetryFeed::expected(kRacer);
    event["time_us"] = 1;
    EXPECT_EQ(TelemetryFeed::difference(kRacer, event), "");
    EXPECT_NE(TelemetryFeed::difference({"com.racer", "", 0, 0, false}, event), "");
    EXPECT_EQ(TelemetryFeed::text(event),
              "immersive_app_update: current_top_activity=com.racer package_name=com.racer pid=123 "
              "uid=10061 is_top_activity=true");
    for (const char* field :
         {"focus_event", "current_top_activity", "package_name", "pid", "uid", "is_top_activity"}) {
        Json::Value other = event;
        other["fields"].removeMember(field);
        EXPECT_NE(TelemetryFeed::difference(kRacer, other), "") << field;
    }
}

}  // namespace
}  // namespace sim

// SPDX-License-Identifier: Apache-2.0
// Faults as values: which a service can have, as a message, and what they do to notices.
#include "world/FaultPlan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/writer.h>

#include <vector>

#include "services/NoticeFaults.h"

namespace sim {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Kind = FaultPlan::Kind;

constexpr const char* kWindow = "VelmarWindowManager";

FaultPlan plan(Kind kind, const std::string& method = FaultPlan::kAllMethods) {
    FaultPlan plan;
    plan.kind = kind;
    plan.method = method;
    if (kind == Kind::Error) plan.exception = -1;
    if (kind == Kind::Descriptor) plan.descriptor = "x";
    if (kind == Kind::ReorderNotices) plan.times = 2;
    return plan;
}

FaultPlan withTimes(FaultPlan plan, int times) {
    plan.times = times;
    return plan;
}

FaultPlan withStatus(int exception, int transport) {
    FaultPlan fault = plan(Kind::Error);
    fault.exception = exception;
    fault.transport = transport;
    return fault;
}

TEST(FaultPlanTest, aServiceCanHaveTheFaultsOfItsMethodsAndNotices) {
    struct Row {
        const char* service;
        FaultPlan plan;
        const char* problem;  // part of it; empty: none
    };
    for (const Row& row :
         {Row{"activity", plan(Kind::None), ""},
          {"activity", plan(Kind::Error), ""},
          {"activity", plan(Kind::Error, "hasForegroundPanelService"), ""},
          {"activity", plan(Kind::Dies, FaultPlan::kRegistration), ""},
          {"display", plan(Kind::Dies, FaultPlan::kRegistration), ""},
          {kWindow, plan(Kind::Dies, FaultPlan::kRegistration), ""},
          {"permission", plan(Kind::Random, "checkPermission"), ""},
          {"permission", plan(Kind::Descriptor), ""},
          {"vrfocushelper", plan(Kind::Error), ""},
          {"vrfocushelper", plan(Kind::Dies, "onFocusChanged"), ""},
          {"display", plan(Kind::DropNotices), ""},
          {kWindow, plan(Kind::ReorderNotices), ""},
          {"activity", withTimes(plan(Kind::DoubleNotices), 7), ""},
          {"activity", withStatus(-9, 0), ""},
          {"activity", withStatus(0, -32), ""},
          {"surfaceflinger", plan(Kind::None), "no service 'surfaceflinger'"},
          {"activity", plan(Kind::Error, "checkPermission"), "only registerProcessObserver, "},
          {"permission", plan(Kind::Dies, FaultPlan::kRegistration), "nobody registers"},
          {"vrfocushelper", plan(Kind::Truncated), "no reply"},
          {"vrfocushelper", plan(Kind::Random, "onFocusChanged"), "no reply"},
          {"package_native", plan(Kind::DropNotices), "sends no notices"},
          {"activity", withTimes(plan(Kind::ReorderNotices), 1), "two notices"},
          {"activity", withTimes(plan(Kind::Error), -1), "-1"},
          {"activity", withStatus(0, 0), "either"},
          {"activity", withStatus(-1, -32), "either"},
          {"activity", withStatus(-10, 0), "no such status"},
          {"activity", withStatus(1, 0), "no such status"},
          {"activity", withStatus(0, 5), "no such status"},
          {"activity", FaultPlan{Kind::Descriptor}, "has a text"}}) {
        const std::string problem = row.plan.problemWith(row.service);
        EXPECT_EQ(problem.empty(), *row.problem == '\0') << problem;
        EXPECT_THAT(problem, HasSubstr(row.problem));
    }
}

TEST(FaultPlanTest, aPlanComesBackFromItsMessage) {
    for (const Kind kind :
         {Kind::None, Kind::Error, Kind::Truncated, Kind::Random, Kind::Dies, Kind::Descriptor,
          Kind::DropNotices, Kind::DoubleNotices, Kind::ReorderNotices}) {
        FaultPlan fault = plan(kind, "m");
        fault.seed = 0xfedcba98;
        EXPECT_EQ(FaultPlan::fromJson(fault.toJson()), fault);
    }
    const Json::Value good = plan(Kind::Error).toJson();
    for (const std::string& member : good.getMemberNames()) {
        Json::Value bad = good;
        bad[member] = Json::arrayValue;
        EXPECT_EQ(FaultPlan::fromJson(bad), std::nullopt) << member;
    }
    EXPECT_EQ(FaultPlan::fromJson("error"), std::nullopt);
}

Notice notice(int pid) {
    return {Notice::Kind::ForegroundServices, pid, 0, 0, 0};
}

TEST(NoticeFaultsTest, eachFaultLastsForItsNumberOfNotices) {
    struct Row {
        FaultPlan plan;
        std::vector<int> pids;  // that are sent, of 1, 2, 3 and 4
    };
    for (const Row& row : {Row{plan(Kind::None), {1, 2, 3, 4}},
                           {withTimes(plan(Kind::DropNotices), 0), {}},
                           {withTimes(plan(Kind::DropNotices), 3), {4}},
                           {withTimes(plan(Kind::DoubleNotices), 0), {1, 1, 2, 2, 3, 3, 4, 4}},
                           {withTimes(plan(Kind::DoubleNotices), 1), {1, 1, 2, 3, 4}},
                           {withTimes(plan(Kind::ReorderNotices), 2), {2, 1, 3, 4}},
                           {withTimes(plan(Kind::ReorderNotices), 4), {4, 3, 2, 1}}}) {
        NoticeFaults faults;
        EXPECT_THAT(faults.set(row.plan), IsEmpty());
        std::vector<int> sent;
        for (int pid = 1; pid <= 4; ++pid) {
            for (const Notice& out : faults.pass(notice(pid)))
                sent.push_back(out.pid);
        }
        EXPECT_EQ(sent, row.pids) << row.plan.toJson();
    }
}

TEST(NoticeFaultsTest, whatIsHeldBackComesWithTheNextPlan) {
    NoticeFaults faults;
    EXPECT_THAT(faults.set(withTimes(plan(Kind::ReorderNotices), 3)), IsEmpty());
    EXPECT_THAT(faults.pass(notice(1)), IsEmpty());
    EXPECT_THAT(faults.pass(notice(2)), IsEmpty());
    EXPECT_THAT(faults.set(FaultPlan()), ElementsAre(notice(1), notice(2)));
    EXPECT_THAT(faults.pass(notice(3)), ElementsAre(notice(3)));
}

}  // namespace
}  // namespace sim

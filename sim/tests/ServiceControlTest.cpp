// SPDX-License-Identifier: Apache-2.0
// The control side of a service: every operation, and lines that ask for none.
#include "services/ServiceControl.h"

#include <gtest/gtest.h>
#include <json/writer.h>

#include <utility>
#include <vector>

namespace sim {
namespace {

class FakeService : public SimulatedService {
public:
    size_t tell(const Notice& notice) override {
        mTold.push_back(notice);
        return 2;
    }
    bool awaitObserver(int pid, std::chrono::milliseconds timeout) override {
        mAwaited = {pid, timeout.count()};
        return pid == 7;
    }
    Json::Value status() const override {
        Json::Value value(Json::objectValue);
        value["observers"] = 3;
        return value;
    }

    std::vector<Notice> mTold;
    std::pair<int, long> mAwaited{};
};

class FakeSwitch : public FaultSwitch {
public:
    void set(const FaultPlan& plan) override { mPlans.push_back(plan); }
    Json::Value callers() const override {
        Json::Value pids(Json::arrayValue);
        pids.append(17);
        return pids;
    }

    std::vector<FaultPlan> mPlans;
};

Json::Value request(const std::string& op) {
    Json::Value value(Json::objectValue);
    value["id"] = 41;
    value["op"] = op;
    return value;
}

class ServiceControlTest : public testing::Test {
protected:
    FakeService mService;
    WorldReplica mReplica;
    FakeSwitch mSwitch;
    ServiceControl mControl{"activity", mService, mSwitch, mReplica};
};

TEST_F(ServiceControlTest, everyAnswerCarriesTheIdOfItsRequest) {
    for (const char* op : {"world", "tell", "awaitObserver", "status", "nothing"}) {
        EXPECT_EQ(mControl.answer(request(op))["id"], 41) << op;
    }
}

TEST_F(ServiceControlTest, worldReplacesTheCopyThatBinderThreadsRead) {
    World world;
    world.installPackage("com.a", {10050, {}});
    const auto taken = mReplica.get();
    Json::Value line = request("world");
    line["world"] = world.toJson();
    EXPECT_FALSE(mControl.answer(line).isMember("error"));
    EXPECT_EQ(*mReplica.get(), world);
    EXPECT_EQ(*taken, World()) << "who reads keeps the one that was taken";
}

TEST_F(ServiceControlTest, tellHandsTheNoticeOnAndSaysHowManyTookIt) {
    const Notice notice{Notice::Kind::ProcessDied, 1, 2, 0, 0};
    Json::Value line = request("tell");
    line["notice"] = notice.toJson();
    const Json::Value sent = mControl.answer(line)["sent"];
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0]["told"], 2u);
    EXPECT_EQ(Notice::fromJson(sent[0]["notice"]), notice);
    EXPECT_EQ(mService.mTold, std::vector<Notice>{notice});
}

TEST_F(ServiceControlTest, awaitObserverHandsOnPidAndTime) {
    Json::Value line = request("awaitObserver");
    line["pid"] = 7;
    line["milliseconds"] = 250;
    EXPECT_EQ(mControl.answer(line)["found"], true);
    EXPECT_EQ(mService.mAwaited, std::make_pair(7, 250L));
    line["pid"] = 8;
    EXPECT_EQ(mControl.answer(line)["found"], false);
}

TEST_F(ServiceControlTest, statusIsTheServicesOwnAndThatOfItsFront) {
    const Json::Value status = mControl.answer(request("status"));
    EXPECT_EQ(status["observers"], 3);
    EXPECT_EQ(status["callers"][0], 17);
    EXPECT_EQ(status["published"], false);
    mControl.published();
    EXPECT_EQ(mControl.answer(request("status"))["published"], true);
}

TEST_F(ServiceControlTest, aServiceIsToBePublishedOnceAndAfterTheTimeThatIsSaid) {
    EXPECT_EQ(mControl.publishTime(), std::nullopt);
    Json::Value line = request("publish");
    line["milliseconds"] = 60'000;
    const auto before = std::chrono::steady_clock::now();
    EXPECT_FALSE(mControl.answer(line).isMember("error"));
    EXPECT_GE(mControl.publishTime(), before + std::chrono::minutes(1));
    EXPECT_TRUE(mControl.answer(line).isMember("error"));
    mControl.published();
    EXPECT_EQ(mControl.publishTime(), std::nullopt);
    EXPECT_TRUE(mControl.answer(line).isMember("error"));
}

TEST_F(ServiceControlTest, aFaultReachesTheCallsOrTheNoticesItIsFor) {
    struct Row {
        FaultPlan::Kind kind;
        bool reachesCalls;
        size_t sent;  // of one notice
    };
    using Kind = FaultPlan::Kind;
    for (const Row& row : {Row{Kind::DoubleNotices, false, 2},
                           {Kind::Dies, true, 2},
                           {Kind::None, true, 1},
                           {Kind::DropNotices, false, 0}}) {
        mSwitch.mPlans.clear();
        FaultPlan plan;
        plan.kind = row.kind;
        Json::Value line = request("fault");
        line["plan"] = plan.toJson();
        EXPECT_FALSE(mControl.answer(line).isMember("error"));
        EXPECT_EQ(mSwitch.mPlans.size(), row.reachesCalls ? 1u : 0u);
        Json::Value tell = request("tell");
        tell["notice"] = Notice{}.toJson();
        EXPECT_EQ(mControl.answer(tell)["sent"].size(), row.sent);
    }
}

TEST_F(ServiceControlTest, aDescriptorIsChosenBeforeTheServiceIsPublished) {
    FaultPlan plan;
    plan.kind = FaultPlan::Kind::Descriptor;
    plan.descriptor = "x";
    Json::Value line = request("fault");
    line["plan"] = plan.toJson();
    EXPECT_FALSE(mControl.answer(line).isMember("error"));
    mControl.published();
    EXPECT_TRUE(mControl.answer(line).isMember("error"));
    EXPECT_EQ(mSwitch.mPlans.size(), 1u);
}

TEST_F(ServiceControlTest, linesThatAskForNothingAreErrorsAndChangeNothing) {
    Json::Value badWorld = request("world");
    badWorld["world"] = 7;
    Json::Value badNotice = request("tell");
    badNotice["notice"]["pid"] = 1;
    Json::Value badWait = request("awaitObserver");
    badWait["pid"] = "7";
    Json::Value noFault = request("fault");
    Json::Value badFault = request("fault");
    badFault["plan"] = FaultPlan{FaultPlan::Kind::Dies, "reboot"}.toJson();
    Json::Value noTime = request("publish");
    noTime["milliseconds"] = -1;
    Json::Value noOp(Json::objectValue);
    Json::Value oddOp = request("status");
    oddOp["op"] = 7;
    for (const Json::Value& line : {badWorld, badNotice, badWait, noFault, badFault, noTime, noOp,
                                    oddOp, request("reboot")}) {
        EXPECT_TRUE(mControl.answer(line)["error"].isString()) << line;
    }
    EXPECT_EQ(*mReplica.get(), World());
    EXPECT_TRUE(mService.mTold.empty());
    EXPECT_TRUE(mSwitch.mPlans.empty());
    EXPECT_EQ(mService.mAwaited.first, 0);
}

}  // namespace
}  // namespace sim

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
    ServiceControl mControl{mService, mReplica};
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
    EXPECT_EQ(mControl.answer(line)["told"], 2u);
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

TEST_F(ServiceControlTest, statusIsTheServicesOwn) {
    EXPECT_EQ(mControl.answer(request("status"))["observers"], 3);
}

TEST_F(ServiceControlTest, linesThatAskForNothingAreErrorsAndChangeNothing) {
    Json::Value badWorld = request("world");
    badWorld["world"] = 7;
    Json::Value badNotice = request("tell");
    badNotice["notice"]["pid"] = 1;
    Json::Value badWait = request("awaitObserver");
    badWait["pid"] = "7";
    Json::Value noOp(Json::objectValue);
    Json::Value oddOp = request("status");
    oddOp["op"] = 7;
    for (const Json::Value& line : {badWorld, badNotice, badWait, noOp, oddOp, request("reboot")}) {
        EXPECT_TRUE(mControl.answer(line)["error"].isString()) << line;
    }
    EXPECT_EQ(*mReplica.get(), World());
    EXPECT_TRUE(mService.mTold.empty());
    EXPECT_EQ(mService.mAwaited.first, 0);
}

}  // namespace
}  // namespace sim

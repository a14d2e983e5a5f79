// SPDX-License-Identifier: Apache-2.0
// Services that answer wrong, die in a call, come late or garble their notices: the daemon lives
// on, and once they are all right again, so is all that it says.
#include <gmock/gmock.h>

#include "HeadsetFixture.h"

namespace sim {
namespace {

using std::chrono::milliseconds;
using testing::HasSubstr;
using Kind = FaultPlan::Kind;

constexpr int kDeadObject = -32;
constexpr int kIllegalState = -5;

class ServiceFaultsTest : public HeadsetFixture {
protected:
    void SetUp() override {
        HeadsetFixture::SetUp();
        run([this] {
            startGame();
            mHeadset->startApp(kCoachPackage);
            mHeadset->expect(kShell, mDue);
        });
    }

    static FaultPlan plan(Kind kind, const std::string& method = FaultPlan::kAllMethods) {
        FaultPlan plan;
        plan.kind = kind;
        plan.method = method;
        if (kind == Kind::Error) plan.exception = kIllegalState;
        if (kind == Kind::Random) plan.seed = 4711;
        if (kind == Kind::ReorderNotices) plan.times = 2;
        return plan;
    }

    /** Has the daemon call every method that it ever calls, whatever becomes of that. */
    void exercise() {
        mHeadset->restart(Stack::kDaemon);
        mHeadset->restart(kCoachPackage);
        mHeadset->addDisplay(2);
        for (const char* name : {kShell, kGame}) {
            mHeadset->setPanelService(name, true);
            mHeadset->showActivity(name);
            mHeadset->setPanelService(name, false);
        }
        mHeadset->grantTracking(kShell, 2);
        static_cast<void>(mHeadset->answersFor(kShell));
    }

    /** What was remembered of bad times is got rid of as far as that is the platform's way. */
    void expectAllRightAgain(const std::string& service) {
        // A permission that was denied stays denied to its uid; and a display that leaves the
        // tracked ones while the display manager is not found yet is the daemon's end.
        if (service == "permission" || service == "display") mHeadset->restart(Stack::kDaemon);
        mHeadset->revokeTracking(kShell, 2);
        if (mHeadset->world().displays().contains(2)) mHeadset->removeDisplay(2);
        mHeadset->restart(kCoachPackage);
        mHeadset->reportActivitiesAgain();
        mHeadset->reportWindowAgain();
        mHeadset->reportXrSession(kGame, Headset::kVisible);
        mHeadset->expect(kShell, mDue);
    }

    const Answers mDue{
            {{kShell, kBoth}, {kGame, kBoth}, {kCoachPackage, kHeadOnly}}, kGame, kGame, ""};
};

TEST_F(ServiceFaultsTest, theDaemonOutlivesWrongAnswersOfEveryService) {
    for (const std::string& service : Stack::serviceNames()) {
        for (const Kind kind : {Kind::Error, Kind::Truncated, Kind::Random}) {
            const FaultPlan fault = plan(kind);
            if (!fault.problemWith(service).empty()) continue;
            SCOPED_TRACE(service + " " + fault.toJson()["fault"].asString());
            run([&] {
                mHeadset->setFault(service, fault);
                exercise();
                mHeadset->setFault(service, FaultPlan());
                // An observer that was refused is offered again to a new service only.
                mHeadset->restartService(service);
                expectAllRightAgain(service);
            });
            if (HasFailure()) return;
        }
    }
}

/** Registrations cannot be had in another way than by a new daemon or a new service. */
TEST_F(ServiceFaultsTest, aServiceThatDiesInACallIsFoundAgain) {
    struct Row {
        const char* service;
        const char* method;
    };
    for (const Row& row : {Row{"activity", FaultPlan::kRegistration},
                           {"activity", "hasForegroundPanelService"},
                           {"activity", "getDisplaysWithTopActivities"},
                           {"activity", "getTopActivityOnPrimaryDisplay"},
                           {"display", FaultPlan::kRegistration},
                           {"permission", "checkPermission"},
                           {"permission", "getPackagesForUid"},
                           {"VelmarWindowManager", FaultPlan::kRegistration},
                           {"vrfocushelper", "onTopActivityChanged"}}) {
        SCOPED_TRACE(std::string(row.service) + " " + row.method);
        run([&] {
            mHeadset->setFault(row.service, plan(Kind::Dies, row.method));
            EXPECT_TRUE(mHeadset->isRunning(row.service)) << "it dies in a call, not before";
            exercise();
            mHeadset->awaitTrue("the service has died",
                                [&] { return !mHeadset->isRunning(row.service); });
            mHeadset->restartService(row.service);
            expectAllRightAgain(row.service);
        });
        if (HasFailure()) return;
    }
}

TEST_F(ServiceFaultsTest, aServiceOfAnotherInterfaceIsFoundButOfNoUse) {
    FaultPlan misnamed = plan(Kind::Descriptor);
    misnamed.descriptor = "nobody.asked.for.IThis";
    for (const std::string& service : Stack::serviceNames()) {
        // Looked up, and never called.
        if (service == "package_native") continue;
        SCOPED_TRACE(service);
        run([&] {
            mHeadset->setFault(service, misnamed);
            exercise();
            EXPECT_FALSE(mHeadset->isDaemonConnected(service));
            mHeadset->setFault(service, FaultPlan());
            expectAllRightAgain(service);
            mHeadset->awaitTrue("the daemon is connected", [&] {
                mHeadset->grantTracking(kShell, 2);
                mHeadset->restart(kCoachPackage);
                mHeadset->reportWindowAgain();
                static_cast<void>(mHeadset->answersFor(kShell));
                return mHeadset->isDaemonConnected(service);
            });
        });
        if (HasFailure()) return;
    }
}

TEST_F(ServiceFaultsTest, aServiceThatComesLateIsFoundWhenItComes) {
    for (const std::string& service : Stack::serviceNames()) {
        SCOPED_TRACE(service);
        run([&] {
            mHeadset->restartService(service, milliseconds(50));
            // It answers to its controller meanwhile, and to nobody else.
            mHeadset->install("com.late.app", 10090);
            mHeadset->awaitTrue("it is published",
                                [&] { return mHeadset->stack().isPublished(service); });
            mHeadset->stack().awaitDaemonObserver("activity");
            mHeadset->stack().awaitDaemonObserver("VelmarWindowManager");
            expectAllRightAgain(service);
        });
        if (HasFailure()) return;
    }
}

/** As on the device: who has been told that an object is dead asks it nothing any more. */
TEST_F(ServiceFaultsTest, anAnswerOfDeadObjectLastsUntilTheServiceIsNew) {
    FaultPlan dead = plan(Kind::Error, "getTopActivityOnPrimaryDisplay");
    dead.exception = 0;
    dead.transport = kDeadObject;
    dead.times = 1;
    run([&] {
        // A new daemon has been told of nobody in the foreground, and asks.
        mHeadset->restart(Stack::kDaemon);
        mHeadset->setFault("activity", dead);
        mHeadset->awaitTrue("the daemon has no top activity",
                            [&] { return mHeadset->answersFor(kShell).top.empty(); });
        EXPECT_EQ(mHeadset->answersFor(kShell).top, "") << "it has happened once, and stays";
        mHeadset->restartService("activity");
        expectAllRightAgain("activity");
    });
}

TEST_F(ServiceFaultsTest, aFaultHappensAsOftenAsItIsToldTo) {
    FaultPlan twice = plan(Kind::Error, "getTopActivityOnPrimaryDisplay");
    twice.times = 2;
    run([&] {
        mHeadset->restart(Stack::kDaemon);
        mHeadset->setFault("activity", twice);
        for (const std::string top : {"", "", kGame, kGame}) {
            EXPECT_EQ(mHeadset->ask(kShell, operation("getTopActivity"))["package"], top);
        }
        expectAllRightAgain("activity");
    });
}

TEST_F(ServiceFaultsTest, noticesAreDroppedDoubledAndReordered) {
    struct Row {
        Kind kind;
        int times;
        std::vector<std::string> events;  // of a panel that goes on, and off, and the window
    };
    const std::string services = "activity: " + std::string(kGame) + " has changed its services";
    const std::string kept = services + " (kept back by a fault)";
    const std::string front = "activity: " + std::string(kGame) + " is in the foreground";
    for (const Row& row : {Row{Kind::DropNotices, 1, {kept, front}},
                           {Kind::DropNotices, 0, {kept, front + " (kept back by a fault)"}},
                           {Kind::DoubleNotices, 1, {services, services, front}},
                           {Kind::DoubleNotices, 2, {services, services, front, front}},
                           {Kind::ReorderNotices, 2, {kept, front, services}}}) {
        run([&] {
            FaultPlan fault = plan(row.kind);
            fault.times = row.times;
            mHeadset->setFault("activity", fault);
            mEvents.clear();
            mHeadset->notice({Notice::Kind::ForegroundServices, mHeadset->lastPidOf(kGame),
                              mHeadset->uidOf(kGame), 0, 0});
            mHeadset->notice({Notice::Kind::ForegroundActivities, mHeadset->lastPidOf(kGame),
                              mHeadset->uidOf(kGame), 0, 1});
            std::string due;
            for (const std::string& event : row.events)
                due += "  " + event + "\n";
            EXPECT_EQ(mEvents, due) << toLine(fault.toJson());
            mHeadset->setFault("activity", FaultPlan());
            expectAllRightAgain("activity");
        });
    }
}

TEST_F(ServiceFaultsTest, noticesThatAreHeldBackForAnOrderComeAtItsEnd) {
    run([&] {
        FaultPlan fault = plan(Kind::ReorderNotices);
        fault.times = 4;
        mHeadset->setFault("activity", fault);
        mHeadset->crashApp(kGame);
        const std::string due = std::string(kShell) + " is in the foreground\n";
        EXPECT_THAT(mEvents, Not(testing::EndsWith(due)));
        mHeadset->setFault("activity", FaultPlan());
        EXPECT_THAT(mEvents, testing::EndsWith(due));
        mHeadset->expect(kShell,
                         {{{kShell, kBoth}, {kCoachPackage, kHeadOnly}}, kShell, kShell, ""});
    });
}

TEST_F(ServiceFaultsTest, aFaultThatAServiceCannotHaveChangesNothing) {
    const auto refused = [this](const std::string& service, const FaultPlan& fault) {
        return errorOf([&] { mHeadset->setFault(service, fault); });
    };
    EXPECT_THAT(refused("activity", plan(Kind::Error, "reboot")), HasSubstr("no method 'reboot'"));
    EXPECT_THAT(refused("nothing", plan(Kind::Error)), HasSubstr("no service 'nothing'"));
    mHeadset->killService("display");
    EXPECT_THAT(refused("display", plan(Kind::Error)), HasSubstr("'display' does not run"));
    mHeadset->hang("activity");
    EXPECT_THAT(refused("activity", plan(Kind::Error)), HasSubstr("hangs"));
    mHeadset->resume("activity");
    run([this] { mHeadset->expect(kShell, mDue); });
}

}  // namespace
}  // namespace sim

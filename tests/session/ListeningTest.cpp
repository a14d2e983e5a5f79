// SPDX-License-Identifier: Apache-2.0
// Listeners of real apps: a session that expects them to hear something else fails, and says what.
#include <gmock/gmock.h>

#include "HeadsetFixture.h"
#include "session/Listening.h"
#include "session/TelemetryFeed.h"

namespace sim {
namespace {

using testing::AllOf;
using testing::HasSubstr;

class ListeningTest : public HeadsetFixture {
protected:
    void SetUp() override {
        HeadsetFixture::SetUp();
        run([this] {
            mListening = std::make_unique<Listening>(*mHeadset);
            // Notices of before must not be taken for new ones.
            mHeadset->awaitTrue("the helper has heard of the shell",
                                [this] { return heardByHelper()["calls"].asInt() == 4; });
            static_cast<void>(mHeadset->stack()
                                      .service("vrfocushelper")
                                      .request(operation("heard"), mHeadset->stack().patience()));
        });
    }

    Json::Value heardByHelper() {
        return mHeadset->stack()
                .service("vrfocushelper")
                .request(operation("status"), mHeadset->stack().patience());
    }

    Told toldGame() const {
        return {kGame, kGame, mHeadset->lastPidOf(kGame), mHeadset->uidOf(kGame), true};
    }

    std::unique_ptr<Listening> mListening;
};

TEST_F(ListeningTest, everyoneHearsEveryNoticeOnceAndTheLastIsTheAnswer) {
    run([this] {
        mListening->startFocus(kShell, 0);
        mListening->startTop(kShell);
        startGame();
        mListening->expectLast(toldGame());
        EXPECT_THAT(mListening->takeLines(),
                    testing::ElementsAre(
                            AllOf(HasSubstr("com.velmar.shellenv hears: head focus x3; top "),
                                  HasSubstr("immersive com.orbit.racer (pid ")),
                            HasSubstr("vrfocushelper hears: top ")));
        EXPECT_TRUE(mListening->takeLines().empty());
    });
}

TEST_F(ListeningTest, aListenerThatWasToldSomethingElseIsNamedWithTheDifference) {
    run([this] {
        mListening->startTop(kShell);
        startGame();
        Told other = toldGame();
        other.pid += 1;
        EXPECT_THAT(errorOf([&] { mListening->expectLast(other); }),
                    AllOf(HasSubstr("com.velmar.shellenv: expected top com.orbit.racer, immersive"),
                          HasSubstr("(pid " + std::to_string(other.pid) + ")"),
                          HasSubstr("heard top com.orbit.racer")));
        EXPECT_THAT(errorOf([&] {
                        mListening->expectLast({kShell, kGame, 0, 0, false});
                    }),
                    HasSubstr("vrfocushelper: expected top com.velmar.shellenv"));
    });
}

/** Registered behind the session's back, so that what it hears is too much. */
TEST_F(ListeningTest, aNoticeTooManyEndsTheSession) {
    run([this] {
        mListening->startTop(kShell);
        Json::Value request = operation("listenFocus");
        request["type"] = 1;
        ASSERT_EQ(mHeadset->ask(kShell, request)["exception"], 0);
    });
    const std::string error = errorOf([this] {
        // A listener has no order with others, so the call may be heard some notices later.
        for (int round = 0; round < 100; ++round)
            mHeadset->focusWindow(kShell);
    });
    EXPECT_THAT(error, HasSubstr("com.velmar.shellenv: input focus: 0 due, "));
}

/** Unregistered behind the session's back: it says who has not heard what. */
TEST_F(ListeningTest, aNoticeTooFewEndsTheSessionWhenItsPatienceIsOver) {
    SKIP_ON_DEVICE("a second headset needs a driver of its own");
    Headset::Options options;
    options.stack.programs = PROGRAMS;
    options.stack.patience = std::chrono::seconds(5);
    Headset impatient(options);
    impatient.install(kShell, 0, {"com.velmar.permission.READ_FOCUS_STATE"});
    const std::string error = errorOf([&] {
        impatient.boot();
        impatient.startApp(kShell);
        Listening listening(impatient);
        listening.startTop(kShell);
        ASSERT_EQ(impatient.ask(kShell, operation("unlistenTop"))["exception"], 0);
        impatient.focusWindow(kShell);
    });
    EXPECT_THAT(error, HasSubstr("com.velmar.shellenv: top activity: 1 due, 0 heard"));
}

TEST_F(ListeningTest, listenersOfAnAppGoWithTheRegistrationOrTheApp) {
    run([this] {
        mHeadset->install(kCoachPackage, 10062, {"com.velmar.permission.READ_FOCUS_STATE"});
        mHeadset->startApp(kCoachPackage);
        for (const char* app : {kShell, kCoachPackage})
            mListening->startFocus(app, 0);
        EXPECT_EQ(mListening->pidsOf(0).size(), 2u);
        EXPECT_THAT(errorOf([this] { mListening->startFocus(kShell, 0); }),
                    HasSubstr("listenFocus is refused: {\"exception\":-3"));
        mListening->stopFocus(kShell, 0);
        mListening->forget(kCoachPackage);
        mHeadset->crashApp(kCoachPackage);
        EXPECT_TRUE(mListening->pidsOf(0).empty());
        mHeadset->focusWindow(kShell);
        mHeadset->focusWindow(kShell);
        mListening->settle();
        // The same again from the start: neither is registered any more.
        mHeadset->startApp(kCoachPackage);
        for (const char* app : {kShell, kCoachPackage})
            mListening->startFocus(app, 0);
    });
}

TEST_F(ListeningTest, theTelemetryToolPrintsWhatWasReported) {
    run([this] {
        TelemetryFeed feed(mHeadset->stack());
        startGame();
        const std::vector<Json::Value> events = feed.await(1);
        EXPECT_EQ(TelemetryFeed::difference(toldGame(), events[0]), "");
        mHeadset->reportXrSession(kGame, /*state=*/1);
        mHeadset->reportXrSession(kGame, Headset::kStopping);
        EXPECT_EQ(TelemetryFeed::difference({kGame, "", 0, 0, false}, feed.await(1)[0]), "");
        EXPECT_EQ(feed.countAll(), 2u);
    });
}

}  // namespace
}  // namespace sim

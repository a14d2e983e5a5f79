// SPDX-License-Identifier: Apache-2.0
//
// A booted headset with a shell and a game, for tests of what goes wrong.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

#include "TestDevice.h"
#include "session/Headset.h"
#include "session/KnownPackages.h"
#include "session/SessionError.h"

namespace sim {

class HeadsetFixture : public testing::Test {
protected:
    HeadsetFixture() {
        Headset::Options options;
        options.stack.programs = PROGRAMS;
        options.stack.device = binderhost::tests::testDevice();
        // A failure guard, not a measure: machines that run the tests may be slow.
        options.stack.patience = std::chrono::seconds(60);
        options.onEvent = [this](const std::string& line) { mEvents += "  " + line + "\n"; };
        mHeadset = std::make_unique<Headset>(options);
        mHeadset->install(kShell, 10050,
                          {"com.velmar.permission.READ_FOCUS_STATE",
                           "com.velmar.permission.GRANT_TRACKING_SERVICE_ACCESS_TO_DISPLAY"});
        mHeadset->install(kGame, 10061);
        mHeadset->install(kCoachPackage, 10062, {kBackgroundHead});
    }

    void SetUp() override {
        run([this] {
            mHeadset->boot();
            mHeadset->startApp(kShell);
            mHeadset->showActivity(kShell);
        });
    }

    void TearDown() override {
        if (!HasFailure()) return;
        std::fprintf(stderr, "what happened:\n%s%s", mEvents.c_str(),
                     mHeadset->stack().logTails().c_str());
    }

    /** Runs steps whose failure is the test's. */
    void run(const std::function<void()>& steps) {
        try {
            steps();
        } catch (const SessionError& error) {
            FAIL() << error.what();
        }
    }

    /** The error that steps end with; empty when they do not. */
    static std::string errorOf(const std::function<void()>& steps) {
        try {
            steps();
        } catch (const SessionError& error) {
            return error.what();
        }
        return "";
    }

    /** The game is in front, and the daemon has heard all that there was to hear of that. */
    void startGame() {
        mHeadset->startApp(kGame);
        mHeadset->showActivity(kGame);
        mHeadset->reportXrSession(kGame, Headset::kVisible);
        mHeadset->expect(kShell, {{{kShell, kBoth}, {kGame, kBoth}}, kGame, kGame, ""});
        // The answers are the right ones before the last notice is handled.
        mHeadset->settle();
    }

    static Json::Value operation(const std::string& op) { return sim::operation(op); }

    std::string mEvents;
    std::unique_ptr<Headset> mHeadset;
};

}  // namespace sim

// SPDX-License-Identifier: Apache-2.0
// Listeners in processes of their own: what they are told, and what is left of those that go.
#include <gtest/gtest.h>

#include "ListenersFixture.h"

namespace daemontest {
namespace {

using sim::kGame;
using sim::kShell;

using ListenersTest = ListenersFixture;

TEST_F(ListenersTest, eachIsToldOfNoticesOfTheSystem) {
    run([this] {
        const auto one = startListener();
        const auto two = startListener();
        registerAll(*one);
        registerAll(*two);
        mHeadset->showActivity(kShell);
        awaitTop(*one, kShell);
        awaitTop(*two, kShell);
        mHeadset->showActivity(kGame);
        awaitTop(*one, kGame);
        Counts counts{};
        mHeadset->awaitTrue("both have heard the same, and as much of each type", [&] {
            counts = heard(*one);
            return counts == heard(*two) && counts.head == counts.input;
        });
        EXPECT_GT(counts.head, 0);
        EXPECT_EQ(counts.wrong, 0);
    });
}

TEST_F(ListenersTest, aKilledOneIsForgottenAndLeavesNothing) {
    run([this] {
        registerAll(*startListener());
        mHeadset->awaitTrue("it is forgotten",
                            [this] { return registered() == std::vector<std::vector<int>>(2); });
        const auto other = startListener();
        registerAll(*other);
        expectNoTrace([&] {
            for (int round = 0; round < 10; ++round) {
                const auto victim = startListener();
                registerAll(*victim);
                ASSERT_EQ(registered()[0].size(), 2u);
                victim->process().kill();
                mHeadset->awaitTrue("it is forgotten", [&] {
                    return registered() == std::vector<std::vector<int>>(2, {other->pid()});
                });
            }
        });
        const Counts before = heard(*other);
        mHeadset->reportXrSession(kGame, sim::Headset::kStopping);
        awaitHeard(*other, {before.head, before.input, 0, before.top + 1});
    });
}

/** The permission controller, asked by the daemon, calls it before it answers. */
TEST_F(ListenersTest, aListenerIsTheCallersWhoeverCallsWhileThePermissionIsChecked) {
    run([this] {
        const auto controller = replaceService("permission");
        // One that has not asked about anybody yet.
        mHeadset->killDaemon();
        mHeadset->restartDaemon();
        const auto listener = startListener();
        registerAll(*listener);
        const Json::Value seen = controller->request(operation("status"), patience());
        ASSERT_GE(seen["pids"].size(), 1u);
        EXPECT_EQ(seen["pids"][0], listener->pid());
        for (const Json::Value& exception : seen["exceptions"])
            EXPECT_EQ(exception, 0) << "called as itself";
        EXPECT_EQ(registered(), std::vector<std::vector<int>>(2, {listener->pid()}));
        expectTaken(*listener, "unregisterTop");
    });
}

}  // namespace
}  // namespace daemontest

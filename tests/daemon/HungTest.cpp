// SPDX-License-Identifier: Apache-2.0
//
// A listener or the helper hangs while ten thousand notices are sent: what that costs others, and
// what it hears when it goes on.
//
// The activity manager is the test's own and gives every question a number, so a list of top
// activities shows in which order they were sent. A pass of the daemon asks once for its
// listeners and after that once for the helper.
#include <gmock/gmock.h>
#include <signal.h>

#include <algorithm>
#include <functional>

#include "ListenersFixture.h"
#include "tests/ToolProcess.h"

namespace daemontest {
namespace {

using sim::kGame;
using sim::kShell;

class HungTest : public ListenersFixture {
protected:
    using Numbers = std::vector<std::string>;
#ifdef UNDER_SANITIZER
    // A pass is ten times as slow there; these still fill the hung process's share of space.
    static constexpr int kRounds = 4;
#else
    static constexpr int kRounds = 10;
#endif
    static constexpr int kNoticesOfARound = 1000;
    /** A report of an app ends each round. */
    static constexpr int kTops = kRounds * (kNoticesOfARound + 1);
    /** What there is surely room for: 300 bytes to a listener and fewer to the helper. */
    static constexpr size_t kLeastQueued = 512 * 1024 / 400;

    void SetUp() override {
        ListenersFixture::SetUp();
        if (HasFatalFailure()) return;
        run([this] {
            mActivity = replaceService("activity");
            Json::Value observed = operation("observed");
            observed["pid"] = daemonPid();
            ASSERT_TRUE(mActivity->request(observed, patience())["observed"].asBool());
            mHelper = replaceService("vrfocushelper");
            mHeadset->awaitTrue("the daemon has found the helper", [this] {
                mHeadset->reportXrSession(kGame, sim::Headset::kStopping);
                return !numbersOf(*mHelper).empty();
            });
            for (auto* each : {&mOne, &mTwo, &mThree}) {
                *each = startListener();
                registerAll(**each);
            }
            (void)settledHoldings();
            mHelperHeard = numbersOf(*mHelper).size();
        });
    }

    Numbers numbersOf(DrivenProcess& process) {
        Numbers numbers;
        const Json::Value status = ask(process, "status");
        for (const Json::Value& each : status["tops"])
            numbers.push_back(each.asString());
        return numbers;
    }
    /** Those of the notices that the listeners have heard too. */
    Numbers numbersOfHelper() {
        Numbers numbers = numbersOf(*mHelper);
        numbers.erase(numbers.begin(), numbers.begin() + static_cast<ptrdiff_t>(mHelperHeard));
        return numbers;
    }

    void beginTelling(int count) {
        Json::Value request = operation("tell");
        request["count"] = count;
        mActivity->post(request);
    }
    /** Notices while one is hung; each kind of call is answered meanwhile. */
    void tellEverybody(const std::vector<DrivenProcess*>& able) {
        for (int round = 1; round <= kRounds; ++round) {
            beginTelling(kNoticesOfARound);
            (void)mHeadset->answersFor(kShell);
            const tools::Transcript dump =
                    tools::runTool({"dumpsys", "vrfocus"}, {.driver = hubPath()});
            EXPECT_EQ(dump.status, 0) << dump.err;
            const int told = round * kNoticesOfARound;
            for (DrivenProcess* each : able)
                awaitHeard(*each, {told, told, 0, told + round - 1});
            // Of passes side by side it is open whose numbers come first: this one goes alone.
            mHeadset->reportXrSession(kGame, sim::Headset::kStopping);
            for (DrivenProcess* each : able)
                awaitHeard(*each, {told, told, 0, told + round});
        }
    }
    void expectAscending(const Numbers& numbers) {
        EXPECT_EQ(std::adjacent_find(numbers.begin(), numbers.end(), std::greater_equal<>()),
                  numbers.end());
    }
    /** The helper heard from the same passes, from the first on, and of no other ones. */
    void expectOfSamePasses(const Numbers& helper, const Numbers& listener) {
        ASSERT_LE(helper.size(), listener.size());
        for (size_t i = 0; i < helper.size(); ++i) {
            ASSERT_LT(listener[i], helper[i]);
            if (i + 1 == listener.size()) break;
            ASSERT_LT(helper[i], listener[i + 1]);
        }
    }
    void goOn(DrivenProcess& process) {
        process.process().signal(SIGCONT);
        (void)settledHoldings();
    }

    std::unique_ptr<DrivenProcess> mActivity, mHelper, mOne, mTwo, mThree;
    /** Before there were listeners. */
    size_t mHelperHeard = 0;
};

TEST_F(HungTest, aListenerThatHangsCostsNobodyANoticeAndHearsInOrderWhatThereWasRoomFor) {
    run([this] {
        mThree->process().signal(SIGSTOP);
        tellEverybody({mOne.get(), mTwo.get()});
        const Numbers sent = numbersOf(*mOne);
        EXPECT_EQ(sent.size(), size_t{kTops});
        expectAscending(sent);
        EXPECT_EQ(numbersOf(*mTwo), sent);
        EXPECT_EQ(registered()[0].size(), 3u);

        goOn(*mThree);
        EXPECT_EQ(numbersOfHelper().size(), sent.size());
        expectOfSamePasses(numbersOfHelper(), sent);
        const Numbers late = numbersOf(*mThree);
        EXPECT_GT(late.size(), kLeastQueued);
        ASSERT_LT(late.size(), sent.size()) << "there was room for all";
        EXPECT_TRUE(std::equal(late.begin(), late.end(), sent.begin()));

        beginTelling(1);
        awaitHeard(*mOne,
                   {kRounds * kNoticesOfARound + 1, kRounds * kNoticesOfARound + 1, 0, kTops + 1});
        mHeadset->awaitTrue("there is room again",
                            [&] { return numbersOf(*mThree).back() == numbersOf(*mOne).back(); });
        EXPECT_EQ(numbersOf(*mThree).size(), late.size() + 1);
    });
}

TEST_F(HungTest, aHelperThatHangsCostsNobodyANoticeAndHearsInOrderWhatThereWasRoomFor) {
    run([this] {
        mHelper->process().signal(SIGSTOP);
        tellEverybody({mOne.get(), mTwo.get(), mThree.get()});
        const Numbers sent = numbersOf(*mOne);
        EXPECT_EQ(sent.size(), size_t{kTops});
        expectAscending(sent);
        EXPECT_EQ(numbersOf(*mTwo), sent);
        EXPECT_EQ(numbersOf(*mThree), sent);

        goOn(*mHelper);
        const Numbers late = numbersOfHelper();
        EXPECT_GT(late.size(), kLeastQueued);
        ASSERT_LT(late.size(), sent.size()) << "there was room for all";
        expectOfSamePasses(late, sent);

        beginTelling(1);
        mHeadset->awaitTrue("there is room again",
                            [&] { return numbersOfHelper().size() == late.size() + 1; });
        EXPECT_GT(numbersOfHelper().back(), sent.back());
    });
}

}  // namespace
}  // namespace daemontest

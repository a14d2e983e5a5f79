// SPDX-License-Identifier: Apache-2.0
// Listeners in processes of their own: who is told what, and what is left of those that go.
#include <gmock/gmock.h>
#include <json/reader.h>
#include <signal.h>

#include "DaemonFixture.h"

namespace daemontest {
namespace {

using sim::DrivenProcess;
using sim::kGame;
using sim::kShell;
using testing::ElementsAre;

constexpr int kIllegalArgument = -3;

class ListenersTest : public DaemonFixture {
protected:
    /** An app with listeners, under the test's uid; gone with the object. */
    std::unique_ptr<DrivenProcess> startListener() {
        return startDriven(LISTENER_PROGRAM, "com.velmar.test");
    }

    Json::Value ask(DrivenProcess& listener, const char* op, int type = 0) {
        Json::Value request = operation(op);
        request["type"] = type;
        return listener.request(request, patience());
    }
    void expectTaken(DrivenProcess& listener, const char* op, int type = 0) {
        const Json::Value answer = ask(listener, op, type);
        EXPECT_EQ(answer["exception"], 0) << op << type;
        EXPECT_EQ(answer["result"], true) << op << type;
    }
    void expectIllegal(DrivenProcess& listener, const char* op, int type = 0) {
        const Json::Value answer = ask(listener, op, type);
        EXPECT_EQ(answer["exception"], kIllegalArgument) << op << type;
    }
    void registerAll(DrivenProcess& listener) {
        expectTaken(listener, "registerFocus", 0);
        expectTaken(listener, "registerFocus", 1);
        expectTaken(listener, "registerTop");
    }

    /** Notices of each kind: the focus of type 0, of type 1, of a wrong type, the top activity. */
    struct Counts {
        int head, input, wrong, top;
        bool operator==(const Counts&) const = default;
    };
    Counts heard(DrivenProcess& listener) {
        const Json::Value value = ask(listener, "heard");
        return {value["focus"][0].asInt(), value["focus"][1].asInt(), value["focus"][2].asInt(),
                value["tops"].asInt()};
    }
    void awaitHeard(DrivenProcess& listener, const Counts& due) {
        mHeadset->awaitTrue("the listener has heard", [&] { return heard(listener) == due; });
    }
    /** Waits until the last notice of the top activity was this, with the immersive app of now. */
    void awaitTop(DrivenProcess& listener, const std::string& activity) {
        Json::Value top;
        std::string immersive;
        const auto told = [&] {
            top = ask(listener, "heard")["top"];
            immersive = mHeadset->answersFor(kShell).immersive;
            return top["activity"] == activity && top["package"] == immersive;
        };
        EXPECT_EQ(errorOf([&] { mHeadset->awaitTrue("it is told", told); }), "")
                << top.toStyledString() << immersive;
        EXPECT_EQ(top["pid"].asInt(), immersive.empty() ? 0 : mHeadset->app(immersive).pid());
        EXPECT_EQ(top["uid"].asInt(), immersive.empty() ? 0 : mHeadset->uidOf(immersive));
        EXPECT_EQ(top["isTop"].asBool(), activity == immersive);
    }

    /** The pids on record, by focus type, as the dump has them. */
    std::vector<std::vector<int>> registered() {
        Json::Value dump;
        std::string errors;
        const std::string text = makeCaller()->dump({u"json"});
        const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
        EXPECT_TRUE(reader->parse(text.data(), text.data() + text.size(), &dump, &errors))
                << errors << text;
        std::vector<std::vector<int>> pids(2);
        for (const Json::Value& entry : dump["types"]) {
            for (const Json::Value& pid : entry["listeners"])
                pids.at(entry["type"].asUInt()).push_back(pid.asInt());
            EXPECT_EQ(entry["size"].asUInt(), entry["listeners"].size());
        }
        return pids;
    }
};

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
        mHeadset->awaitTrue("both have heard the same", [&] {
            counts = heard(*one);
            return counts == heard(*two);
        });
        EXPECT_GT(counts.head, 0);
        EXPECT_EQ(counts.head, counts.input);
        EXPECT_EQ(counts.wrong, 0);
    });
}

TEST_F(ListenersTest, reportsOfAppsReachTopActivityListenersAlone) {
    run([this] {
        const auto listener = startListener();
        registerAll(*listener);
        mHeadset->reportXrSession(kGame, sim::Headset::kStopping);
        awaitTop(*listener, kGame);
        EXPECT_EQ(heard(*listener), (Counts{0, 0, 0, 1}));
        // Neither visible nor stopping: nobody is told.
        mHeadset->reportXrSession(kGame, 1);
        mHeadset->reportXrSession(kGame, sim::Headset::kVisible);
        awaitTop(*listener, kGame);
        EXPECT_EQ(heard(*listener), (Counts{0, 0, 0, 2}));
    });
}

TEST_F(ListenersTest, oneOfAKindAProcess) {
    run([this] {
        const auto one = startListener();
        const auto two = startListener();
        expectIllegal(*one, "unregisterTop");
        expectIllegal(*one, "unregisterFocus", 1);
        registerAll(*one);
        registerAll(*two);
        for (const int type : {0, 1})
            expectIllegal(*one, "registerFocus", type);
        expectIllegal(*one, "registerTop");
        expectTaken(*one, "unregisterFocus", 0);
        expectIllegal(*one, "unregisterFocus", 0);
        EXPECT_THAT(registered(),
                    ElementsAre(ElementsAre(two->pid()),
                                testing::UnorderedElementsAre(one->pid(), two->pid())));
        expectTaken(*one, "registerFocus", 0);
        expectTaken(*one, "unregisterTop");
        mHeadset->reportXrSession(kGame, sim::Headset::kStopping);
        awaitTop(*two, kGame);
        EXPECT_EQ(heard(*one), (Counts{0, 0, 0, 0})) << "the first is kept, what is gone is gone";
    });
}

TEST_F(ListenersTest, aKilledOneIsForgottenAndLeavesNothing) {
    run([this] {
        registerAll(*startListener());
        mHeadset->awaitTrue("it is forgotten", [this] { return registered()[1].empty(); });
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

TEST_F(ListenersTest, aStoppedOneHindersNobodyAndIsToldLater) {
    run([this] {
        constexpr int kNotices = 300;
        const auto stopped = startListener();
        const auto other = startListener();
        registerAll(*stopped);
        registerAll(*other);
        stopped->process().signal(SIGSTOP);
        for (int i = 0; i < kNotices; ++i)
            mHeadset->reportXrSession(
                    kGame, i % 2 == 0 ? sim::Headset::kStopping : sim::Headset::kVisible);
        awaitHeard(*other, {0, 0, 0, kNotices});
        EXPECT_TRUE(makeCaller()->isAnswered());
        EXPECT_EQ(registered()[0].size(), 2u);
        stopped->process().signal(SIGCONT);
        awaitHeard(*stopped, {0, 0, 0, kNotices});
    });
}

/** Its share of one-way space is full long before that. */
TEST_F(ListenersTest, aStoppedOneWithoutRoomLeftHindersNobodyEither) {
    run([this] {
        const auto stopped = startListener();
        const auto other = startListener();
        registerAll(*stopped);
        registerAll(*other);
        stopped->process().signal(SIGSTOP);
        const int pid = getpid();
        const auto app = makeCaller();
        constexpr int kNotices = 8000;
        for (int i = 0; i < kNotices; ++i) {
            const FocusRequest report = FocusRequest().int32(pid).int32(i % 2 == 0 ? 0 : 2);
            ASSERT_EQ(app->call(kSetAppState, report), Answer());
        }
        awaitHeard(*other, {0, 0, 0, kNotices});
        stopped->process().signal(SIGCONT);
        mHeadset->awaitTrue("it hears what there was room for",
                            [&] { return heard(*stopped).top > 0; });
        EXPECT_LT(heard(*stopped).top, kNotices);
        // There is room again.
        mHeadset->showActivity(kShell);
        awaitTop(*stopped, kShell);
    });
}

}  // namespace
}  // namespace daemontest

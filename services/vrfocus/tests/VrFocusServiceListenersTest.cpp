// SPDX-License-Identifier: Apache-2.0
//
// Listeners: who is registered, who is removed by a death, who is told what in which order.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "DumpText.h"
#include "FakeListeners.h"
#include "ServiceWorld.h"

namespace NQS::OS {
namespace {

using android::sp;
using android::String16;
using android::wp;
using android::binder::Status;
using Calls = std::vector<std::string>;

// Of no real processes: above what the kernel gives out.
constexpr int kOne = 5'000'001;
constexpr int kTwo = 5'000'002;
constexpr int kThree = 5'000'003;

class ListenersTest : public ::testing::Test {
protected:
    sp<FakeFocusListener> focusListener(const std::string& name) {
        return new FakeFocusListener(name, mWorld.log);
    }
    sp<FakeTopActivityListener> topListener(const std::string& name) {
        return new FakeTopActivityListener(name, mWorld.log);
    }

    /** Each returns the exception code, and checks that the result flag says the same. */
    int addFocus(int pid, int type, const sp<FakeFocusListener>& listener) {
        return called(pid, [&](bool* result) {
            return mWorld.service->registerVrFocusListener(listener, type, result);
        });
    }
    int removeFocus(int pid, int type) {
        return called(pid, [&](bool* result) {
            return mWorld.service->unregisterVrFocusListener(type, result);
        });
    }
    int addTop(int pid, const sp<FakeTopActivityListener>& listener) {
        return called(pid, [&](bool* result) {
            return mWorld.service->registerVrTopActivityListener(listener, result);
        });
    }
    int removeTop(int pid) {
        return called(pid, [&](bool* result) {
            return mWorld.service->unregisterVrTopActivityListener(result);
        });
    }

    /** What a full notification says to focus listeners and top activity listeners. */
    Calls told() {
        mWorld.log->take();
        mWorld.tracker->windowFocusCallback();
        Calls calls = mWorld.log->take();
        std::erase_if(calls,
                      [](auto& call) { return call == "topActivity" || call == "immersiveApp"; });
        return calls;
    }

    ServiceWorld mWorld;
    int mUid = mWorld.user(kReadFocus);

private:
    int called(int pid, const std::function<Status(bool*)>& call) {
        const CallAs caller(mUid, pid);
        std::array<bool, 2> results = {false, true};
        bool& result = results[mCalls++ % 2];
        const Status status = call(&result);
        EXPECT_EQ(result, status.isOk());
        EXPECT_TRUE(status.exceptionMessage().isEmpty());
        return status.exceptionCode();
    }

    int mCalls = 0;
};

TEST_F(ListenersTest, WithoutThePermissionNothingIsRegisteredOrRemoved) {
    const auto focus = focusListener("f");
    const auto top = topListener("t");
    mUid = mWorld.user(kGrantAccess, kDumpPermission);
    EXPECT_EQ(addFocus(kOne, 0, focus), Status::EX_SECURITY);
    EXPECT_EQ(addTop(kOne, top), Status::EX_SECURITY);
    EXPECT_EQ(told(), Calls());
    EXPECT_EQ(focus->links() + top->links(), 0u);
    const int stranger = std::exchange(mUid, mWorld.user(kReadFocus));
    addFocus(kOne, 0, focus);
    addTop(kOne, top);
    mUid = stranger;
    EXPECT_EQ(removeFocus(kOne, 0), Status::EX_SECURITY);
    EXPECT_EQ(removeTop(kOne), Status::EX_SECURITY);
    EXPECT_EQ(told(), (Calls{"f focus 0", "t top  immersive  0 0 0"}));
}

TEST_F(ListenersTest, TypesOutOfRangeAreRefusedAfterThePermission) {
    for (const int type : {2, -1, 256, INT32_MAX, INT32_MIN}) {
        EXPECT_EQ(addFocus(kOne, type, focusListener("f")), Status::EX_ILLEGAL_ARGUMENT) << type;
        EXPECT_EQ(removeFocus(kOne, type), Status::EX_ILLEGAL_ARGUMENT) << type;
    }
    EXPECT_EQ(told(), Calls());
    EXPECT_EQ(FakeLog::instance().take(), Calls());
    mUid = mWorld.user();
    EXPECT_EQ(addFocus(kOne, 2, focusListener("f")), Status::EX_SECURITY);
    EXPECT_EQ(removeFocus(kOne, 2), Status::EX_SECURITY);
}

TEST_F(ListenersTest, ANullListenerIsRefused) {
    EXPECT_EQ(addFocus(kOne, 0, nullptr), Status::EX_ILLEGAL_ARGUMENT);
    EXPECT_EQ(addTop(kOne, nullptr), Status::EX_ILLEGAL_ARGUMENT);
    EXPECT_EQ(told(), Calls());
}

TEST_F(ListenersTest, ASecondListenerOfAProcessIsRefusedAndTheFirstKept) {
    EXPECT_EQ(addFocus(kOne, 1, focusListener("first")), Status::EX_NONE);
    EXPECT_EQ(addTop(kOne, topListener("top")), Status::EX_NONE);
    FakeLog::instance().take();
    const auto second = focusListener("second");
    EXPECT_EQ(addFocus(kOne, 1, second), Status::EX_ILLEGAL_ARGUMENT);
    EXPECT_EQ(addTop(kOne, topListener("second top")), Status::EX_ILLEGAL_ARGUMENT);
    const std::string line = "E entry for pid 5000001 already exists";
    EXPECT_EQ(FakeLog::instance().take(), (Calls{line, line}));
    EXPECT_EQ(second->links(), 0u);
    // The other type and other processes are free.
    EXPECT_EQ(addFocus(kOne, 0, second), Status::EX_NONE);
    EXPECT_EQ(addFocus(kTwo, 1, focusListener("third")), Status::EX_NONE);
    EXPECT_EQ(told(), (Calls{"second focus 0", "first focus 1", "third focus 1",
                             "top top  immersive  0 0 0"}));
}

TEST_F(ListenersTest, AListenerIsRemovedByItsOwnProcessOnce) {
    addFocus(kOne, 0, focusListener("f"));
    addTop(kOne, topListener("t"));
    FakeLog::instance().take();
    EXPECT_EQ(removeFocus(kTwo, 0), Status::EX_ILLEGAL_ARGUMENT);
    EXPECT_EQ(removeFocus(kOne, 1), Status::EX_ILLEGAL_ARGUMENT);
    EXPECT_EQ(removeTop(kTwo), Status::EX_ILLEGAL_ARGUMENT);
    EXPECT_EQ(FakeLog::instance().take(),
              (Calls{"E can't find specified pid: 5000002", "E can't find specified pid: 5000001",
                     "E can't find specified pid: 5000002"}));
    EXPECT_EQ(told(), (Calls{"f focus 0", "t top  immersive  0 0 0"}));
    EXPECT_EQ(removeFocus(kOne, 0), Status::EX_NONE);
    EXPECT_EQ(removeTop(kOne), Status::EX_NONE);
    EXPECT_EQ(told(), Calls());
    EXPECT_EQ(removeFocus(kOne, 0), Status::EX_ILLEGAL_ARGUMENT);
    EXPECT_EQ(addFocus(kOne, 0, focusListener("again")), Status::EX_NONE);
}

TEST_F(ListenersTest, ListenersAreToldByTypeThenPid) {
    addFocus(kThree, 1, focusListener("c"));
    addFocus(kThree, 0, focusListener("c"));
    addFocus(kOne, 1, focusListener("a"));
    addFocus(kTwo, 0, focusListener("b"));
    addTop(kTwo, topListener("b"));
    addTop(kOne, topListener("a"));
    EXPECT_EQ(told(), (Calls{"b focus 0", "c focus 0", "a focus 1", "c focus 1",
                             "a top  immersive  0 0 0", "b top  immersive  0 0 0"}));
}

TEST_F(ListenersTest, EveryListenerIsLinkedToDeathWithoutCookieAndFlags) {
    class Linked : public FakeFocusListener {
    public:
        using FakeFocusListener::FakeFocusListener;
        android::status_t linkToDeath(const sp<DeathRecipient>& recipient, void* cookie,
                                      uint32_t flags) override {
            recipients.push_back(recipient);
            EXPECT_EQ(cookie, nullptr);
            EXPECT_EQ(flags, 0u);
            return android::DEAD_OBJECT;
        }
        std::vector<sp<DeathRecipient>> recipients;
    };
    const sp<Linked> listener = new Linked("l", mWorld.log);
    EXPECT_EQ(addFocus(kOne, 0, listener), Status::EX_NONE);
    EXPECT_EQ(addFocus(kOne, 1, listener), Status::EX_NONE);
    ASSERT_EQ(listener->recipients.size(), 2u);
    EXPECT_EQ(listener->recipients[0], listener->recipients[1]);
    EXPECT_EQ(told(), (Calls{"l focus 0", "l focus 1"}));
    removeFocus(kOne, 0);
    EXPECT_EQ(listener->recipients.size(), 2u);
}

TEST_F(ListenersTest, ADeathRemovesTheFirstFocusListenerAndTheFirstTopListenerOfThatBinder) {
    const auto twice = focusListener("twice");
    const auto other = focusListener("other");
    const auto top = topListener("top");
    addFocus(kOne, 0, other);
    addFocus(kTwo, 0, twice);
    addFocus(kThree, 0, twice);
    addFocus(kTwo, 1, twice);
    addTop(kTwo, top);
    addTop(kThree, top);
    const auto notices = twice->takeRecipients();
    ASSERT_EQ(notices.size(), 3u);
    EXPECT_EQ(top->takeRecipients(), (decltype(notices){notices[0], notices[0]}));
    const wp<android::IBinder> who(twice.get());
    notices[0]->binderDied(who);
    EXPECT_EQ(told(), (Calls{"other focus 0", "twice focus 0", "twice focus 1",
                             "top top  immersive  0 0 0", "top top  immersive  0 0 0"}));
    notices[0]->binderDied(who);
    notices[0]->binderDied(wp<android::IBinder>(top.get()));
    EXPECT_EQ(told(), (Calls{"other focus 0", "twice focus 1", "top top  immersive  0 0 0"}));
    notices[0]->binderDied(who);
    notices[0]->binderDied(who);
    EXPECT_EQ(told(), (Calls{"other focus 0", "top top  immersive  0 0 0"}));
}

TEST_F(ListenersTest, RegistrationUnregistrationAndDeathOfOneBinderInEveryOrder) {
    const auto other = focusListener("other");
    addFocus(kTwo, 0, other);
    const auto notifier = other->takeRecipients().at(0);
    const struct {
        // R registers for type 0, r for type 1; U and u unregister; D is one death notice.
        const char* order;
        // Per call, whether it succeeded.
        const char* results;
        Calls told;
    } kRows[] = {
            {"RUD", "++", {}},
            {"RDU", "+-", {}},
            {"UR", "-+", {"l focus 0"}},
            {"URD", "-+", {}},
            {"DRU", "++", {}},
            // A notice that comes before a registration has no part in it, one after it has: also
            // the one that was linked for an earlier registration.
            {"DR", "+", {"l focus 0"}},
            {"RDR", "++", {"l focus 0"}},
            {"RURD", "+++", {}},
            {"RURDD", "+++", {}},
            {"RrD", "++", {"l focus 1"}},
            {"RrDU", "++-", {"l focus 1"}},
            {"RrDu", "+++", {}},
            {"RrUD", "+++", {}},
            {"RrDD", "++", {}},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.order);
        const auto listener = focusListener("l");
        std::string results;
        for (const char step : std::string(row.order)) {
            const int type = step == 'r' || step == 'u' ? 1 : 0;
            if (step == 'D') {
                notifier->binderDied(wp<android::IBinder>(listener.get()));
                continue;
            }
            const int exception = step == 'R' || step == 'r' ? addFocus(kOne, type, listener)
                                                             : removeFocus(kOne, type);
            results += exception == Status::EX_NONE ? '+' : '-';
        }
        EXPECT_EQ(results, row.results);
        Calls reached = told();
        std::erase(reached, "other focus 0");
        EXPECT_EQ(reached, row.told);
        removeFocus(kOne, 0);
        removeFocus(kOne, 1);
    }
}

TEST_F(ListenersTest, ADeathRemovesTheFocusListenerAndTheTopListenerThatAreOneBinder) {
    const auto listener = focusListener("both");
    addFocus(kOne, 0, listener);
    {
        // Nothing on the wire keeps a process from it.
        const CallAs caller(mUid, kOne);
        bool result = false;
        mWorld.service->registerVrTopActivityListener(
                android::interface_cast<velmar::internal::IVrTopActivityListener>(
                        sp<android::IBinder>(listener)),
                &result);
        EXPECT_TRUE(result);
    }
    listener->takeRecipients().at(0)->binderDied(wp<android::IBinder>(listener.get()));
    EXPECT_EQ(removeFocus(kOne, 0), Status::EX_ILLEGAL_ARGUMENT);
    EXPECT_EQ(removeTop(kOne), Status::EX_ILLEGAL_ARGUMENT);
}

TEST_F(ListenersTest, AFailingListenerDoesNotKeepTheOthersFromBeingTold) {
    const auto failing = focusListener("failing");
    const auto failingTop = topListener("failing");
    failing->status = Status::fromStatusT(android::DEAD_OBJECT);
    failingTop->status = Status::fromExceptionCode(Status::EX_ILLEGAL_STATE);
    addFocus(kOne, 0, failing);
    addFocus(kTwo, 0, focusListener("next"));
    addTop(kOne, failingTop);
    addTop(kTwo, topListener("next"));
    const Calls everyone = {"failing focus 0", "next focus 0", "failing top  immersive  0 0 0",
                            "next top  immersive  0 0 0"};
    EXPECT_EQ(told(), everyone);
    EXPECT_EQ(told(), everyone);
}

TEST_F(ListenersTest, BothNoticesOfTheTrackerRunTheFullNotification) {
    addFocus(kOne, 1, focusListener("f"));
    addTop(kOne, topListener("t"));
    mWorld.policy->topActivity = String16("com.top");
    mWorld.chooseApp("com.game", /*pid=*/7, /*uid=*/8);
    const std::function<void()> notices[] = {
            [&] { mWorld.activity->observer()->onForegroundActivitiesChanged(1, 2, true); },
            [&] { mWorld.window->observer()->onFocusedWindowChanged(nullptr, 2, 1); },
    };
    for (const auto& notice : notices) {
        mWorld.log->take();
        mWorld.helper->calls.take();
        notice();
        EXPECT_EQ(mWorld.log->take(),
                  (Calls{"f focus 1", "topActivity", "immersiveApp",
                         "t top com.top immersive com.game 7 8 1", "topActivity"}));
        EXPECT_EQ(mWorld.helper->calls.take(), (Calls{"top com.top", "immersive com.game"}));
    }
}

TEST_F(ListenersTest, AnAppStateRunsTheTopActivityHalfOnly) {
    addFocus(kOne, 0, focusListener("f"));
    addTop(kOne, topListener("t"));
    FakeProcessTable::instance().set(kOne, mUid, "com.game");
    mWorld.log->take();
    const CallAs caller(mUid, kOne);
    for (const int state : {0, 2}) {
        EXPECT_TRUE(mWorld.service->setAppState(kOne, state).isOk());
        EXPECT_EQ(mWorld.log->take(),
                  (Calls{"topActivity", "immersiveApp", "t top  immersive  0 0 0", "topActivity",
                         // The report's questions, after the notification's.
                         "immersiveApp", "topActivity"}));
    }
}

TEST_F(ListenersTest, TheHelperHearsOfNoImmersiveAppAsAbsentAndOfNoTopActivityAsEmpty) {
    mWorld.helper->calls.take();
    mWorld.tracker->activityStateCallback();
    EXPECT_EQ(mWorld.helper->calls.take(), (Calls{"top ", "immersive (none)"}));
    mWorld.policy->immersiveApp.emplace();
    mWorld.tracker->activityStateCallback();
    EXPECT_EQ(mWorld.helper->calls.take(), (Calls{"top ", "immersive "}));
}

TEST_F(ListenersTest, TheHelperGetsASecondTopActivityListenersTheFirst) {
    addTop(kOne, topListener("t"));
    mWorld.policy->onTopActivityAsked = [this, asked = 0]() mutable {
        mWorld.policy->topActivity = String16(++asked == 1 ? "com.first" : "com.second");
    };
    EXPECT_EQ(told(), (Calls{"t top com.first immersive  0 0 0"}));
    EXPECT_EQ(mWorld.helper->calls.take(), (Calls{"top com.second", "immersive (none)"}));
}

TEST_F(ListenersTest, ANewServiceTakesTheTrackersCallbacksOver) {
    addFocus(kOne, 0, focusListener("old"));
    const sp<VrFocusService> old = mWorld.service;
    mWorld.service = new VrFocusService(mWorld.tracker, mWorld.policy);
    addFocus(kOne, 0, focusListener("new"));
    EXPECT_EQ(told(), (Calls{"new focus 0"}));
    mWorld.tracker->activityStateCallback();
    EXPECT_EQ(mWorld.log->take().at(0), "new focus 0");
}

TEST_F(ListenersTest, ALateNoticeFindsNobodyOnceTheServiceIsGone) {
    const auto listener = focusListener("f");
    addFocus(kOne, 0, listener);
    const auto notices = listener->takeRecipients();
    ASSERT_EQ(notices.size(), 1u);
    const wp<VrFocusService> gone(mWorld.service);
    mWorld.service.clear();
    ASSERT_EQ(gone.promote(), nullptr);
    EXPECT_EQ(told(), Calls());
    mWorld.tracker->activityStateCallback();
    notices[0]->binderDied(wp<android::IBinder>(listener.get()));
    EXPECT_EQ(mWorld.log->take(), Calls());
    EXPECT_EQ(mWorld.helper->calls.take(), Calls());
}

TEST_F(ListenersTest, RegistrationsDeathsNoticesAndDumpsMixOnAnyThread) {
    constexpr int kRounds = 300;
    mUid = mWorld.user(kReadFocus, kDumpPermission);
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([this, pid = kOne + i] {
            const CallAs caller(mUid, pid);
            for (int round = 0; round < kRounds; ++round) {
                bool result = false;
                const auto listener = focusListener("f");
                mWorld.service->registerVrFocusListener(listener, round % 2, &result);
                EXPECT_TRUE(result);
                if (round % 3 != 0) {
                    listener->die();
                } else {
                    mWorld.service->unregisterVrFocusListener(round % 2, &result);
                    EXPECT_TRUE(result);
                }
            }
        });
    }
    threads.emplace_back([this] {
        for (int round = 0; round < kRounds; ++round)
            mWorld.tracker->activityStateCallback();
    });
    threads.emplace_back([this] {
        const CallAs caller(mUid, kOne);
        android::Vector<String16> json;
        json.push_back(String16("json"));
        for (int round = 0; round < kRounds; ++round) {
            const std::string text = dumpText([&](int fd) {
                EXPECT_EQ(mWorld.service->dump(fd, round % 2 == 0 ? json : decltype(json)()), 0);
            });
            EXPECT_FALSE(text.empty());
        }
    });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(told(), Calls());
}

}  // namespace
}  // namespace NQS::OS

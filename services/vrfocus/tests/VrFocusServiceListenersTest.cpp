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

TEST_F(ListenersTest, NullListenersAndTypesOutOfRangeAreRefusedAfterThePermission) {
    const int reader = mUid, stranger = mWorld.user();
    for (const int uid : {reader, stranger}) {
        const int expected = uid == reader ? Status::EX_ILLEGAL_ARGUMENT : Status::EX_SECURITY;
        mUid = uid;
        for (const int type : {2, -1, 256, INT32_MAX, INT32_MIN}) {
            EXPECT_EQ(addFocus(kOne, type, focusListener("f")), expected) << type;
            EXPECT_EQ(removeFocus(kOne, type), expected) << type;
        }
        EXPECT_EQ(addFocus(kOne, 0, nullptr), expected);
        EXPECT_EQ(addTop(kOne, nullptr), expected);
    }
    EXPECT_EQ(told(), Calls());
    EXPECT_EQ(fakeLog().take(), Calls());
}

TEST_F(ListenersTest, ASecondListenerOfAProcessIsRefusedAndTheFirstKept) {
    EXPECT_EQ(addFocus(kOne, 1, focusListener("first")), Status::EX_NONE);
    EXPECT_EQ(addTop(kOne, topListener("top")), Status::EX_NONE);
    fakeLog().take();
    const auto second = focusListener("second");
    EXPECT_EQ(addFocus(kOne, 1, second), Status::EX_ILLEGAL_ARGUMENT);
    EXPECT_EQ(addTop(kOne, topListener("second top")), Status::EX_ILLEGAL_ARGUMENT);
    const std::string line = "E entry for pid 5000001 already exists";
    EXPECT_EQ(fakeLog().take(), (Calls{line, line}));
    EXPECT_EQ(second->links(), 0u);
    // The other type and other processes are free.
    EXPECT_EQ(addFocus(kOne, 0, second), Status::EX_NONE);
    EXPECT_EQ(addFocus(kTwo, 1, focusListener("third")), Status::EX_NONE);
    EXPECT_EQ(addFocus(kTwo - 2, 0, focusListener("fourth")), Status::EX_NONE);
    EXPECT_EQ(addTop(kTwo - 2, topListener("fourth")), Status::EX_NONE);
    // By type, then by pid.
    EXPECT_EQ(told(), (Calls{"fourth focus 0", "second focus 0", "first focus 1", "third focus 1",
                             "fourth top  immersive  0 0 0", "top top  immersive  0 0 0"}));
}

TEST_F(ListenersTest, AListenerIsRemovedByItsOwnProcessOnce) {
    addFocus(kOne, 0, focusListener("f"));
    addTop(kOne, topListener("t"));
    fakeLog().take();
    EXPECT_EQ(removeFocus(kTwo, 0), Status::EX_ILLEGAL_ARGUMENT);
    EXPECT_EQ(removeFocus(kOne, 1), Status::EX_ILLEGAL_ARGUMENT);
    EXPECT_EQ(removeTop(kTwo), Status::EX_ILLEGAL_ARGUMENT);
    EXPECT_EQ(fakeLog().take(),
              (Calls{"E can't find specified pid: 5000002", "E can't find specified pid: 5000001",
                     "E can't find specified pid: 5000002"}));
    EXPECT_EQ(told(), (Calls{"f focus 0", "t top  immersive  0 0 0"}));
    EXPECT_EQ(removeFocus(kOne, 0), Status::EX_NONE);
    EXPECT_EQ(removeTop(kOne), Status::EX_NONE);
    EXPECT_EQ(told(), Calls());
    EXPECT_EQ(removeFocus(kOne, 0), Status::EX_ILLEGAL_ARGUMENT);
    EXPECT_EQ(addFocus(kOne, 0, focusListener("again")), Status::EX_NONE);
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

TEST_F(ListenersTest, ABinderThatIsDeadAlreadyIsRegisteredAndOneNoticeTakesBothItsKinds) {
    const auto listener = focusListener("both");
    listener->linkAnswer = android::DEAD_OBJECT;
    EXPECT_EQ(addFocus(kOne, 0, listener), Status::EX_NONE);
    EXPECT_EQ(called(kOne,
                     [&](bool* result) {
                         // Nothing on the wire keeps a process from it.
                         return mWorld.service->registerVrTopActivityListener(
                                 android::interface_cast<velmar::internal::IVrTopActivityListener>(
                                         sp<android::IBinder>(listener)),
                                 result);
                     }),
              Status::EX_NONE);
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

TEST_F(ListenersTest, AnAppStateRunsTheTopActivityHalfAndTheHelperGetsASecondTopActivity) {
    addFocus(kOne, 0, focusListener("f"));
    addTop(kOne, topListener("t"));
    mWorld.processes.set(kOne, mUid, "com.game");
    mWorld.policy->onTopActivityAsked = [this, asked = 0]() mutable {
        mWorld.policy->topActivity = String16(asked++ % 3 == 0 ? "com.first" : "com.second");
    };
    const CallAs caller(mUid, kOne);
    for (const int state : {0, 2}) {
        mWorld.log->take();
        EXPECT_TRUE(mWorld.service->setAppState(kOne, state).isOk());
        EXPECT_EQ(mWorld.log->take(),
                  (Calls{"topActivity", "immersiveApp", "t top com.first immersive  0 0 0",
                         // The helper's question; then the report's, after the notification's.
                         "topActivity", "immersiveApp", "topActivity"}));
        EXPECT_EQ(mWorld.helper->calls.take(), (Calls{"top com.second", "immersive (none)"}));
    }
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

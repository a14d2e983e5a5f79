// SPDX-License-Identifier: Apache-2.0
//
// Interleavings: two things that happen to the service at once, in an order that is forced.
//
// One thread runs an act and stops at a gate on its way: in a listener, the helper, the policy, a
// death link, a full pipe. Then another thread runs a second act, of every kind:
//
//      at the gate the listeners are locked    the second is seen to wait until the gate is open
//      at the gate they are not                the second comes to its end at the gate
//
// Afterwards both have come out as ever, and the next notice reaches whom it should.
//
// What these tests cannot see: an access without the lock at a moment that has no gate. That is for
// the thread sanitizer, over the mix of threads in the tests of the listeners.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Gate.h"
#include "Scene.h"
#include "WatchedCall.h"

namespace NQS::OS {
namespace {

using android::wp;
using Act = Scene::Act;
using Lines = std::vector<std::string>;

enum class At { Locked, Free, FullPipe };

/** An act that stops on its way: at that arrival at the place where `stop` is run. */
struct First {
    const char* name;
    At at;
    int arrival;
    std::function<Act(Scene&, const Hook& stop)> make;
};

/** The notice of the tracker, with a gate where that hook is run. */
auto noticeStoppedIn(Hook& (*hook)(Scene&)) {
    return [hook](Scene& s, const Hook& stop) {
        hook(s) = stop;
        return s.notice();
    };
}
Hook& policyAsked(Scene& s) {
    return s.policy->onTopActivityAsked;
}

/** Registers a listener that nobody but the registry holds; returns its death. */
Act addOther(Scene& scene, const Hook& onReleased) {
    const auto other = scene.listener("other");
    EXPECT_EQ(scene.add(Scene::kOther, other)(), "0 true");
    other->onReleased = onReleased;
    return scene.death(other);
}

const First kFirsts[] = {
        {"NoticeTellingAFocusListener", At::Locked, 1,
         noticeStoppedIn([](Scene& s) -> Hook& { return s.first->onCalled; })},
        {"NoticeAskingThePolicyForTheListeners", At::Free, 1, noticeStoppedIn(policyAsked)},
        {"NoticeTellingATopActivityListener", At::Locked, 1,
         noticeStoppedIn([](Scene& s) -> Hook& { return s.firstTop->onCalled; })},
        {"NoticeAskingThePolicyForTheHelper", At::Locked, 2, noticeStoppedIn(policyAsked)},
        {"NoticeTellingTheHelper", At::Locked, 1,
         noticeStoppedIn([](Scene& s) -> Hook& { return s.helper->onCalled; })},
        {"AppStateAskingThePolicyForTheReport", At::Free, 3,
         [](Scene& s, const Hook& stop) {
             policyAsked(s) = stop;
             return s.appState();
         }},
        {"RegistrationAskingForThePermission", At::Free, 1,
         [](Scene& s, const Hook& stop) {
             const int stranger = s.user(kReadFocus);
             s.permission->world.access([&](FakePermissionController::World& world) {
                 world.onPermission = [stop, stranger](int asked) {
                     if (asked == stranger) stop();
                 };
             });
             return s.add(stranger, Scene::kOther, s.listener("other"));
         }},
        {"RegistrationLinkingToDeath", At::Locked, 1,
         [](Scene& s, const Hook& stop) {
             const auto other = s.listener("other");
             other->onLinked = stop;
             return s.add(Scene::kOther, other);
         }},
        {"TopActivityRegistrationLinkingToDeath", At::Locked, 1,
         [](Scene& s, const Hook& stop) {
             const auto other = s.topListener("other");
             other->onLinked = stop;
             return s.addTop(Scene::kOther, other);
         }},
        {"UnregistrationReleasingTheListener", At::Locked, 1,
         [](Scene& s, const Hook& stop) {
             addOther(s, stop);
             return s.remove(Scene::kOther);
         }},
        {"DeathReleasingTheListener", At::Locked, 1, addOther},
        {"TextDumpInThePolicy", At::Locked, 1,
         [](Scene& s, const Hook& stop) {
             s.policy->onDump = stop;
             return s.dump("-a");
         }},
        {"JsonDumpInThePolicy", At::Locked, 1,
         [](Scene& s, const Hook& stop) {
             s.policy->onDump = stop;
             return s.dump("json");
         }},
        {"DumpIntoAFullPipe", At::FullPipe, 1, [](Scene& s, const Hook&) { return s.dump("-a"); }},
};

struct Second {
    const char* name;
    bool locks;
    std::function<Act(Scene&)> make;
    std::string result;
    /** Whom a notice reaches afterwards, whatever the first act was. */
    Lines told;
};

const Lines kEverybody = {"first", "second", "first top", "second top"};

const Second kSeconds[] = {
        {"notice", true, [](auto& s) { return s.notice(); }, "noticed", kEverybody},
        {"app state", true, [](auto& s) { return s.appState(); }, "0 false", kEverybody},
        {"registration",
         true,
         [](auto& s) { return s.add(Scene::kNew, s.listener("new")); },
         "0 true",
         {"first", "second", "new", "first top", "second top"}},
        {"top activity registration",
         true,
         [](auto& s) { return s.addTop(Scene::kNew, s.topListener("new")); },
         "0 true",
         {"first", "second", "first top", "second top", "new top"}},
        {"unregistration",
         true,
         [](auto& s) { return s.remove(Scene::kSecond); },
         "0 true",
         {"first", "first top", "second top"}},
        {"top activity unregistration",
         true,
         [](auto& s) { return s.removeTop(Scene::kSecond); },
         "0 true",
         {"first", "second", "first top"}},
        {"death",
         true,
         [](auto& s) { return s.death(s.second); },
         "died",
         {"first", "first top", "second top"}},
        {"death of a top activity listener",
         true,
         [](auto& s) { return s.death(s.secondTop); },
         "died",
         {"first", "second", "first top"}},
        {"queries", false, [](auto& s) { return s.queries(); }, "0 false", kEverybody},
        {"end of the service",
         false,
         [](Scene& s) {
             return [&s] {
                 s.service.clear();
                 return "let go";
             };
         },
         "let go",
         {}},
};

class InterleavingsTest : public testing::TestWithParam<First> {
protected:
    static void run(const First& first, const Second& second) {
        Gate gate(first.arrival);
        Scene scene;
        const wp<VrFocusService> service(scene.service);
        std::string result;
        {
            const Act secondAct = second.make(scene);
            const Act firstAct = first.make(scene, [&] { gate.pass(); });
            if (first.at == At::FullPipe) scene.fillPipe();
            const int pipe = scene.writer.get();
            WatchedCall one([&] {
                gate.stopThisThread();
                const std::string done = firstAct();
                EXPECT_TRUE(done.starts_with("0 ") || done.ends_with("ed")) << done;
            });
            EXPECT_TRUE(first.at == At::FullPipe ? one.writesTo(pipe) : gate.awaitArrival());
            WatchedCall two([&] { result = secondAct(); });
            EXPECT_TRUE(second.locks && first.at == At::Locked ? two.waitsIn(*scene.service)
                                                               : two.ends());
            gate.open();
            const std::string piped = first.at == At::FullPipe ? scene.readPipe() : "(policy,";
            EXPECT_NE(piped.find("(policy,"), std::string::npos);
        }
        EXPECT_EQ(result, second.result);
        EXPECT_EQ(scene.told(), second.told);
        scene.service.clear();
        EXPECT_EQ(service.promote(), nullptr);
    }
};

TEST_P(InterleavingsTest, WhateverNeedsTheListenersWaitsWhileTheyAreLockedAndNothingElse) {
    for (const Second& second : kSeconds) {
        SCOPED_TRACE(second.name);
        run(GetParam(), second);
        // A gate that is waited for in vain takes its whole patience: once is enough.
        if (HasFailure()) return;
    }
}

INSTANTIATE_TEST_SUITE_P(First, InterleavingsTest, testing::ValuesIn(kFirsts),
                         [](const auto& info) { return info.param.name; });

TEST(InterleavingsOfOneListenerTest, DumpsWaitWhileListenersAreToldButNotWithAWrongArgument) {
    for (const char* argument : {"-a", "json", "-b"}) {
        Gate gate;
        Scene scene;
        scene.first->onCalled = [&] { gate.pass(); };
        WatchedCall notice([&] {
            gate.stopThisThread();
            scene.tracker->windowFocusCallback();
        });
        EXPECT_TRUE(gate.awaitArrival());
        const Act act = scene.dump(argument);
        WatchedCall dump([&] { act(); });
        EXPECT_TRUE(std::string(argument) == "-b" ? dump.ends() : dump.waitsIn(*scene.service));
        gate.open();
    }
}

/** Registers the listener, which dies once it is linked and before its registration is over. */
template <typename Listener>
void dieWhileRegistering(Scene& scene, const android::sp<Listener>& listener, const Act& add) {
    const auto gate = std::make_shared<Gate>();
    listener->onLinked = [gate] { gate->pass(); };
    {
        WatchedCall registration([&] {
            gate->stopThisThread();
            EXPECT_EQ(add(), "0 true");
        });
        EXPECT_TRUE(gate->awaitArrival());
        WatchedCall dying(scene.death(listener));
        EXPECT_TRUE(dying.waitsIn(*scene.service));
        gate->open();
    }
    EXPECT_EQ(scene.told(), kEverybody);
}

TEST(InterleavingsOfOneListenerTest, OneThatDiesBeforeItsRegistrationIsOverIsRemovedAfterwards) {
    Scene scene;
    const auto focus = scene.listener("new");
    dieWhileRegistering(scene, focus, scene.add(Scene::kNew, focus));
    const auto top = scene.topListener("new");
    dieWhileRegistering(scene, top, scene.addTop(Scene::kNew, top));
}

}  // namespace
}  // namespace NQS::OS

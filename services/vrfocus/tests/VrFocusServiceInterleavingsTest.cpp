// SPDX-License-Identifier: Apache-2.0
//
// Interleavings: two things that happen to the service at once, in an order that is forced.
//
// One thread runs an act and stops at a gate on its way: in a listener, the helper, the policy, a
// death link, a full pipe. Then another thread runs a second act, of every kind:
//
//      at the gate the listeners are locked    the second is seen to wait, and once the gate is
//                                              open, all comes out as if it had begun afterwards
//      at the gate they are not                the second comes to its end at the gate, and all
//                                              comes out as if one thread had done both there
//
// What comes out: the results of both, what listeners and helper were told in which order, and whom
// the next notice reaches. A table of all firsts with all seconds, then what has more than two in
// it or a moment of its own.
//
// What these tests cannot see: an access without the lock at a moment that has no gate. That is for
// the thread sanitizer, over the mix of threads in the tests of the listeners.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Gate.h"
#include "Scene.h"
#include "WatchedCall.h"

namespace NQS::OS {
namespace {

using android::wp;
using Act = Scene::Act;
using Lines = std::vector<std::string>;

/** Run where an act stops. */
using Hook = std::function<void()>;

enum class At {
    Locked,
    /** The lock is let go of before the act's end, with more to come: `land` is run there. */
    LockedAtFirst,
    Free,
    FullPipe,
};

/** An act that stops on its way: at that arrival at the place where `stop` is run. */
struct First {
    const char* name;
    At at;
    int arrival;
    std::function<Act(Scene&, const Hook& stop, const Hook& land)> make;
};

struct Second {
    const char* name;
    bool locks;
    std::function<Act(Scene&)> make;
    /** Whom a notice reaches afterwards, whatever the first act was. */
    Lines told;
};

/** A listener that nobody but the registry holds; returns its death. */
Act addOther(Scene& scene, const Hook& onReleased) {
    const auto other = scene.listener("other");
    EXPECT_EQ(scene.add(Scene::kOther, other)(), "0 true");
    other->onReleased = onReleased;
    return scene.death(other);
}

const First kFirsts[] = {
        {"NoticeTellingAFocusListener", At::LockedAtFirst, 1,
         [](Scene& s, const Hook& stop, const Hook& land) {
             s.first->onCalled = stop;
             s.policy->onTopActivityAsked = land;
             return s.notice();
         }},
        {"NoticeAskingThePolicyForTheListeners", At::Free, 1,
         [](Scene& s, const Hook& stop, const Hook&) {
             s.policy->onTopActivityAsked = stop;
             return s.notice();
         }},
        {"NoticeTellingATopActivityListener", At::Locked, 1,
         [](Scene& s, const Hook& stop, const Hook&) {
             s.firstTop->onCalled = stop;
             return s.notice();
         }},
        {"NoticeAskingThePolicyForTheHelper", At::Locked, 2,
         [](Scene& s, const Hook& stop, const Hook&) {
             s.policy->onTopActivityAsked = stop;
             return s.notice();
         }},
        {"NoticeTellingTheHelper", At::Locked, 1,
         [](Scene& s, const Hook& stop, const Hook&) {
             s.helper->onCalled = stop;
             return s.notice();
         }},
        {"AppStateTellingATopActivityListener", At::Locked, 1,
         [](Scene& s, const Hook& stop, const Hook&) {
             s.firstTop->onCalled = stop;
             return s.appState();
         }},
        {"AppStateAskingThePolicyForTheReport", At::Free, 3,
         [](Scene& s, const Hook& stop, const Hook&) {
             s.policy->onTopActivityAsked = stop;
             return s.appState();
         }},
        {"RegistrationAskingForThePermission", At::Free, 1,
         [](Scene& s, const Hook& stop, const Hook&) {
             const int stranger = s.user(kReadFocus);
             s.permission->world.access([&](FakePermissionController::World& world) {
                 world.onPermission = [stop, stranger](int asked) {
                     if (asked == stranger) stop();
                 };
             });
             return s.add(stranger, Scene::kOther, s.listener("other"));
         }},
        {"RegistrationLinkingToDeath", At::Locked, 1,
         [](Scene& s, const Hook& stop, const Hook&) {
             const auto other = s.listener("other");
             other->onLinked = stop;
             return s.add(Scene::kOther, other);
         }},
        {"TopActivityRegistrationLinkingToDeath", At::Locked, 1,
         [](Scene& s, const Hook& stop, const Hook&) {
             const auto other = s.topListener("other");
             other->onLinked = stop;
             return s.addTop(Scene::kOther, other);
         }},
        {"UnregistrationReleasingTheListener", At::Locked, 1,
         [](Scene& s, const Hook& stop, const Hook&) {
             addOther(s, stop);
             return s.remove(Scene::kOther);
         }},
        {"DeathReleasingTheListener", At::Locked, 1,
         [](Scene& s, const Hook& stop, const Hook&) { return addOther(s, stop); }},
        {"TextDumpInThePolicy", At::Locked, 1,
         [](Scene& s, const Hook& stop, const Hook&) {
             s.policy->onDump = stop;
             return s.dump("-a");
         }},
        {"JsonDumpInThePolicy", At::Locked, 1,
         [](Scene& s, const Hook& stop, const Hook&) {
             s.policy->onDump = stop;
             return s.dump("json");
         }},
        {"TextDumpIntoAFullPipe", At::FullPipe, 1,
         [](Scene& s, const Hook&, const Hook&) { return s.dumpIntoPipe("-a"); }},
        {"JsonDumpIntoAFullPipe", At::FullPipe, 1,
         [](Scene& s, const Hook&, const Hook&) { return s.dumpIntoPipe("json"); }},
};

const Lines kEverybody = {"first", "second", "first top", "second top"};

const Second kSeconds[] = {
        {"notice", true, [](Scene& s) { return s.notice(); }, kEverybody},
        {"app state", true, [](Scene& s) { return s.appState(); }, kEverybody},
        {"registration",
         true,
         [](Scene& s) { return s.add(Scene::kNew, s.listener("new")); },
         {"first", "second", "new", "first top", "second top"}},
        {"top activity registration",
         true,
         [](Scene& s) { return s.addTop(Scene::kNew, s.topListener("new")); },
         {"first", "second", "first top", "second top", "new top"}},
        {"registration of a process that has one", true,
         [](Scene& s) { return s.add(Scene::kSecond, s.listener("again")); }, kEverybody},
        {"unregistration",
         true,
         [](Scene& s) { return s.remove(Scene::kSecond); },
         {"first", "first top", "second top"}},
        {"top activity unregistration",
         true,
         [](Scene& s) { return s.removeTop(Scene::kSecond); },
         {"first", "second", "first top"}},
        {"death",
         true,
         [](Scene& s) { return s.death(s.second); },
         {"first", "first top", "second top"}},
        {"death of a top activity listener",
         true,
         [](Scene& s) { return s.death(s.secondTop); },
         {"first", "second", "first top"}},
        {"text dump", true, [](Scene& s) { return s.dump("-a"); }, kEverybody},
        {"JSON dump", true, [](Scene& s) { return s.dump("json"); }, kEverybody},
        {"dump with a wrong argument", false, [](Scene& s) { return s.dump("-b"); }, kEverybody},
        {"queries", false, [](Scene& s) { return s.queries(); }, kEverybody},
        {"end of the service",
         false,
         [](Scene& s) {
             return [&s] {
                 s.service.clear();
                 return "let go";
             };
         },
         {}},
};

struct Outcome {
    std::string first;
    std::string second;
    std::string piped;
    Lines lines;

    bool operator==(const Outcome&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Outcome& outcome) {
    return out << testing::PrintToString(outcome.first) << ", "
               << testing::PrintToString(outcome.second) << ", "
               << testing::PrintToString(outcome.piped) << ", "
               << testing::PrintToString(outcome.lines);
}

class InterleavingsTest : public testing::TestWithParam<First> {
protected:
    /** The acts in turn, or the second in the midst of the first, on one thread. */
    static Outcome runOnOneThread(const First& first, const Second& second) {
        Outcome outcome;
        Scene scene;
        const Act secondAct = second.make(scene);
        const auto insert = [&](int number) -> Hook {
            return [&, number, arrivals = 0]() mutable {
                if (++arrivals == number) outcome.second = secondAct();
            };
        };
        const Hook nothing = [] {};
        const bool isAtStop = first.at == At::Free || (first.at != At::FullPipe && !second.locks);
        const bool isAtLanding = first.at == At::LockedAtFirst && !isAtStop;
        const Act firstAct = first.make(scene, isAtStop ? insert(first.arrival) : nothing,
                                        isAtLanding ? insert(1) : nothing);
        outcome.first = firstAct();
        if (!isAtStop && !isAtLanding) outcome.second = secondAct();
        outcome.piped = first.at == At::FullPipe ? scene.readPipe() : "";
        outcome.lines = scene.outcome();
        return outcome;
    }

    /** The same on two threads, held at the gates. Then checks whom the next notice reaches. */
    static Outcome runOnTwoThreads(const First& first, const Second& second) {
        Outcome outcome;
        Gate gate(first.arrival), landing;
        Scene scene;
        const wp<VrFocusService> service(scene.service);
        const bool waits =
                second.locks && (first.at == At::Locked || first.at == At::LockedAtFirst);
        {
            const Act secondAct = second.make(scene);
            const Act firstAct = first.make(
                    scene, [&] { gate.pass(); }, [&] { landing.pass(); });
            if (first.at == At::FullPipe) scene.fillPipe();
            const int pipe = scene.writer.get();
            WatchedCall one([&] {
                gate.stopThisThread();
                landing.stopThisThread();
                outcome.first = firstAct();
            });
            EXPECT_TRUE(first.at == At::FullPipe ? one.writesTo(pipe) : gate.awaitArrival());
            WatchedCall two([&] { outcome.second = secondAct(); });
            EXPECT_TRUE(waits ? two.waitsIn(*scene.service) : two.ends());
            gate.open();
            if (first.at == At::LockedAtFirst) {
                EXPECT_TRUE(landing.awaitArrival());
                EXPECT_TRUE(two.ends());
                landing.open();
            }
            if (first.at == At::FullPipe) outcome.piped = scene.readPipe();
        }
        outcome.lines = scene.outcome();
        EXPECT_EQ(scene.told(), second.told);
        scene.service.clear();
        EXPECT_EQ(service.promote(), nullptr);
        return outcome;
    }
};

TEST_P(InterleavingsTest, WhateverNeedsTheListenersWaitsWhileTheyAreLockedAndNothingElse) {
    for (const Second& second : kSeconds) {
        SCOPED_TRACE(second.name);
        EXPECT_EQ(runOnTwoThreads(GetParam(), second), runOnOneThread(GetParam(), second));
        // A gate that is waited for in vain takes its whole patience: once is enough.
        if (HasFailure()) return;
    }
}

INSTANTIATE_TEST_SUITE_P(First, InterleavingsTest, testing::ValuesIn(kFirsts),
                         [](const auto& info) { return info.param.name; });

/** A notice that stops at `gate`, where `stop` puts it, and again before it asks the policy. */
class StoppedNotice {
public:
    StoppedNotice(Scene& scene, Hook& hook) : mNotice(start(scene, hook)) {}
    ~StoppedNotice() {
        gate->open();
        landing->open();
    }

    // Shared with the hooks, which stay behind.
    const std::shared_ptr<Gate> gate = std::make_shared<Gate>();
    const std::shared_ptr<Gate> landing = std::make_shared<Gate>();

private:
    std::function<void()> start(Scene& scene, Hook& hook) {
        hook = [gate = gate] { gate->pass(); };
        scene.policy->onTopActivityAsked = [landing = landing] { landing->pass(); };
        return [this, notice = scene.notice()] {
            gate->stopThisThread();
            landing->stopThisThread();
            notice();
        };
    }

    WatchedCall mNotice;
};

TEST(InterleavingsOfThreeTest, ListenerThatLeavesWhileItIsToldIsKeptUntilThePassIsOver) {
    for (const bool dies : {true, false}) {
        Scene scene;
        auto listener = scene.listener("other");
        const wp<FakeFocusListener> kept(listener);
        EXPECT_EQ(scene.add(Scene::kOther, listener)(), "0 true");
        const Act leave = dies ? scene.death(listener) : scene.remove(Scene::kOther);
        Hook& hook = listener->onCalled;
        listener.clear();
        {
            StoppedNotice notice(scene, hook);
            EXPECT_TRUE(notice.gate->awaitArrival());
            WatchedCall leaving(leave);
            EXPECT_TRUE(leaving.waitsIn(*scene.service));
            EXPECT_NE(kept.promote(), nullptr);
            notice.gate->open();
            EXPECT_TRUE(notice.landing->awaitArrival());
            EXPECT_TRUE(leaving.ends());
            EXPECT_EQ(kept.promote(), nullptr);
            notice.landing->open();
        }
        EXPECT_EQ(scene.told(), kEverybody);
    }
}

TEST(InterleavingsOfThreeTest, DeathThatWaitsForAPassMayEndAfterTheOwnersLastReference) {
    Scene scene;
    const wp<VrFocusService> service(scene.service);
    const Act death = scene.death(scene.second);
    {
        StoppedNotice notice(scene, scene.first->onCalled);
        EXPECT_TRUE(notice.gate->awaitArrival());
        WatchedCall dying(death);
        EXPECT_TRUE(dying.waitsIn(*scene.service));
        scene.service.clear();
        EXPECT_NE(service.promote(), nullptr);
        notice.gate->open();
        EXPECT_TRUE(notice.landing->awaitArrival());
        EXPECT_TRUE(dying.ends());
        EXPECT_NE(service.promote(), nullptr) << "the notice is still under way";
        notice.landing->open();
    }
    EXPECT_EQ(service.promote(), nullptr);
    EXPECT_EQ(scene.outcome(),
              (Lines{"first focus 0", "second focus 0", "first top  immersive  0 0 0",
                     "second top  immersive  0 0 0", "helper top ", "helper immersive (none)"}));
    EXPECT_EQ(scene.told(), Lines());
}

/** Registers the listener, which dies once it is linked and before its registration is over. */
template <typename Listener>
void dieWhileRegistering(Scene& scene, const android::sp<Listener>& listener, const Act& add) {
    const auto gate = std::make_shared<Gate>();
    listener->onLinked = [gate] { gate->pass(); };
    std::string result;
    {
        WatchedCall registration([&] {
            gate->stopThisThread();
            result = add();
        });
        EXPECT_TRUE(gate->awaitArrival());
        WatchedCall dying(scene.death(listener));
        EXPECT_TRUE(dying.waitsIn(*scene.service));
        gate->open();
    }
    EXPECT_EQ(result, "0 true");
    EXPECT_EQ(scene.told(), kEverybody);
}

TEST(InterleavingsOfThreeTest, ListenerThatDiesBeforeItsRegistrationIsOverIsRemovedAfterwards) {
    Scene scene;
    const auto focus = scene.listener("new");
    dieWhileRegistering(scene, focus, scene.add(Scene::kNew, focus));
    const auto top = scene.topListener("new");
    dieWhileRegistering(scene, top, scene.addTop(Scene::kNew, top));
}

}  // namespace
}  // namespace NQS::OS

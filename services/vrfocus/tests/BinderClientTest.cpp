// SPDX-License-Identifier: Apache-2.0
//
// The service connection: looking up, connecting, dying, and being destroyed at any moment.
//
// Intervals are either so short that waiting costs nothing, or so long that only a lookup without
// a wait, or an interrupted wait, lets a test end.
#include "BinderClient.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "FakeServiceManager.h"
#include "FakeServices.h"
#include "FakeSystem.h"
#include "Signal.h"
#include "WatchedCall.h"

namespace NQS::OS {
namespace {

using android::IBinder;
using android::sp;
using velmar::internal::IVrFocusHelper;
using Client = BinderClient<IVrFocusHelper>;
using Lines = std::vector<std::string>;

constexpr char kName[] = "vrfocushelper";
constexpr std::chrono::milliseconds kShort{1};
constexpr std::chrono::milliseconds kForever = std::chrono::hours(1);

class BinderClientTest : public testing::Test {
protected:
    BinderClientTest() { fakeLog().take(); }

    void makeClient(std::chrono::milliseconds interval) {
        client = std::make_unique<Client>(
                kName, interval,
                [this](const sp<IVrFocusHelper>& service) {
                    onConnected(service);
                    connected.raise();
                },
                [this] {
                    onDisconnected();
                    disconnected.raise();
                },
                cast, [this]() -> sp<android::IServiceManager> { return names; });
    }

    sp<FakeFocusHelper> addService() {
        const sp<FakeFocusHelper> service = new FakeFocusHelper;
        names->add(kName, service);
        return service;
    }

    const sp<FakeServiceManager> names = new FakeServiceManager;
    Signal connected;
    Signal disconnected;
    std::function<void(const sp<IVrFocusHelper>&)> onConnected = [](const auto&) {};
    std::function<void()> onDisconnected = [] {};
    Client::InterfaceCast cast = android::interface_cast<IVrFocusHelper>;
    std::unique_ptr<Client> client;
};

TEST_F(BinderClientTest, ServiceThatIsThereIsConnectedWhenTheConstructorReturns) {
    const sp<FakeFocusHelper> service = addService();
    // Whatever becomes of the link: a service that has died meanwhile is no reason to wait.
    service->linkAnswer = android::DEAD_OBJECT;
    sp<IVrFocusHelper> given;
    size_t linksWhenTold = 0;
    onConnected = [&](const sp<IVrFocusHelper>& connectedService) {
        given = connectedService;
        linksWhenTold = service->links();
    };
    makeClient(kForever);
    EXPECT_EQ(connected.count(), 1);
    EXPECT_EQ(given.get(), service.get());
    EXPECT_EQ(client->getService().get(), service.get());
    EXPECT_EQ(linksWhenTold, 1U);
    EXPECT_EQ(service->links(), 1U);
    EXPECT_EQ(names->lookups(kName), 1);
}

TEST_F(BinderClientTest, ConstructorWaitsForTheFirstLookup) {
    std::atomic<bool> isAnswered = false;
    Signal asked;
    Signal release;
    names->setLookupHook([&](const std::string&) {
        asked.raise();
        isAnswered = release.await();
    });
    std::thread releaser([&] {
        EXPECT_TRUE(asked.await());
        release.raise();
    });
    makeClient(kForever);
    EXPECT_TRUE(isAnswered);
    releaser.join();
    names->setLookupHook(nullptr);
}

TEST_F(BinderClientTest, DefaultCallbacksDoNothing) {
    const sp<FakeServiceManager> installed = &FakeServiceManager::installed();
    const sp<FakeFocusHelper> service = new FakeFocusHelper;
    installed->add(kName, service);
    const Client plain(kName, kForever);
    EXPECT_EQ(plain.getService().get(), service.get());
    installed->clear();
    service->die();
    EXPECT_EQ(plain.getService(), nullptr);
}

TEST_F(BinderClientTest, MissingServiceOrServiceManagerIsLookedForWithoutAWord) {
    Signal mayGoOn;
    sp<FakeFocusHelper> service;
    names->setLookupHook([&](const std::string&) {
        const int lookup = names->lookups(kName);
        EXPECT_TRUE(lookup != 2 || mayGoOn.await());
        if (lookup == 20) service = addService();
    });
    std::atomic<int> questions = 0;
    client = std::make_unique<Client>(
            kName, kShort, [this](const auto&) { connected.raise(); }, [] {}, cast,
            [&]() -> sp<android::IServiceManager> { return ++questions == 2 ? nullptr : names; });
    EXPECT_EQ(client->getService(), nullptr);
    mayGoOn.raise();
    ASSERT_TRUE(connected.await());
    EXPECT_EQ(names->lookups(kName), 20);
    EXPECT_EQ(questions, 21);
    EXPECT_EQ(client->getService().get(), service.get());
    EXPECT_EQ(fakeLog().take(), Lines{});
}

TEST_F(BinderClientTest, BinderOfTheWrongTypeIsLoggedAndLookedUpAgain) {
    addService();
    std::atomic<int> casts = 0;
    cast = [&](const sp<IBinder>& binder) {
        return ++casts < 3 ? nullptr : android::interface_cast<IVrFocusHelper>(binder);
    };
    makeClient(kShort);
    ASSERT_TRUE(connected.await());
    const std::string line =
            "E BinderClient: Failed to convert IBinder to expected service type vrfocushelper";
    EXPECT_EQ(fakeLog().take(), (Lines{line, line}));
    EXPECT_EQ(names->lookups(kName), 3);
    EXPECT_EQ(connected.count(), 1);
}

TEST_F(BinderClientTest, DeathIsToldOnceAndTheNextInstanceIsFoundWithoutAWait) {
    const sp<FakeFocusHelper> first = addService();
    makeClient(kForever);
    sp<IVrFocusHelper> duringDeath = first, duringConnection;
    int connectionsBefore = 0;
    onConnected = [&](const auto&) { duringConnection = client->getService(); };
    onDisconnected = [&] {
        duringDeath = client->getService();
        connectionsBefore = connected.count();
    };
    const sp<FakeFocusHelper> second = addService();
    first->die();
    ASSERT_TRUE(connected.await(2));
    EXPECT_EQ(duringDeath, nullptr);
    EXPECT_EQ(duringConnection.get(), second.get());
    EXPECT_EQ(connectionsBefore, 1) << "the new instance came before the old one was given up";
    EXPECT_EQ(disconnected.count(), 1);
    EXPECT_EQ(client->getService().get(), second.get());
    EXPECT_EQ(first->links(), 0U);
    EXPECT_EQ(second->links(), 1U);
}

TEST_F(BinderClientTest, HandleIsNotGivenOutBeforeItsDeathLinkIsInPlace) {
    const sp<FakeFocusHelper> first = addService();
    makeClient(kForever);
    const sp<FakeFocusHelper> second = addService();
    std::unique_ptr<WatchedCall> query;
    second->onLinked = [&] {
        query = std::make_unique<WatchedCall>([&] { (void)client->getService(); });
        EXPECT_TRUE(query->waitsIn(*client));
    };
    first->die();
    ASSERT_TRUE(connected.await(2));
    EXPECT_NE(query, nullptr);
}

TEST_F(BinderClientTest, DeadServiceThatIsNotRestartedLeavesNoHandleButThoseTakenBefore) {
    const sp<FakeFocusHelper> service = addService();
    makeClient(kForever);
    const sp<IVrFocusHelper> taken = client->getService();
    names->clear();
    service->die();
    EXPECT_EQ(disconnected.count(), 1);
    EXPECT_EQ(client->getService(), nullptr);
    EXPECT_TRUE(taken->onFocusChanged(0).isOk());
}

TEST_F(BinderClientTest, DestructionWaitsForALookupOrACallbackThatIsUnderWay) {
    using Hook = std::function<void()>;
    std::thread killer;
    const struct {
        const char* what;
        std::function<void(const Hook& stop)> begin;
    } kRows[] = {
            {"lookup",
             [&](const Hook& stop) {
                 makeClient(kShort);
                 names->setLookupHook([stop](const std::string&) { stop(); });
             }},
            {"on-connected",
             [&](const Hook& stop) {
                 const sp<FakeFocusHelper> first = addService();
                 makeClient(kForever);
                 onConnected = [stop](const sp<IVrFocusHelper>&) { stop(); };
                 addService();
                 first->die();
             }},
            {"on-disconnected",
             [&](const Hook& stop) {
                 const sp<FakeFocusHelper> service = addService();
                 makeClient(kForever);
                 onDisconnected = stop;
                 names->clear();
                 killer = std::thread([service] { service->die(); });
             }},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.what);
        Signal begun, release;
        std::atomic<bool> isOver = false, wasOver = false;
        row.begin([&] {
            begun.raise();
            isOver = release.await();
        });
        EXPECT_TRUE(begun.await());
        {
            WatchedCall destruction([&] {
                client.reset();
                wasOver = isOver.load();
            });
            EXPECT_TRUE(destruction.waits());
            release.raise();
        }
        EXPECT_TRUE(wasOver);
        if (killer.joinable()) killer.join();
        names->clear();
        names->setLookupHook(nullptr);
        onConnected = [](const auto&) {};
        onDisconnected = [] {};
    }
}

TEST_F(BinderClientTest, DestructionForgetsTheServiceWithoutAWaitAndALateNoticeDoesNothing) {
    makeClient(kForever);
    client.reset();
    EXPECT_EQ(names->lookups(kName), 1);
    const sp<FakeFocusHelper> service = addService();
    makeClient(kForever);
    const auto recipients = service->takeRecipients();
    ASSERT_EQ(recipients.size(), 1U);
    (void)service->linkToDeath(recipients[0], /*cookie=*/nullptr, /*flags=*/0);
    client.reset();
    EXPECT_EQ(service->links(), 0U);
    recipients[0]->binderDied(android::wp<IBinder>(service));
    EXPECT_EQ(disconnected.count(), 0);
    EXPECT_EQ(connected.count(), 1);
}

TEST_F(BinderClientTest, DeathThatOvertakesOnConnectedEndsWithTheNewInstanceToo) {
    const sp<FakeFocusHelper> first = addService();
    sp<FakeFocusHelper> second;
    std::thread killer;
    Lines lines;
    onConnected = [&](const sp<IVrFocusHelper>& service) {
        if (service.get() == first.get()) {
            second = addService();
            killer = std::thread([&] { first->die(); });
            EXPECT_TRUE(disconnected.await());
        }
        lines.push_back(service.get() == first.get() ? "first" : "second");
    };
    onDisconnected = [&] { lines.push_back("gone"); };
    makeClient(kForever);
    ASSERT_TRUE(connected.await(2));
    EXPECT_EQ(lines, (Lines{"gone", "first", "second"}));
    EXPECT_EQ(client->getService().get(), second.get());
    EXPECT_EQ(second->links(), 1U);
    client.reset();
    killer.join();
}

TEST_F(BinderClientTest, DeathsOnTheConnectThreadAndThenElsewhereAreAllSurvived) {
    constexpr int kDeathsThere = 10;
    sp<FakeFocusHelper> current = addService();
    int deathsLeft = kDeathsThere;
    onConnected = [&](const sp<IVrFocusHelper>& service) {
        EXPECT_EQ(service.get(), current.get());
        EXPECT_EQ(disconnected.count(), connected.count()) << "the old one is given up";
        if (deathsLeft-- > 0) std::exchange(current, addService())->die();
    };
    makeClient(kForever);
    ASSERT_TRUE(connected.await(kDeathsThere + 1));
    std::exchange(current, addService())->die();
    ASSERT_TRUE(connected.await(kDeathsThere + 2));
    EXPECT_EQ(disconnected.count(), kDeathsThere + 1);
    EXPECT_EQ(client->getService().get(), current.get());
}

TEST_F(BinderClientTest, DeathsFromManyThreadsWhileOthersAskForTheService) {
    constexpr int kDeaths = 300;
    sp<FakeFocusHelper> current = addService();
    makeClient(kForever);
    std::atomic<bool> isOver = false;
    std::vector<std::thread> readers;
    for (int i = 0; i < 4; ++i) {
        readers.emplace_back([&] {
            while (!isOver) {
                const sp<IVrFocusHelper> service = client->getService();
                if (service != nullptr) (void)service->onFocusChanged(0);
            }
        });
    }
    for (int death = 1; death <= kDeaths; ++death) {
        const sp<FakeFocusHelper> next = addService();
        std::thread killer([&] { current->die(); });
        EXPECT_TRUE(connected.await(death + 1));
        killer.join();
        current = next;
    }
    isOver = true;
    for (std::thread& reader : readers)
        reader.join();
    EXPECT_EQ(disconnected.count(), kDeaths);
    EXPECT_EQ(connected.count(), kDeaths + 1);
    EXPECT_EQ(client->getService().get(), current.get());
}

}  // namespace
}  // namespace NQS::OS

// SPDX-License-Identifier: Apache-2.0
//
// The service connection when deaths come at awkward moments. Whatever happens, the connection
// ends with the newest instance, and its on-connected is the last callback.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "BinderClient.h"
#include "CallLog.h"
#include "FakeFocusHelper.h"
#include "FakeServiceManager.h"
#include "Signal.h"

namespace NQS::OS {
namespace {

using android::sp;
using velmar::internal::IVrFocusHelper;
using Client = BinderClient<IVrFocusHelper>;
using Lines = std::vector<std::string>;

constexpr char kName[] = "vrfocushelper";
constexpr std::chrono::milliseconds kForever = std::chrono::hours(1);

class BinderClientDeathTest : public testing::Test {
protected:
    ~BinderClientDeathTest() override {
        client.reset();
        for (std::thread& killer : killers)
            killer.join();
    }

    void makeClient(const Client::OnConnected& onConnected,
                    const Client::OnDisconnected& onDisconnected) {
        client = std::make_unique<Client>(
                kName, kForever, onConnected, onDisconnected,
                android::interface_cast<IVrFocusHelper>,
                [this]() -> sp<android::IServiceManager> { return names; });
    }

    sp<FakeFocusHelper> addService() {
        const sp<FakeFocusHelper> service = new FakeFocusHelper;
        names->add(kName, service);
        return service;
    }

    const sp<FakeServiceManager> names = new FakeServiceManager;
    CallLog log;
    Signal connected;
    Signal disconnected;
    std::vector<std::thread> killers;
    std::unique_ptr<Client> client;
};

TEST_F(BinderClientDeathTest, DeathThatOvertakesOnConnectedEndsWithTheNewInstanceToo) {
    const sp<FakeFocusHelper> first = addService();
    sp<FakeFocusHelper> second;
    makeClient(
            [&](const sp<IVrFocusHelper>& service) {
                if (service.get() == first.get()) {
                    second = addService();
                    killers.emplace_back([&] { first->die(); });
                    EXPECT_TRUE(disconnected.await());
                    log.add("registered 1");
                } else {
                    log.add("registered 2");
                }
                connected.raise();
            },
            [&] {
                log.add("gone");
                disconnected.raise();
            });
    ASSERT_TRUE(connected.await(2));
    EXPECT_EQ(log.take(), (Lines{"gone", "registered 1", "registered 2"}));
    EXPECT_EQ(client->getService().get(), second.get());
    EXPECT_EQ(second->links(), 1U);
}

TEST_F(BinderClientDeathTest, DeathsOnTheConnectThreadAndThenElsewhereAreAllSurvived) {
    constexpr int kDeathsThere = 10;
    sp<FakeFocusHelper> current = addService();
    int deathsLeft = kDeathsThere;
    makeClient(
            [&](const sp<IVrFocusHelper>& service) {
                EXPECT_EQ(service.get(), current.get());
                EXPECT_EQ(disconnected.count(), connected.count()) << "the old one is given up";
                if (deathsLeft-- > 0) {
                    const sp<FakeFocusHelper> dying = std::exchange(current, addService());
                    dying->die();
                }
                connected.raise();
            },
            [&] { disconnected.raise(); });
    ASSERT_TRUE(connected.await(kDeathsThere + 1));
    std::exchange(current, addService())->die();
    ASSERT_TRUE(connected.await(kDeathsThere + 2));
    EXPECT_EQ(disconnected.count(), kDeathsThere + 1);
    EXPECT_EQ(client->getService().get(), current.get());
}

TEST_F(BinderClientDeathTest, DeathsFromManyThreadsWhileOthersAskForTheService) {
    constexpr int kDeaths = 1000;
    sp<FakeFocusHelper> current = addService();
    makeClient([&](const sp<IVrFocusHelper>&) { connected.raise(); },
               [&] { disconnected.raise(); });
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

// SPDX-License-Identifier: Apache-2.0
//
// Service host over a service manager of this process.
#include <binder/Binder.h>
#include <binder/IServiceManager.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <osutils/ServiceHost.h>
#include <signal.h>
#include <utils/String8.h>

#include <string>
#include <tuple>
#include <vector>

namespace NQS::OS {

using namespace android;
using testing::ElementsAre;

namespace {

/** Keeps what it is asked to add, or refuses it. */
class FakeServiceManager : public IServiceManager {
public:
    using Added = std::tuple<std::string, sp<IBinder>, bool, int>;

    status_t addService(const String16& name, const sp<IBinder>& service, bool allowIsolated,
                        int priority) override {
        if (mResult == OK) mAdded.emplace_back(String8(name), service, allowIsolated, priority);
        return mResult;
    }
    sp<IBinder> getService(const String16&) const override { return nullptr; }
    sp<IBinder> checkService(const String16&) const override { return nullptr; }
    sp<IBinder> waitForService(const String16&) override { return nullptr; }
    Vector<String16> listServices(int) override { return {}; }
    bool isDeclared(const String16&) override { return false; }

    void answer(status_t result) { mResult = result; }
    std::vector<Added> take() { return std::exchange(mAdded, {}); }

protected:
    IBinder* onAsBinder() override { return nullptr; }

private:
    status_t mResult = OK;
    std::vector<Added> mAdded;
};

class ServiceHostTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        // A process has one service manager for good.
        sManager = new FakeServiceManager;
        setDefaultServiceManager(sManager);
    }
    void TearDown() override {
        sManager->answer(OK);
        sManager->take();
    }

    static inline sp<FakeServiceManager> sManager;
};

}  // namespace

TEST_F(ServiceHostTest, RegistersEachServiceInOrderWithTheDefaultPriority) {
    const sp<IBinder> one = new BBinder;
    const sp<IBinder> two = new BBinder;
    const std::string longer = "two and more";
    const ServiceHost host({{"one", one}, {std::string_view(longer).substr(0, 3), two}});
    constexpr int kPriority = IServiceManager::DUMP_FLAG_PRIORITY_DEFAULT;
    EXPECT_THAT(sManager->take(), ElementsAre(std::tuple("one", one, false, kPriority),
                                              std::tuple("two", two, false, kPriority)));
}

TEST_F(ServiceHostTest, KeepsNoReference) {
    const sp<IBinder> service = new BBinder;
    const ServiceHost host({{"one", service}});
    sManager->take();
    EXPECT_EQ(service->getStrongCount(), 1);
}

TEST_F(ServiceHostTest, EmptyListRegistersNothing) {
    const ServiceHost host({});
    EXPECT_THAT(sManager->take(), ElementsAre());
}

TEST_F(ServiceHostTest, BrokenPipesNoLongerEndTheProcess) {
    signal(SIGPIPE, SIG_DFL);
    const ServiceHost host({});
    EXPECT_EQ(signal(SIGPIPE, SIG_IGN), SIG_IGN);
}

TEST_F(ServiceHostTest, RefusedServiceEndsTheProcessWithAMessage) {
    const sp<IBinder> service = new BBinder;
    const struct {
        status_t result;
        const char* message;
    } rows[] = {
            {PERMISSION_DENIED, "cannot register \"one\": .*not permitted"},
            {DEAD_OBJECT, "cannot register \"one\": .*start servicemanager first"},
            {INVALID_OPERATION, "cannot register \"one\": .*-38"},
    };
    for (const auto& row : rows) {
        sManager->answer(row.result);
        EXPECT_EXIT(ServiceHost({{"one", service}, {"two", service}}), testing::ExitedWithCode(1),
                    row.message);
    }
}

}  // namespace NQS::OS

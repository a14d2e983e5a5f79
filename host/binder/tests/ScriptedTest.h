// SPDX-License-Identifier: Apache-2.0
//
// Fixture over the scripted driver. Its end asserts that nothing is left: no buffer of the driver,
// no reference of a handle, no standing request.
#pragma once

#include <binder/BpBinder.h>
#include <binder/HostDriver.h>
#include <binder/IPCThreadState.h>
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <thread>

#include "ScriptedDriver.h"

namespace scripted {

/** The one driver of the test process. */
inline ScriptedDriver& driver() {
    static ScriptedDriver* const installed = [] {
        auto owned = std::make_unique<ScriptedDriver>();
        ScriptedDriver* raw = owned.get();
        android::setProcessDriver(std::move(owned));
        return raw;
    }();
    return *installed;
}

/** A local object that answers as the test says and tells when it has gone. */
class Target : public android::BBinder {
public:
    using Answer = std::function<android::status_t(uint32_t, const android::Parcel&,
                                                   android::Parcel*, uint32_t)>;
    explicit Target(Answer answer, std::function<void()> gone = nullptr)
          : mAnswer(std::move(answer)), mGone(std::move(gone)) {}

protected:
    ~Target() override {
        if (mGone) mGone();
    }
    android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                                 uint32_t flags) override {
        return mAnswer(code, data, reply, flags);
    }

private:
    const Answer mAnswer;
    const std::function<void()> mGone;
};

class ScriptedTest : public testing::Test {
protected:
    static constexpr int32_t kHandle = 7;

    void SetUp() override {
        driver().reset();
        android::ProcessState::self();
    }

    void TearDown() override {
        android::IPCThreadState::self()->flushCommands();
        EXPECT_EQ(driver().liveBuffers(), 0u);
        EXPECT_EQ(driver().heldHandles(), 0);
        EXPECT_EQ(driver().standingDeathRequests(), 0u);
        EXPECT_EQ(driver().unscriptedReads(), 0);
    }

    static android::sp<android::IBinder> proxy(int32_t handle = kHandle) {
        return android::ProcessState::self()->getStrongProxyForHandle(handle);
    }

    /** A request to a local object, as the driver hands it over. */
    static binder_transaction_data request(const android::sp<android::BBinder>& target,
                                           uint32_t code, uint32_t flags = 0, int32_t number = 0) {
        binder_transaction_data transaction = driver().payload(&number, sizeof(number));
        transaction.target.ptr = reinterpret_cast<uintptr_t>(target->getWeakRefs());
        transaction.cookie = reinterpret_cast<uintptr_t>(target.get());
        transaction.code = code;
        transaction.flags = flags;
        transaction.sender_pid = 1234;
        transaction.sender_euid = 5678;
        return transaction;
    }

    static binder_ptr_cookie node(const android::sp<android::BBinder>& object) {
        binder_ptr_cookie cookie{};
        cookie.ptr = reinterpret_cast<uintptr_t>(object->getWeakRefs());
        cookie.cookie = reinterpret_cast<uintptr_t>(object.get());
        return cookie;
    }

    static binder_transaction_data number(int32_t value) {
        return driver().payload(&value, sizeof(value));
    }

    static binder_transaction_data status(int32_t value) {
        binder_transaction_data transaction = number(value);
        transaction.flags = TF_STATUS_CODE;
        return transaction;
    }

    /** Runs a thread of the pool over the pool steps; they must end in BR_FINISHED. */
    static void runPoolThread() {
        std::thread([] {
            android::IPCThreadState::self()->joinThreadPool(/*isMain=*/false);
        }).join();
    }

    /** Commands of a kind, in the order of writing. */
    static std::vector<Written> written(uint32_t command) {
        std::vector<Written> found;
        for (const Written& entry : driver().written()) {
            if (entry.command == command) found.push_back(entry);
        }
        return found;
    }
};

}  // namespace scripted

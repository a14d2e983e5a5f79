// SPDX-License-Identifier: Apache-2.0
//
// Fake service: a local binder whose answers are functions of the test.
//
// Tools leave calls behind that do not end in time. A test that has such a call lets go of its
// services, opens the gate that the call waits at, and waits until no service is left.
#pragma once

#include <android-base/file.h>
#include <android-base/thread_annotations.h>
#include <binder/Binder.h>
#include <binder/Parcel.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>

namespace tools {

/** Where a call waits until the test lets it through. */
class Gate {
public:
    void open() {
        std::lock_guard lock(mLock);
        mOpen = true;
        mOpened.notify_all();
    }
    // The analysis does not follow std::unique_lock, which the condition variable needs.
    void pass() NO_THREAD_SAFETY_ANALYSIS {
        std::unique_lock lock(mLock);
        while (!mOpen)
            mOpened.wait(lock);
    }

private:
    /** Guards mOpen. */
    std::mutex mLock;
    std::condition_variable mOpened;
    bool mOpen GUARDED_BY(mLock) = false;
};

class FakeService : public android::BBinder {
public:
    using Dump = std::function<android::status_t(int fd,
                                                 const android::Vector<android::String16>& args)>;
    using Answer = std::function<android::status_t(uint32_t code, const android::Parcel& data,
                                                   android::Parcel* reply)>;

    struct Behaviour {
        std::string descriptor = "test.IFake";
        Dump dump = nullptr;
        /** Of the calls; the transactions that every binder knows are the base's. */
        Answer answer = nullptr;
    };

    explicit FakeService(Behaviour behaviour)
          : mBehaviour(std::move(behaviour)), mDescriptor(mBehaviour.descriptor.c_str()) {
        std::lock_guard lock(sLock);
        sLiving++;
    }

    /** One that dumps a text. */
    static android::sp<FakeService> saying(const std::string& text) {
        return new FakeService({.dump = [text](int fd, const auto&) {
            return android::base::WriteStringToFd(text, fd) ? android::OK : -errno;
        }});
    }

    // The analysis does not follow std::unique_lock, which the condition variable needs.
    [[nodiscard]] static bool waitUntilNoneIsLeft() NO_THREAD_SAFETY_ANALYSIS {
        std::unique_lock lock(sLock);
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (sLiving != 0 && sDied.wait_until(lock, deadline) == std::cv_status::no_timeout)
            continue;
        return sLiving == 0;
    }

    const android::String16& getInterfaceDescriptor() const override { return mDescriptor; }
    android::status_t dump(int fd, const android::Vector<android::String16>& args) override {
        return mBehaviour.dump ? mBehaviour.dump(fd, args) : BBinder::dump(fd, args);
    }

protected:
    ~FakeService() override {
        std::lock_guard lock(sLock);
        sLiving--;
        sDied.notify_all();
    }
    android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                                 uint32_t flags) override {
        if (!mBehaviour.answer || code > LAST_CALL_TRANSACTION) {
            return BBinder::onTransact(code, data, reply, flags);
        }
        return mBehaviour.answer(code, data, reply);
    }

private:
    /** Guards sLiving. */
    static inline std::mutex sLock;
    static inline std::condition_variable sDied;
    static inline int sLiving GUARDED_BY(sLock) = 0;

    const Behaviour mBehaviour;
    const android::String16 mDescriptor;
};

}  // namespace tools

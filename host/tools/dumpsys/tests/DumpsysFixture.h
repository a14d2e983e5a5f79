// SPDX-License-Identifier: Apache-2.0
//
// Calls dumpsys in this process, on fake services, and says what it printed.
#pragma once

#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include <memory>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "dumpsys/Dumpsys.h"
#include "tests/FakeService.h"
#include "tests/FakeServiceManager.h"

namespace tools {

class DumpsysFixture : public testing::Test {
protected:
    DumpsysFixture() {
        // As the program does.
        signal(SIGPIPE, SIG_IGN);
    }

    /** Every test is one for leaks, too: no service may be left, not even in a stuck call. */
    ~DumpsysFixture() override {
        mManager->clear();
        mGate->open();
        EXPECT_TRUE(FakeService::waitUntilNoneIsLeft());
    }

    void addService(const std::string& name, FakeService::Dump dump) {
        mManager->add(name, new FakeService({.dump = std::move(dump)}));
    }
    void addServiceSaying(const std::string& name, const std::string& text) {
        mManager->add(name, FakeService::saying(text));
    }
    /** Its dump says something and then does not end before the test does. */
    void addStuckService(const std::string& name) {
        addService(name, [gate = mGate](int fd, const auto&) {
            static_cast<void>(android::base::WriteStringToFd("begun\n", fd));
            gate->pass();
            return android::OK;
        });
    }

    void callMain(const std::vector<std::string>& arguments) {
        const android::base::unique_fd file(memfd_create("output", MFD_CLOEXEC));
        callMain(arguments, file.get());
        lseek(file.get(), 0, SEEK_SET);
        if (!android::base::ReadFdToString(file, &mOut)) abort();
    }
    void callMain(const std::vector<std::string>& arguments, int outFd) {
        std::ostringstream err;
        const auto connect = [this](std::ostream& why) -> android::sp<android::IServiceManager> {
            if (!mConnects) why << "no service manager\n";
            return mConnects ? mManager : nullptr;
        };
        mOut.clear();
        mStatus = dumpsysMain(arguments, connect, outFd, err);
        mErr = err.str();
    }

    /** The duration and the time of day, which nobody can foresee, are made "DURATION", "TIME". */
    void expectDump(const std::string& text) {
        expectEnded(0, "");
        EXPECT_EQ(withoutTimes(mOut), text);
    }
    void expectEnded(int status, const testing::Matcher<std::string>& message) {
        EXPECT_EQ(mStatus, status);
        EXPECT_THAT(mErr, message);
    }

    static std::string withoutTimes(const std::string& text) {
        static const std::regex kDuration(
                R"(--------- \d+\.\d{3}s was the duration of dumpsys (\S+), )"
                R"(ending at: \d{4}-\d\d-\d\d \d\d:\d\d:\d\d\n)");
        return std::regex_replace(text, kDuration, "--------- DURATION of $1 at TIME\n");
    }

    const android::sp<FakeServiceManager> mManager{new FakeServiceManager};
    const std::shared_ptr<Gate> mGate = std::make_shared<Gate>();
    bool mConnects = true;
    int mStatus = -1;
    std::string mOut;
    std::string mErr;
};

}  // namespace tools

// SPDX-License-Identifier: Apache-2.0
//
// Dumpsys and services that fail, hang or say too much, and readers that do not read.
#include <fcntl.h>
#include <poll.h>

#include <thread>

#include "tests/DumpsysFixture.h"

namespace tools {

using android::base::unique_fd;
using testing::EndsWith;

namespace {

constexpr size_t kMebibyte = 1024 * 1024;

using DumpsysFaults = DumpsysFixture;

struct Pipe {
    explicit Pipe(int flags) {
        if (!android::base::Pipe(&readEnd, &writeEnd, flags)) abort();
    }
    unique_fd readEnd;
    unique_fd writeEnd;
};

}  // namespace

TEST_F(DumpsysFaults, StuckServiceIsGivenUpWhenTheTimeIsOver) {
    addStuckService("vrfocus");
    // Long enough for what is said before it is stuck.
    callMain({"-T", "2000", "vrfocus"});
    expectEnded(1, "");
    EXPECT_EQ(mOut, "begun\n\n*** SERVICE 'vrfocus' DUMP TIMEOUT (2000ms) EXPIRED ***\n\n");
}

TEST_F(DumpsysFaults, StuckServiceDoesNotKeepTheOthersFromBeingPrinted) {
    addStuckService("a");
    addServiceSaying("b", "running\n");
    // Long enough for the one that does answer.
    callMain({"-T", "2000"});
    expectEnded(1, "");
    EXPECT_EQ(withoutTimes(mOut),
              "Currently running services:\n"
              "  a\n"
              "  b\n"
              "-------------------------------------------------------------------------------\n"
              "DUMP OF SERVICE a:\n"
              "begun\n"
              "\n*** SERVICE 'a' DUMP TIMEOUT (2000ms) EXPIRED ***\n\n"
              "--------- DURATION of a at TIME\n"
              "-------------------------------------------------------------------------------\n"
              "DUMP OF SERVICE b:\n"
              "running\n"
              "--------- DURATION of b at TIME\n");
}

TEST_F(DumpsysFaults, DescriptorThatTheServiceKeepsCountsAsUnfinished) {
    unique_fd kept;
    addService("vrfocus", [&kept](int fd, const auto&) {
        kept.reset(dup(fd));
        return android::OK;
    });
    callMain({"-T", "50", "vrfocus"});
    expectEnded(1, "");
    EXPECT_EQ(mOut, "\n*** SERVICE 'vrfocus' DUMP TIMEOUT (50ms) EXPIRED ***\n\n");
}

TEST_F(DumpsysFaults, ServiceThatNeverStopsWritingIsGivenUp) {
    addService("vrfocus", [](int fd, const auto&) {
        const std::string much(kMebibyte, 'x');
        while (android::base::WriteStringToFd(much, fd))
            continue;
        return -errno;
    });
    const unique_fd nowhere(open("/dev/null", O_WRONLY | O_CLOEXEC));
    callMain({"-T", "50", "vrfocus"}, nowhere.get());
    expectEnded(1, "");
}

TEST_F(DumpsysFaults, FailureOfOneDumpIsTheExitStatusOfAll) {
    addService("a", [](int, const auto&) { return android::PERMISSION_DENIED; });
    addServiceSaying("b", "running\n");
    callMain({});
    expectEnded(1, "Error with service 'a' while dumping: PERMISSION_DENIED\n");
    EXPECT_THAT(withoutTimes(mOut),
                EndsWith("DUMP OF SERVICE b:\nrunning\n--------- DURATION of b at TIME\n"));
}

TEST_F(DumpsysFaults, DumpOfManyMegabytesArrivesWhole) {
    std::string much;
    while (much.size() < 16 * kMebibyte)
        much += std::to_string(much.size()) + "\n";
    addServiceSaying("vrfocus", much);
    callMain({"vrfocus"});
    expectEnded(0, "");
    EXPECT_TRUE(mOut == much) << mOut.size() << " of " << much.size() << " bytes";
}

TEST_F(DumpsysFaults, ReaderThatGoesAwayEndsTheRunWithoutAWord) {
    addServiceSaying("a", std::string(kMebibyte, 'x'));
    addServiceSaying("b", "running\n");
    for (const auto& arguments : {std::vector<std::string>{"a"}, {}, {"-l"}, {"--help"}}) {
        Pipe pipe(O_CLOEXEC);
        pipe.readEnd.reset();
        callMain(arguments, pipe.writeEnd.get());
        expectEnded(1, "");
    }
}

TEST_F(DumpsysFaults, ReaderThatGoesAwayInMidDumpEndsTheRun) {
    addServiceSaying("a", std::string(kMebibyte, 'x'));
    Pipe pipe(O_CLOEXEC);
    std::thread reader([end = std::move(pipe.readEnd)]() mutable {
        char byte = 0;
        EXPECT_EQ(read(end.get(), &byte, 1), 1);
        end.reset();
    });
    callMain({"a"}, pipe.writeEnd.get());
    reader.join();
    expectEnded(1, "");
}

TEST_F(DumpsysFaults, OutputThatFailsIsReported) {
    addServiceSaying("vrfocus", "dump");
    const unique_fd full(open("/dev/full", O_WRONLY | O_CLOEXEC));
    callMain({"vrfocus"}, full.get());
    expectEnded(1, "dumpsys: cannot write the output: No space left on device\n");
    const unique_fd readOnly(open("/dev/null", O_RDONLY | O_CLOEXEC));
    callMain({"-l"}, readOnly.get());
    expectEnded(1, "dumpsys: cannot write the output: Bad file descriptor\n");
}

TEST_F(DumpsysFaults, OutputThatNeverBlocksGetsAll) {
    const std::string much(4 * kMebibyte, 'x');
    addServiceSaying("vrfocus", much);
    Pipe pipe(O_CLOEXEC | O_NONBLOCK);
    std::string received;
    std::thread reader([&] {
        std::vector<char> chunk(kMebibyte);
        for (ssize_t size = -1; size != 0;) {
            pollfd readable{.fd = pipe.readEnd.get(), .events = POLLIN, .revents = 0};
            poll(&readable, 1, /*timeout=*/-1);
            size = read(pipe.readEnd.get(), chunk.data(), chunk.size());
            if (size > 0) received.append(chunk.data(), size_t(size));
        }
    });
    callMain({"vrfocus"}, pipe.writeEnd.get());
    pipe.writeEnd.reset();
    reader.join();
    expectEnded(0, "");
    EXPECT_TRUE(received == much) << received.size() << " bytes";
}

TEST_F(DumpsysFaults, TimeThatTheReaderTakesIsNotTheServices) {
    addServiceSaying("vrfocus", std::string(kMebibyte, 'x'));
    constexpr std::chrono::milliseconds kTimeout{1000};
    Pipe pipe(O_CLOEXEC);
    size_t received = 0;
    // What is waited for is the time itself: the reader starts when the service's is over.
    std::thread reader([&] {
        const auto begin = std::chrono::steady_clock::now() + kTimeout * 3 / 2;
        while (std::chrono::steady_clock::now() < begin)
            std::this_thread::sleep_until(begin);
        std::string all;
        EXPECT_TRUE(android::base::ReadFdToString(pipe.readEnd, &all));
        received = all.size();
    });
    callMain({"-T", std::to_string(kTimeout.count()), "vrfocus"}, pipe.writeEnd.get());
    pipe.writeEnd.reset();
    reader.join();
    expectEnded(0, "");
    EXPECT_EQ(received, kMebibyte);
}

}  // namespace tools

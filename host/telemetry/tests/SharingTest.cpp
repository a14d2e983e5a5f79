// SPDX-License-Identifier: Apache-2.0
//
// The sink under many hands: threads, processes, and writers that are killed.
#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <vector>

#include "../../testing/Child.h"
#include "TempSink.h"

namespace hosttelemetry {

using hosttesting::Child;
using test::report;
using test::TempSink;

namespace {

constexpr int kProcesses = 4;
constexpr int kThreads = 16;
constexpr int kEvents = 100;

/** Differs from all others, and in length: from a few bytes to more than a page. */
std::string payload(int thread, int i) {
    return std::to_string(thread) + "." + std::to_string(i) + "." +
           std::string((i % 7) * 700, static_cast<char>('a' + thread));
}

/** The exit status of a process whose threads report all at once; the event id is its number. */
int reportFromThreads(int process) {
    std::vector<int> refused(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([process, t, &refused] {
            for (int i = 0; i < kEvents; ++i)
                refused[t] += report(process, payload(t, i)) != 0;
        });
    }
    int all = 0;
    for (int t = 0; t < kThreads; ++t) {
        threads[t].join();
        all += refused[t];
    }
    return all == 0 ? 0 : 1;
}

}  // namespace

TEST(Sharing, EveryEventOfManyThreadsAndProcessesArrivesWholeAndInItsThreadsOrder) {
    const TempSink sink;
    std::vector<std::unique_ptr<Child>> children;
    for (int p = 0; p < kProcesses; ++p)
        children.push_back(std::make_unique<Child>([p] { return reportFromThreads(p); }));
    for (const auto& child : children)
        EXPECT_EQ(child->wait(), 0);

    const auto [events, damaged] = sink.read();
    EXPECT_EQ(damaged, 0U);
    EXPECT_EQ(events.size(), size_t{kProcesses} * kThreads * kEvents);
    std::vector<std::vector<int>> next(kProcesses, std::vector<int>(kThreads));
    for (const Event& event : events) {
        ASSERT_TRUE(event.id >= 0 && event.id < kProcesses);
        const int thread = std::stoi(event.bytes);
        ASSERT_TRUE(thread >= 0 && thread < kThreads);
        ASSERT_EQ(event.bytes, payload(thread, next[event.id][thread]++));
    }
}

TEST(Sharing, KilledWritersCostNobodyElseAnEvent) {
    const TempSink sink;
    const std::string writersBytes(500, 'w');
    for (int round = 0; round < 20; ++round) {
        // Not for ever: however late it is killed, the sink has room for the others.
        Child writer([&] {
            for (int i = 0; i < 1000; ++i)
                (void)report(1, writersBytes);
            return pause();
        });
        for (int i = 0; i < 20; ++i)
            ASSERT_EQ(report(2, payload(round % kThreads, i)), 0);
        writer.end(SIGKILL);
    }
    int others = 0;
    for (const Event& event : sink.read().events) {
        if (event.id == 1) {
            EXPECT_EQ(event.bytes, writersBytes);
        } else {
            EXPECT_EQ(event.bytes, payload(others / 20 % kThreads, others % 20));
            ++others;
        }
    }
    EXPECT_EQ(others, 20 * 20);
}

}  // namespace hosttelemetry

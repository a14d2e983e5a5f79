// SPDX-License-Identifier: Apache-2.0
// What is printed for people, when they do not read it.
#include "session/Timeline.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <memory>

#include "session/SessionError.h"

namespace sim {
namespace {

TEST(TimelineTest, aWishToStopIsHeardWhileNobodyReads) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
    while (write(ends[1], "x", 1) == 1) {
    }
    ASSERT_EQ(fcntl(ends[1], F_SETFL, 0), 0);
    const std::unique_ptr<FILE, int (*)(FILE*)> full(fdopen(ends[1], "w"), fclose);
    StopSignals stops;
    raise(SIGTERM);
    Timeline timeline(full.get(), /*colours=*/false, &stops);
    EXPECT_THROW(timeline.line("what nobody reads"), SessionStopped);
    EXPECT_EQ(stops.take(), 0) << "it has been taken";
    close(ends[0]);
}

}  // namespace
}  // namespace sim

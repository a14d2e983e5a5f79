// SPDX-License-Identifier: Apache-2.0
// What the kernel's binder module tells: something in flight, and who watches whom.
#include "session/KernelBinder.h"

#include <android-base/file.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace sim {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

/** Two processes at rest: 20 watches a node of 10, and not the other one. */
const char* const kAtRest =
        "binder state:\n"
        "dead nodes:\n"
        "  node 90: u0 c0 hs 1 hw 1 ls 0 lw 0 is 1 iw 1 tr 1 proc 20\n"
        "proc 10\n"
        "context binder\n"
        "  thread 11: l 12 need_return 0 tr 0\n"
        "  node 3: u1 c2 pri 0:139 hs 1 hw 1 ls 0 lw 0 is 1 iw 1 tr 1 proc 20\n"
        "  node 4: u1 c2 pri 0:139 hs 1 hw 1 ls 0 lw 0 is 1 iw 1 tr 1 proc 20\n"
        "  ref 9: desc 0 node 1 s 1 w 1 d 0000000000000000\n"
        "proc 20\n"
        "context binder\n"
        "  thread 20: l 00 need_return 0 tr 0\n"
        "  node 33: u1 c2 pri 0:139 hs 1 hw 1 ls 0 lw 0 is 1 iw 1 tr 1 proc 10\n"
        "  ref 5: desc 1 node 3 s 1 w 1 d 00000000abcd1234\n"
        "  ref 6: desc 2 node 4 s 1 w 1 d 0000000000000000\n"
        "  ref 7: desc 3 dead node 90 s 1 w 1 d 00000000abcd1235\n";

bool everybodyLives(pid_t) {
    return true;
}

TEST(KernelBinderTest, ProcessesThatOnlyWaitAreAtRest) {
    EXPECT_THAT(inFlightIn(kAtRest, {}, everybodyLives), IsEmpty());
}

TEST(KernelBinderTest, WhateverIsUnderWayIsTold) {
    for (const char* line :
         {"    outgoing transaction 50: 000 from 20:20 to 10:11 code 1 flags 10 pri 0:120 r1",
          "    incoming transaction 50: 000 from 20:20 to 10:11 code 1 flags 10 pri 0:120 r1",
          "    pending transaction 51: 000 from 30:30 to 20:0 code 1 flags 11 pri 0:120 r0",
          "    pending async transaction 52: 000 from 0:0 to 20:0 code 1 flags 11 pri 0:120 r0",
          "  buffer 54: 0 size 88:8:0 active", "  thread 21: l 02 need_return 0 tr 0",
          "  thread 21: l 01 need_return 0 tr 0", "    transaction complete",
          "    node work 33: u1 c2", "  has dead binder", "  has cleared death notification",
          "  has delivered dead binder"}) {
        const std::string found =
                inFlightIn(kAtRest + std::string(line) + "\n", {}, everybodyLives);
        EXPECT_THAT(found, HasSubstr("pid 20: ")) << line;
        EXPECT_THAT(inFlightIn(kAtRest + std::string(line) + "\n", {20}, everybodyLives), IsEmpty())
                << line;
    }
}

TEST(KernelBinderTest, WhatIsKeptAndThreadsThatDoNotServeAreNoWork) {
    for (const char* line :
         {"  buffer 53: 0 size 4:0:0 delivered", "  thread 21: l 11 need_return 0 tr 0",
          "  thread 21: l 12 need_return 0 tr 0", "  thread 21: l 00 need_return 0 tr 0",
          "  thread 21: l 22 need_return 0 tr 0", "  thread 21: l 06 need_return 0 tr 0"})
        EXPECT_THAT(inFlightIn(kAtRest + std::string(line) + "\n", {}, everybodyLives), IsEmpty())
                << line;
}

TEST(KernelBinderTest, WhatWaitsForAProcessThatIsLeftOutDoesNotCount) {
    const std::string state =
            kAtRest +
            std::string("    outgoing transaction 50: 000 from 20:20 to 10:0 code 1 flags 10\n");
    EXPECT_THAT(inFlightIn(state, {10}, everybodyLives), IsEmpty());
    EXPECT_THAT(inFlightIn(state, {30}, everybodyLives), HasSubstr("outgoing"));
}

TEST(KernelBinderTest, AnEndedProcessHasNewsOfItsEndUnderWay) {
    const auto isAlive = [](pid_t pid) { return pid != 10; };
    EXPECT_THAT(inFlightIn(kAtRest, {}, isAlive), HasSubstr("pid 10: has ended"));
}

TEST(KernelBinderTest, AWatchIsADeathLinkToANodeOfTheOther) {
    EXPECT_TRUE(watchesIn(kAtRest, 20, 10));
    EXPECT_FALSE(watchesIn(kAtRest, 10, 20));
    EXPECT_FALSE(watchesIn(kAtRest, 20, 30));
    std::string state = kAtRest;
    state.replace(state.find("00000000abcd1234"), 16, "0000000000000000");
    EXPECT_FALSE(watchesIn(state, 20, 10));
}

TEST(KernelBinderTest, FilesThatCannotBeReadAreToldOfAtOnce) {
    const TemporaryDir folder;
    EXPECT_EQ(KernelBinder::open(std::string(folder.path) + "/none"), nullptr);
    const std::string path = folder.path;
    ASSERT_TRUE(android::base::WriteStringToFile("stats", path + "/stats"));
    EXPECT_EQ(KernelBinder::open(path), nullptr);
    const std::string own = "proc " + std::to_string(getpid()) + "\n";
    ASSERT_TRUE(android::base::WriteStringToFile(own, path + "/state"));
    const auto kernel = KernelBinder::open(path);
    ASSERT_NE(kernel, nullptr);
    EXPECT_THAT(kernel->inFlight({}).value_or("absent"), IsEmpty());
    ASSERT_TRUE(android::base::WriteStringToFile(own + "  buffer 1: active\n", path + "/state"));
    EXPECT_THAT(kernel->inFlight({}).value_or("absent"), HasSubstr("buffer 1"));
}

}  // namespace
}  // namespace sim

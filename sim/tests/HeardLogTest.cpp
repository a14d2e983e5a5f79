// SPDX-License-Identifier: Apache-2.0
// What a process was told, kept in order and within bounds until it is fetched.
#include "process/HeardLog.h"

#include <gtest/gtest.h>

namespace sim {
namespace {

TEST(HeardLogTest, entriesComeOnceInTheirOrder) {
    HeardLog log;
    log.add("first");
    log.add("second");
    const Json::Value taken = log.take();
    ASSERT_EQ(taken["heard"].size(), 2u);
    EXPECT_EQ(taken["heard"][0], "first");
    EXPECT_EQ(taken["heard"][1], "second");
    EXPECT_EQ(taken["dropped"].asUInt(), 0u);
    EXPECT_EQ(log.take()["heard"], Json::Value(Json::arrayValue));
}

TEST(HeardLogTest, theOldestAreDroppedAndCounted) {
    HeardLog log;
    for (int entry = 0; entry < static_cast<int>(HeardLog::kMost) + 3; ++entry)
        log.add(entry);
    const Json::Value taken = log.take();
    EXPECT_EQ(taken["heard"].size(), HeardLog::kMost);
    EXPECT_EQ(taken["heard"][0], 3);
    EXPECT_EQ(taken["dropped"].asUInt(), 3u);
    EXPECT_EQ(log.take()["dropped"].asUInt(), 0u);
}

}  // namespace
}  // namespace sim

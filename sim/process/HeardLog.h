// SPDX-License-Identifier: Apache-2.0
//
// What a simulated process was told by others, kept until its controller fetches it.
//
// Entries keep the order in which they were added. Bounded: when the controller fetches nothing,
// the oldest are dropped and counted. Any number of threads.
#pragma once

#include <android-base/thread_annotations.h>
#include <json/value.h>

#include <deque>
#include <mutex>

namespace sim {

class HeardLog {
public:
    static constexpr size_t kMost = 2000;

    void add(Json::Value entry);

    /** {"heard": [entries since the last call], "dropped": how many were too many}. */
    [[nodiscard]] Json::Value take();

private:
    std::mutex mMutex;  // guards what was heard
    std::deque<Json::Value> mEntries GUARDED_BY(mMutex);
    Json::UInt mDropped GUARDED_BY(mMutex) = 0;
};

}  // namespace sim

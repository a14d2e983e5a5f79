// SPDX-License-Identifier: Apache-2.0
// What a simulated process was told by others.
#include "process/HeardLog.h"

#include <utility>

namespace sim {

void HeardLog::add(Json::Value entry) {
    std::lock_guard lock(mMutex);
    mEntries.push_back(std::move(entry));
    if (mEntries.size() <= kMost) return;
    mEntries.pop_front();
    ++mDropped;
}

Json::Value HeardLog::take() {
    Json::Value value(Json::objectValue);
    Json::Value& heard = value["heard"] = Json::arrayValue;
    std::lock_guard lock(mMutex);
    for (Json::Value& entry : mEntries)
        heard.append(std::move(entry));
    value["dropped"] = mDropped;
    mEntries.clear();
    mDropped = 0;
    return value;
}

}  // namespace sim

// SPDX-License-Identifier: Apache-2.0
//
// A service's copy of the world.
//
// Replaced whole by the control thread, read by binder threads; a reader keeps the one it took for
// as long as it answers, so one answer never mixes two worlds.
#pragma once

#include <android-base/thread_annotations.h>

#include <memory>
#include <mutex>
#include <utility>

#include "world/World.h"

namespace sim {

class WorldReplica {
public:
    void set(World world) {
        auto fresh = std::make_shared<const World>(std::move(world));
        std::lock_guard lock(mMutex);
        mWorld = std::move(fresh);
    }

    /** Never null. */
    [[nodiscard]] std::shared_ptr<const World> get() const {
        std::lock_guard lock(mMutex);
        return mWorld;
    }

private:
    mutable std::mutex mMutex;  // guards the pointer; what it points to never changes
    std::shared_ptr<const World> mWorld GUARDED_BY(mMutex) = std::make_shared<const World>();
};

}  // namespace sim

// SPDX-License-Identifier: Apache-2.0
// The simulated focus helper ("vrfocushelper"): remembers what it was told, in order and last.
#pragma once

#include <android-base/thread_annotations.h>
#include <velmar/internal/BnVrFocusHelper.h>

#include <memory>
#include <mutex>

#include "services/SimulatedService.h"

namespace sim {

class FocusHelper : public velmar::internal::BnVrFocusHelper, public SimulatedService {
public:
    android::binder::Status onFocusChanged(int32_t focusType) override;
    android::binder::Status onTopActivityChanged(
            const std::unique_ptr<android::String16>& packageName) override;
    android::binder::Status onImmersiveAppChanged(
            const std::unique_ptr<android::String16>& packageName) override;

    /** {"calls": N, "topActivity": "P", "immersiveApp": null}: null when told that there is none.
     */
    [[nodiscard]] Json::Value status() const override;

    /** Entries {"topActivity": "P"}, {"immersiveApp": "P" or null}, {"focusType": T}. */
    [[nodiscard]] Json::Value takeHeard() override { return mHeard.take(); }

private:
    void record(const char* what, Json::Value value);

    HeardLog mHeard;
    mutable std::mutex mMutex;  // guards what was told last
    Json::Value mTold GUARDED_BY(mMutex) = Json::objectValue;
    Json::UInt mCalls GUARDED_BY(mMutex) = 0;
};

}  // namespace sim

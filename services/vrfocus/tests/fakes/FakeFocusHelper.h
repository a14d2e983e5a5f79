// SPDX-License-Identifier: Apache-2.0
//
// Fake focus helper: the notices it was sent, as text.
//
// "top com.app", "immersive (none)" for an absent package, "top " for an empty one. Any thread.
#pragma once

#include <utils/String8.h>
#include <velmar/internal/BnVrFocusHelper.h>

#include <functional>
#include <string>

#include "CallLog.h"
#include "MortalService.h"

namespace NQS::OS {

class FakeFocusHelper : public MortalService<velmar::internal::BnVrFocusHelper> {
public:
    CallLog calls;
    /** Run by each notice of a top activity. */
    std::function<void()> onCalled = [] {};

    android::binder::Status onFocusChanged(int32_t focusType) override {
        calls.add("focus " + std::to_string(focusType));
        return android::binder::Status::ok();
    }
    android::binder::Status onTopActivityChanged(
            const std::unique_ptr<android::String16>& packageName) override {
        calls.add("top " + text(packageName.get()));
        onCalled();
        return android::binder::Status::ok();
    }
    android::binder::Status onImmersiveAppChanged(
            const std::unique_ptr<android::String16>& packageName) override {
        calls.add("immersive " + text(packageName.get()));
        return android::binder::Status::ok();
    }

private:
    static std::string text(const android::String16* name) {
        return name == nullptr ? "(none)" : std::string(android::String8(*name).c_str());
    }
};

}  // namespace NQS::OS

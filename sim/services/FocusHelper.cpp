// SPDX-License-Identifier: Apache-2.0
// The simulated focus helper.
#include "services/FocusHelper.h"

#include <utils/String16.h>
#include <utils/String8.h>

#include <utility>

namespace sim {
namespace {

Json::Value toValue(const std::unique_ptr<android::String16>& text) {
    return text == nullptr ? Json::Value() : Json::Value(android::String8(*text).c_str());
}

}  // namespace

using android::binder::Status;

Status FocusHelper::onFocusChanged(int32_t focusType) {
    record("focusType", focusType);
    return Status::ok();
}

Status FocusHelper::onTopActivityChanged(const std::unique_ptr<android::String16>& packageName) {
    record("topActivity", toValue(packageName));
    return Status::ok();
}

Status FocusHelper::onImmersiveAppChanged(const std::unique_ptr<android::String16>& packageName) {
    record("immersiveApp", toValue(packageName));
    return Status::ok();
}

Json::Value FocusHelper::status() const {
    std::lock_guard lock(mMutex);
    Json::Value value = mTold;
    value["calls"] = mCalls;
    return value;
}

void FocusHelper::record(const char* what, Json::Value value) {
    Json::Value entry(Json::objectValue);
    entry[what] = value;
    mHeard.add(std::move(entry));
    std::lock_guard lock(mMutex);
    mTold[what] = std::move(value);
    ++mCalls;
}

}  // namespace sim

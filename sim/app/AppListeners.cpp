// SPDX-License-Identifier: Apache-2.0
// The listeners that a simulated app registers with the focus service.
#include "app/AppListeners.h"

#include <utils/String16.h>
#include <utils/String8.h>
#include <velmar/internal/BnVrFocusListener.h>
#include <velmar/internal/BnVrTopActivityListener.h>

#include <utility>

namespace sim {

using android::sp;
using android::String16;
using android::String8;
using android::binder::Status;
using velmar::internal::ImmersiveApp;

namespace {

class FocusListener : public velmar::internal::BnVrFocusListener {
public:
    explicit FocusListener(std::shared_ptr<HeardLog> log) : mLog(std::move(log)) {}

    Status onVrFocusChanged(int32_t focusType) override {
        Json::Value entry(Json::objectValue);
        entry["focus"] = focusType;
        mLog->add(std::move(entry));
        return Status::ok();
    }

private:
    const std::shared_ptr<HeardLog> mLog;
};

class TopActivityListener : public velmar::internal::BnVrTopActivityListener {
public:
    explicit TopActivityListener(std::shared_ptr<HeardLog> log) : mLog(std::move(log)) {}

    Status onVrTopActivityChanged(const String16& topActivity, const ImmersiveApp& app) override {
        Json::Value entry(Json::objectValue);
        entry["top"] = String8(topActivity).c_str();
        entry["app"] = toJson(app);
        mLog->add(std::move(entry));
        return Status::ok();
    }

private:
    const std::shared_ptr<HeardLog> mLog;
};

}  // namespace

sp<velmar::internal::IVrFocusListener> AppListeners::focus(int type) {
    auto& listener = mFocus[type];
    if (listener == nullptr) listener = new FocusListener(mLog);
    return listener;
}

sp<velmar::internal::IVrTopActivityListener> AppListeners::topActivity() {
    if (mTopActivity == nullptr) mTopActivity = new TopActivityListener(mLog);
    return mTopActivity;
}

Json::Value toJson(const ImmersiveApp& app) {
    Json::Value row(Json::objectValue);
    row["package"] = String8(app.packageName).c_str();
    row["pid"] = app.pid;
    row["uid"] = app.uid;
    row["top"] = app.isTopActivity;
    return row;
}

}  // namespace sim

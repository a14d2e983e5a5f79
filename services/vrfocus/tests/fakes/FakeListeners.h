// SPDX-License-Identifier: Apache-2.0
//
// Fake listeners: log what they are told, as "NAME focus 1" and "NAME top com.app immersive
// com.game 7 8 1" (package, pid, uid, flag), and can be killed. Any thread.
#pragma once

#include <utils/String8.h>
#include <velmar/internal/BnVrFocusListener.h>
#include <velmar/internal/BnVrTopActivityListener.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "CallLog.h"
#include "MortalService.h"

namespace NQS::OS {

class FakeFocusListener : public MortalService<velmar::internal::BnVrFocusListener> {
public:
    FakeFocusListener(std::string name, std::shared_ptr<CallLog> log)
          : mName(std::move(name)), mLog(std::move(log)) {}
    ~FakeFocusListener() override { onReleased(); }

    /** What each call answers. */
    android::binder::Status status;
    /** Run by each call. */
    std::function<void()> onCalled = [] {};
    /** Run when the last reference goes. */
    std::function<void()> onReleased = [] {};

    android::binder::Status onVrFocusChanged(int32_t focusType) override {
        mLog->add(mName + " focus " + std::to_string(focusType));
        onCalled();
        return status;
    }

private:
    const std::string mName;
    const std::shared_ptr<CallLog> mLog;
};

class FakeTopActivityListener : public MortalService<velmar::internal::BnVrTopActivityListener> {
public:
    FakeTopActivityListener(std::string name, std::shared_ptr<CallLog> log)
          : mName(std::move(name)), mLog(std::move(log)) {}

    /** What each call answers. */
    android::binder::Status status;
    /** Run by each call. */
    std::function<void()> onCalled = [] {};

    android::binder::Status onVrTopActivityChanged(
            const android::String16& topActivity,
            const velmar::internal::ImmersiveApp& app) override {
        mLog->add(mName + " top " + android::String8(topActivity).c_str() + " immersive " +
                  android::String8(app.packageName).c_str() + " " + std::to_string(app.pid) + " " +
                  std::to_string(app.uid) + " " + std::to_string(app.isTopActivity));
        onCalled();
        return status;
    }

private:
    const std::string mName;
    const std::shared_ptr<CallLog> mLog;
};

}  // namespace NQS::OS

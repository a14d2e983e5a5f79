// SPDX-License-Identifier: Apache-2.0
//
// Fake tracker: answers its virtual queries from plain values and logs every call.
//
// The rest of the tracker is the real one: it looks for services in the default service manager,
// so a test installs one of its own first. Values are set before the threads of a test start.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "CallLog.h"
#include "ConnectionManager.h"

namespace NQS::OS {

class FakeConnectionManager : public ConnectionManager {
public:
    explicit FakeConnectionManager(std::shared_ptr<CallLog> log = std::make_shared<CallLog>())
          : mLog(std::move(log)) {}

    std::vector<FocusClient> foreground;
    std::vector<FocusClient> rendering;
    std::vector<FocusClient> top;
    std::vector<FocusClient> allTop;
    FocusClient windowFocus;
    void forgetSignals() {
        foreground = rendering = top = allTop = {};
        windowFocus = {};
    }

    /** Run by the query of that name before it answers. */
    std::function<void()> onWindowFocusAsked = [] {};
    std::function<void()> onRenderingAsked = [] {};

    std::vector<FocusClient> getClientsWithForegroundActivity() override {
        mLog->add("foreground");
        return foreground;
    }
    std::vector<FocusClient> getClientsCurrentlyRendering() override {
        mLog->add("rendering");
        onRenderingAsked();
        return rendering;
    }
    FocusClient getClientWithWindowFocus() const override {
        mLog->add("windowFocus");
        onWindowFocusAsked();
        return windowFocus;
    }
    std::vector<FocusClient> getClientsWithTopActivities() const override {
        mLog->add("top");
        return top;
    }
    std::vector<FocusClient> getAllClientsWithTopActivities() const override {
        mLog->add("allTop");
        return allTop;
    }
    void grantTrackingServiceAccess(int displayId) override {
        mLog->add("grant " + std::to_string(displayId));
    }
    void revokeTrackingServiceAccess(int displayId) override {
        mLog->add("revoke " + std::to_string(displayId));
    }

private:
    const std::shared_ptr<CallLog> mLog;
};

}  // namespace NQS::OS

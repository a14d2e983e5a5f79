// SPDX-License-Identifier: Apache-2.0
//
// Fake policy: answers from plain values and logs every call. Values are set before the threads of
// a test start.
#pragma once

#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "CallLog.h"
#include "FocusPolicy.h"

namespace NQS::OS {

class FakeFocusPolicy : public FocusPolicy {
public:
    explicit FakeFocusPolicy(std::shared_ptr<CallLog> log)
          : FocusPolicy(nullptr, nullptr), mLog(std::move(log)) {}

    std::optional<ImmersiveApp> immersiveApp;
    android::String16 topActivity;
    std::vector<ClientStatus> statuses;
    /** Run by getTopActivity before it answers. */
    std::function<void()> onTopActivityAsked = [] {};
    /** Run by both dumps. */
    std::function<void()> onDump = [] {};

    std::optional<ImmersiveApp> getImmersiveApp() override {
        mLog->add("immersiveApp");
        return immersiveApp;
    }
    android::String16 getTopActivity() override {
        mLog->add("topActivity");
        onTopActivityAsked();
        return topActivity;
    }
    void dump(int fd, const android::Vector<android::String16>& args) override {
        mLog->add("dump");
        onDump();
        dprintf(fd, "(policy, %d arguments)\n", static_cast<int>(args.size()));
    }
    Json::Value dumpJson() override {
        mLog->add("dumpJson");
        onDump();
        Json::Value json(Json::objectValue);
        json["from"] = "policy";
        return json;
    }
    void computeFocusState(FocusType type, const std::vector<int>& pids,
                           std::vector<ClientStatus>& out) override {
        std::string call = "compute " + std::to_string(static_cast<int>(type));
        for (const int pid : pids)
            call += " " + std::to_string(pid);
        mLog->add(call + " into " + std::to_string(out.size()));
        out.insert(out.end(), statuses.begin(), statuses.end());
    }
    void setMainDisplayFocus(bool focused) override {
        mLog->add(focused ? "mainDisplayFocus true" : "mainDisplayFocus false");
    }

private:
    const std::shared_ptr<CallLog> mLog;
};

}  // namespace NQS::OS

// SPDX-License-Identifier: Apache-2.0
//
// daemon_test_listener: an app that registers listeners with "vrfocus" and keeps what they hear.
//
// Driven by JSON lines on descriptor 3; says {"event": "ready"} first. Each of these is answered by
// a line with the same id:
//
//      registerFocus                     {"type": N}    {"exception": E, "result": B}
//      registerTop, unregisterTop        -              likewise
//      heard                             -              {"focus": [n, n], "tops": n, "top": {...}}
//      status                            -              {"tops": ["activity", ...]}, all, in order
//
// Ends when the other side of that descriptor is closed.
#include <android-base/thread_annotations.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <unistd.h>
#include <utils/String8.h>
#include <velmar/internal/BnVrFocusListener.h>
#include <velmar/internal/BnVrTopActivityListener.h>
#include <velmar/internal/IVrFocusService.h>

#include <mutex>
#include <string>

#include "process/ChildProcess.h"
#include "process/LineChannel.h"

namespace {

using android::sp;
using android::String16;
using android::binder::Status;
using velmar::internal::BnVrFocusListener;
using velmar::internal::BnVrTopActivityListener;
using velmar::internal::ImmersiveApp;
using velmar::internal::IVrFocusService;

constexpr int kTypes = 2;

std::string utf8(const String16& text) {
    return android::String8(text).c_str();
}

/** What the listeners of this process heard, on any thread of the pool. */
class Heard {
public:
    void focus(int type, int told) {
        const std::lock_guard lock(mMutex);
        // A listener that is told of another's type says so by a type that nobody has.
        mFocus[type == told ? type : kTypes]++;
    }
    void top(const String16& activity, const ImmersiveApp& app) {
        const std::lock_guard lock(mMutex);
        mTops.append(utf8(activity));
        mTop["activity"] = utf8(activity);
        mTop["package"] = utf8(app.packageName);
        mTop["pid"] = app.pid;
        mTop["uid"] = app.uid;
        mTop["isTop"] = app.isTopActivity;
    }
    Json::Value json() {
        const std::lock_guard lock(mMutex);
        Json::Value value(Json::objectValue);
        for (const int count : mFocus)
            value["focus"].append(count);
        value["tops"] = mTops.size();
        value["top"] = mTop;
        return value;
    }
    /** The activities of all notices, in their order. */
    Json::Value activities() {
        const std::lock_guard lock(mMutex);
        Json::Value value(Json::objectValue);
        value["tops"] = mTops;
        return value;
    }

private:
    /** Guards all of it. */
    std::mutex mMutex;
    int mFocus[kTypes + 1] GUARDED_BY(mMutex) = {};
    Json::Value mTops GUARDED_BY(mMutex) = Json::arrayValue;
    Json::Value mTop GUARDED_BY(mMutex);
};

class FocusListener : public BnVrFocusListener {
public:
    FocusListener(Heard& heard, int type) : mHeard(heard), mType(type) {}
    Status onVrFocusChanged(int32_t type) override {
        mHeard.focus(mType, type);
        return Status::ok();
    }

private:
    Heard& mHeard;
    const int mType;
};

class TopListener : public BnVrTopActivityListener {
public:
    explicit TopListener(Heard& heard) : mHeard(heard) {}
    Status onVrTopActivityChanged(const String16& activity, const ImmersiveApp& app) override {
        mHeard.top(activity, app);
        return Status::ok();
    }

private:
    Heard& mHeard;
};

class ListenerApp {
public:
    ListenerApp()
          : mService(android::waitForService<IVrFocusService>(String16("vrfocus"))),
            mFocus{new FocusListener(mHeard, 0), new FocusListener(mHeard, 1)},
            mTop(new TopListener(mHeard)) {}

    Json::Value answer(const Json::Value& request) {
        const std::string op = request["op"].asString();
        Json::Value answer;
        if (op == "heard") {
            answer = mHeard.json();
        } else if (op == "status") {
            answer = mHeard.activities();
        } else {
            answer = call(op, request["type"].asInt());
        }
        answer["id"] = request["id"];
        return answer;
    }

private:
    Json::Value call(const std::string& op, int type) {
        bool result = false;
        Status status = Status::fromExceptionCode(Status::EX_UNSUPPORTED_OPERATION);
        if (op == "registerFocus") {
            status = mService->registerVrFocusListener(mFocus[type], type, &result);
        } else if (op == "registerTop") {
            status = mService->registerVrTopActivityListener(mTop, &result);
        } else if (op == "unregisterTop") {
            status = mService->unregisterVrTopActivityListener(&result);
        }
        Json::Value answer(Json::objectValue);
        answer["exception"] = status.exceptionCode();
        answer["result"] = status.isOk() && result;
        return answer;
    }

    Heard mHeard;
    const sp<IVrFocusService> mService;
    const sp<FocusListener> mFocus[kTypes];
    const sp<TopListener> mTop;
};

}  // namespace

int main() {
    sim::LineChannel channel{android::base::unique_fd(sim::ChildProcess::kPassedFd)};
    android::ProcessState::self()->startThreadPool();
    ListenerApp app;
    Json::Value ready(Json::objectValue);
    ready["event"] = "ready";
    if (!channel.send(ready)) _exit(1);
    Json::Value request;
    while (channel.receive(&request) == sim::LineChannel::Read::Message)
        if (!channel.send(app.answer(request))) break;
    // Binder threads still use what stands on this stack.
    _exit(0);
}

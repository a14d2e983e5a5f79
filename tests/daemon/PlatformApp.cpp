// SPDX-License-Identifier: Apache-2.0
//
// daemon_test_platform: stands in for the platform service that its name (argv[0]) says.
//
//      activity        every question for the top activity is answered by the next number, so that
//                      a notice shows when it was sent; eight digits, so that all have one size
//      vrfocushelper   keeps the numbers that it was told
//      permission      grants all, but first reports a state of its own to the daemon that asks
//
// Driven by JSON lines on descriptor 3; says {"event": "ready"} when it is published. Each of these
// is answered by a line with the same id:
//
//      observed   -              waits for the daemon's observer     {"observed": B}
//      tell       {"count": N}   has the daemon notify N times       {"told": N}
//      status     -              what callers have brought about     see below
//
// Ends when the other side of that descriptor is closed.
#include <android-base/thread_annotations.h>
#include <binder/IPermissionController.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <unistd.h>
#include <utils/String16.h>
#include <utils/String8.h>
#include <velmar/internal/IVrFocusService.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <mutex>
#include <semaphore>
#include <string>

#include "process/ChildProcess.h"
#include "process/LineChannel.h"
#include "services/ActivityManager.h"
#include "services/FocusHelper.h"

namespace {

using android::sp;
using android::String16;
using android::binder::Status;
using velmar::internal::IVrFocusService;

constexpr std::chrono::seconds kPatience{20};

class Numbering : public sim::ActivityManager {
public:
    using sim::ActivityManager::ActivityManager;

    Status getTopActivityOnPrimaryDisplay(String16* out) override {
        char number[16];
        std::snprintf(number, sizeof(number), "%08d", ++mNumber);
        *out = String16(number);
        return Status::ok();
    }
    /** Asked at the start of the pass that a notice of services sets going. */
    Status hasForegroundPanelService(int32_t /*pid*/, int32_t /*uid*/, bool* out) override {
        mRoom.release();
        *out = false;
        return Status::ok();
    }
    /** No notice of these is lost: few of them are under way at any time. */
    size_t tell(const sim::Notice& notice) override {
        return mRoom.try_acquire_for(kPatience) ? sim::ActivityManager::tell(notice) : 0;
    }

private:
    static constexpr int kUnderWay = 64;

    std::atomic<int> mNumber{0};
    std::counting_semaphore<kUnderWay> mRoom{kUnderWay};
};

class RecordingHelper : public sim::FocusHelper {
public:
    Status onTopActivityChanged(const std::unique_ptr<String16>& packageName) override {
        const std::lock_guard lock(mMutex);
        mNumbers.append(packageName == nullptr ? "" : android::String8(*packageName).c_str());
        return Status::ok();
    }
    /** {"tops": ["N", ...]} */
    Json::Value status() const override {
        const std::lock_guard lock(mMutex);
        Json::Value value(Json::objectValue);
        value["tops"] = mNumbers;
        return value;
    }

private:
    mutable std::mutex mMutex;  // guards what was told
    Json::Value mNumbers GUARDED_BY(mMutex) = Json::arrayValue;
};

class CallingPermissionController : public android::BnPermissionController,
                                    public sim::SimulatedService {
public:
    bool checkPermission(const String16& /*permission*/, int32_t pid, int32_t /*uid*/) override {
        const auto service = android::interface_cast<IVrFocusService>(
                android::defaultServiceManager()->checkService(String16("vrfocus")));
        // A state that nobody acts upon; the daemon takes it from the process that it names alone.
        const Status reported = service->setAppState(getpid(), /*state=*/1);
        const std::lock_guard lock(mMutex);
        mAskedAbout.append(pid);
        mExceptions.append(reported.exceptionCode());
        return true;
    }
    int32_t noteOp(const String16&, int32_t, const String16&) override { return 0; }
    void getPackagesForUid(const uid_t, android::Vector<String16>&) override {}
    bool isRuntimePermission(const String16&) override { return false; }
    int getPackageUid(const String16&, int) override { return -1; }

    /** {"pids": [P, ...], "exceptions": [E, ...]}: whom it was asked about, how its calls ended. */
    Json::Value status() const override {
        const std::lock_guard lock(mMutex);
        Json::Value value(Json::objectValue);
        value["pids"] = mAskedAbout;
        value["exceptions"] = mExceptions;
        return value;
    }

private:
    mutable std::mutex mMutex;  // guards both
    Json::Value mAskedAbout GUARDED_BY(mMutex) = Json::arrayValue;
    Json::Value mExceptions GUARDED_BY(mMutex) = Json::arrayValue;
};

/** One object seen from its two sides; binder keeps it alive. */
struct Part {
    sp<android::IBinder> binder;
    sim::SimulatedService* control = nullptr;
};

template <typename Service, typename... Arguments>
Part part(Arguments&... arguments) {
    const sp<Service> service(new Service(arguments...));
    return {service, service.get()};
}

Part partOf(const std::string& name, const sim::WorldReplica& world) {
    if (name == "activity") return part<Numbering>(world);
    if (name == "vrfocushelper") return part<RecordingHelper>();
    if (name == "permission") return part<CallingPermissionController>();
    return {};
}

Json::Value answer(sim::SimulatedService& control, const Json::Value& request) {
    const std::string op = request["op"].asString();
    Json::Value answer(Json::objectValue);
    if (op == "status") {
        answer = control.status();
    } else if (op == "observed") {
        answer["observed"] = control.awaitObserver(request["pid"].asInt(), kPatience);
    } else if (op == "tell") {
        sim::Notice notice;
        notice.kind = sim::Notice::Kind::ForegroundServices;
        notice.pid = getpid();
        int told = 0;
        for (int left = request["count"].asInt(); left > 0; --left)
            told += static_cast<int>(control.tell(notice));
        answer["told"] = told;
    }
    answer["id"] = request["id"];
    return answer;
}

}  // namespace

int main(int, char** argv) {
    sim::LineChannel channel{android::base::unique_fd(sim::ChildProcess::kPassedFd)};
    const sim::WorldReplica world;
    const Part part = partOf(argv[0], world);
    if (part.binder == nullptr) return 2;
    android::ProcessState::self()->startThreadPool();
    const String16 name(argv[0]);
    if (android::defaultServiceManager()->addService(name, part.binder) != android::OK) _exit(1);
    Json::Value ready(Json::objectValue);
    ready["event"] = "ready";
    if (!channel.send(ready)) _exit(1);
    Json::Value request;
    while (channel.receive(&request) == sim::LineChannel::Read::Message)
        if (!channel.send(answer(*part.control, request))) break;
    // Binder threads still use what stands on this stack.
    _exit(0);
}

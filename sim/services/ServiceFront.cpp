// SPDX-License-Identifier: Apache-2.0
// What a simulated service is published as.
#include "services/ServiceFront.h"

#include <binder/IPCThreadState.h>
#include <binder/Parcel.h>
#include <binder/Status.h>
#include <unistd.h>

#include <utility>
#include <vector>

#include "world/ServiceMethods.h"

namespace sim {

using android::IBinder;
using android::Parcel;
using android::status_t;
using android::String16;
using android::binder::Status;

namespace {

constexpr uint32_t kAllCodes = 0;
constexpr size_t kLongestRandomReply = 64;
constexpr size_t kParcelUnit = 4;

/** Half of the replies begin as a success does: what follows is then read as a result. */
std::string randomReply(std::mt19937& chance) {
    const size_t size = std::uniform_int_distribution<size_t>(0, kLongestRandomReply)(chance);
    std::string bytes(size, '\0');
    const bool looksFine = chance() % 2 == 0;
    for (size_t at = looksFine ? sizeof(int32_t) : 0; at < size; ++at)
        bytes[at] = static_cast<char>(chance());
    return bytes;
}

/** The codes that a plan is for. */
std::vector<uint32_t> codesOf(const FaultPlan& plan, const std::string& service) {
    if (plan.method == FaultPlan::kAllMethods) return {kAllCodes};
    std::vector<uint32_t> codes;
    for (const ServiceMethod& method : methodsOf(service)) {
        const bool isMeant = plan.method == FaultPlan::kRegistration ? method.isRegistration
                                                                     : method.name == plan.method;
        if (isMeant) codes.push_back(method.code);
    }
    return codes;
}

}  // namespace

ServiceFront::ServiceFront(std::string name, const android::sp<IBinder>& service)
      : mName(std::move(name)), mService(service), mDescriptor(service->getInterfaceDescriptor()) {}

void ServiceFront::set(const FaultPlan& plan) {
    if (plan.kind == FaultPlan::Kind::Descriptor) {
        mDescriptor = String16(plan.descriptor.c_str());
        mIsMisnamed = mDescriptor != mService->getInterfaceDescriptor();
        return;
    }
    std::lock_guard lock(mMutex);
    if (plan.kind == FaultPlan::Kind::None) mPlans.clear();
    if (plan.kind == FaultPlan::Kind::None || plan.isOfNotices()) return;
    for (const uint32_t code : codesOf(plan, mName))
        mPlans.insert_or_assign(code, Planned{plan, std::mt19937(plan.seed)});
}

Json::Value ServiceFront::callers() const {
    Json::Value pids(Json::arrayValue);
    std::lock_guard lock(mMutex);
    for (const int pid : mCallers)
        pids.append(pid);
    return pids;
}

status_t ServiceFront::onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                                  uint32_t flags) {
    if (code < IBinder::FIRST_CALL_TRANSACTION || code > IBinder::LAST_CALL_TRANSACTION) {
        // The interface asked for is what callers see, not what stands behind.
        return code == IBinder::INTERFACE_TRANSACTION
                       ? BBinder::onTransact(code, data, reply, flags)
                       : mService->transact(code, data, reply, flags);
    }
    noteCaller();
    if (mIsMisnamed && !data.checkInterface(this)) return android::BAD_TYPE;
    const std::optional<Step> step = nextStep(code);
    if (!step) return mService->transact(code, data, reply, flags);
    switch (step->plan.kind) {
        case FaultPlan::Kind::Error:
            return refuse(step->plan, reply);
        case FaultPlan::Kind::Truncated: {
            const status_t status = mService->transact(code, data, reply, flags);
            if (status != android::OK) return status;
            return reply->setDataSize(reply->dataSize() / 2 / kParcelUnit * kParcelUnit);
        }
        case FaultPlan::Kind::Random:
            return reply->setData(reinterpret_cast<const uint8_t*>(step->bytes.data()),
                                  step->bytes.size());
        default:
            // The only other kind that is kept for calls.
            _exit(1);
    }
}

void ServiceFront::noteCaller() {
    const int pid = android::IPCThreadState::self()->getCallingPid();
    std::lock_guard lock(mMutex);
    mCallers.insert(pid);
}

std::optional<ServiceFront::Step> ServiceFront::nextStep(uint32_t code) {
    std::lock_guard lock(mMutex);
    auto found = mPlans.find(code);
    if (found == mPlans.end()) found = mPlans.find(kAllCodes);
    if (found == mPlans.end()) return {};
    Planned& planned = found->second;
    Step step{planned.plan, ""};
    if (planned.plan.kind == FaultPlan::Kind::Random) step.bytes = randomReply(planned.chance);
    if (planned.plan.times > 0 && --planned.plan.times == 0) mPlans.erase(found);
    return step;
}

status_t ServiceFront::refuse(const FaultPlan& plan, Parcel* reply) const {
    if (plan.transport != 0) return plan.transport;
    return Status::fromExceptionCode(plan.exception, android::String8("planned"))
            .writeToParcel(reply);
}

}  // namespace sim

// SPDX-License-Identifier: Apache-2.0
//
// What a simulated service is published as: it hands every call on to the service behind it, or,
// when a fault is set, lets it go wrong.
//
//      caller ──▶ ServiceFront ──▶ Bn...      the caller's identity and the reply pass through
//                      │
//                  FaultPlans                 a method's own first, else the one for all
//
// Only calls of the service's interface go wrong; a ping, a dump, a question for the interface and
// so on do not. A wrong descriptor is another matter: interfaces are not compared when a service is
// looked up, so callers find such a service, and every call is refused for its interface token.
//
// Threads: any. mMutex guards plans and callers; no call is handed on under it.
#pragma once

#include <android-base/thread_annotations.h>
#include <binder/Binder.h>
#include <utils/StrongPointer.h>

#include <map>
#include <mutex>
#include <optional>
#include <random>
#include <set>
#include <string>

#include "services/FaultSwitch.h"

namespace sim {

class ServiceFront : public android::BBinder, public FaultSwitch {
public:
    /** name: as in methodsOf(). */
    ServiceFront(std::string name, const android::sp<android::IBinder>& service);

    void set(const FaultPlan& plan) override;
    [[nodiscard]] Json::Value callers() const override;

    /** The service's own, or the one of a plan that was set before anybody could call. */
    const android::String16& getInterfaceDescriptor() const override { return mDescriptor; }

protected:
    android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                                 uint32_t flags) override;

private:
    struct Planned {
        FaultPlan plan;
        std::mt19937 chance;
    };
    /** What happens to one call. */
    struct Step {
        FaultPlan plan;
        std::string bytes;  // a random reply
    };

    void noteCaller();
    [[nodiscard]] std::optional<Step> nextStep(uint32_t code);
    [[nodiscard]] android::status_t refuse(const FaultPlan& plan, android::Parcel* reply) const;

    const std::string mName;
    const android::sp<android::IBinder> mService;
    android::String16 mDescriptor;  // written before it is published, read by anybody
    bool mIsMisnamed = false;       // likewise

    mutable std::mutex mMutex;                              // guards plans and callers
    std::map<uint32_t, Planned> mPlans GUARDED_BY(mMutex);  // by code; 0: for all
    std::set<int> mCallers GUARDED_BY(mMutex);
};

}  // namespace sim

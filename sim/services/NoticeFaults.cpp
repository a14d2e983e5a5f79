// SPDX-License-Identifier: Apache-2.0
// What becomes of the notices that a service is to send.
#include "services/NoticeFaults.h"

#include <algorithm>
#include <utility>

namespace sim {

std::vector<Notice> NoticeFaults::set(const FaultPlan& plan) {
    mPlan = plan;
    return std::exchange(mHeld, {});
}

std::vector<Notice> NoticeFaults::pass(const Notice& notice) {
    std::vector<Notice> out;
    switch (mPlan.kind) {
        case FaultPlan::Kind::DropNotices:
            break;
        case FaultPlan::Kind::DoubleNotices:
            out = {notice, notice};
            break;
        case FaultPlan::Kind::ReorderNotices:
            mHeld.push_back(notice);
            if (mPlan.times == 1) out.assign(mHeld.rbegin(), mHeld.rend());
            if (mPlan.times == 1) mHeld.clear();
            break;
        default:
            return {notice};
    }
    if (mPlan.times > 0 && --mPlan.times == 0) mPlan = {};
    return out;
}

}  // namespace sim

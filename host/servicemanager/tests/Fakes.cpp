// SPDX-License-Identifier: Apache-2.0
//
// Fakes: the life and death of a binder.
#include "Fakes.h"

#include <algorithm>

namespace servicemanager::test {

using android::status_t;

status_t Death::link(const android::sp<Recipient>& recipient) {
    if (mDead) return android::DEAD_OBJECT;
    mRecipients.push_back(recipient);
    return android::OK;
}

status_t Death::unlink(const android::wp<Recipient>& recipient) {
    if (mDead) return android::DEAD_OBJECT;
    const auto found = std::find(mRecipients.begin(), mRecipients.end(), recipient);
    if (found == mRecipients.end()) return android::NAME_NOT_FOUND;
    mRecipients.erase(found);
    return android::OK;
}

void Death::happen(android::IBinder* who) {
    mDead = true;
    for (const auto& recipient : std::exchange(mRecipients, {})) {
        if (const auto strong = recipient.promote()) strong->binderDied(who);
    }
}

}  // namespace servicemanager::test

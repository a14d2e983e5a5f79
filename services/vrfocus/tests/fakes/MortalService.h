// SPDX-License-Identifier: Apache-2.0
//
// Mortal service: an in-process stub that can be killed.
//
// A local object cannot die before its process does, so the runtime takes no death requests for
// one. This one does, ends the test at one with a cookie or flags, and die() delivers the notices
// on the calling thread. Any thread.
#pragma once

#include <android-base/thread_annotations.h>
#include <binder/IBinder.h>
#include <log/log.h>

#include <algorithm>
#include <functional>
#include <mutex>
#include <utility>
#include <vector>

namespace NQS::OS {

template <typename Stub>
class MortalService : public Stub {
public:
    using DeathRecipient = android::IBinder::DeathRecipient;

    /** Run by each link request once it is on record. */
    std::function<void()> onLinked = [] {};
    /** What each link request answers; it is on record all the same. */
    android::status_t linkAnswer = android::OK;

    android::status_t linkToDeath(const android::sp<DeathRecipient>& recipient, void* cookie,
                                  uint32_t flags) override EXCLUDES(mMutex) {
        LOG_ALWAYS_FATAL_IF(cookie != nullptr || flags != 0, "linked with cookie or flags");
        {
            const std::lock_guard<std::mutex> lock(mMutex);
            mRecipients.push_back(recipient);
        }
        onLinked();
        return linkAnswer;
    }

    android::status_t unlinkToDeath(const android::wp<DeathRecipient>& recipient, void* cookie,
                                    uint32_t flags,
                                    android::wp<DeathRecipient>* outRecipient) override
            EXCLUDES(mMutex) {
        LOG_ALWAYS_FATAL_IF(cookie != nullptr || flags != 0 || outRecipient != nullptr,
                            "unlinked with cookie, flags or the wish for the recipient");
        const std::lock_guard<std::mutex> lock(mMutex);
        const auto link = std::find_if(mRecipients.begin(), mRecipients.end(),
                                       [&](auto& linked) { return linked == recipient.promote(); });
        if (link == mRecipients.end()) return android::NAME_NOT_FOUND;
        mRecipients.erase(link);
        return android::OK;
    }

    /** Tells everyone who is linked, once. */
    void die() EXCLUDES(mMutex) {
        for (const auto& recipient : takeRecipients()) {
            recipient->binderDied(android::wp<android::IBinder>(this));
        }
    }

    /** What die() would tell; a notice that is under way can be told later, or twice. */
    std::vector<android::sp<DeathRecipient>> takeRecipients() EXCLUDES(mMutex) {
        const std::lock_guard<std::mutex> lock(mMutex);
        return std::exchange(mRecipients, {});
    }

    size_t links() EXCLUDES(mMutex) {
        const std::lock_guard<std::mutex> lock(mMutex);
        return mRecipients.size();
    }

private:
    std::mutex mMutex;
    std::vector<android::sp<DeathRecipient>> mRecipients GUARDED_BY(mMutex);
};

}  // namespace NQS::OS

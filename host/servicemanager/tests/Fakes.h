// SPDX-License-Identifier: Apache-2.0
//
// Fakes: binders that die when told, callers of any uid, and watchers that remember.
#pragma once

#include <android/os/BnServiceCallback.h>
#include <binder/Binder.h>
#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

#include "../Access.h"

namespace servicemanager::test {

/** The part of a remote binder that the service manager sees: its death. */
class Death {
public:
    using Recipient = android::IBinder::DeathRecipient;

    android::status_t link(const android::sp<Recipient>& recipient);
    android::status_t unlink(const android::wp<Recipient>& recipient);

    /** Later links fail. */
    void happen(android::IBinder* who);

    /** Links that stand. */
    [[nodiscard]] size_t links() const { return mRecipients.size(); }

private:
    bool mDead = false;
    std::vector<android::wp<Recipient>> mRecipients;
};

/** A base with its links to death replaced. */
template <typename BASE>
class Mortal : public BASE {
public:
    using Recipient = android::IBinder::DeathRecipient;

    android::status_t linkToDeath(const android::sp<Recipient>& recipient, void* /*cookie*/,
                                  uint32_t /*flags*/) override {
        return mDeath.link(recipient);
    }
    android::status_t unlinkToDeath(const android::wp<Recipient>& recipient, void* /*cookie*/,
                                    uint32_t /*flags*/, android::wp<Recipient>* /*out*/) override {
        return mDeath.unlink(recipient);
    }

    void die() { mDeath.happen(this); }
    [[nodiscard]] size_t links() const { return mDeath.links(); }

private:
    Death mDeath;
};

using FakeService = Mortal<android::BBinder>;

class FakeWatcher : public Mortal<android::os::BnServiceCallback> {
public:
    using Notice = std::pair<std::string, android::sp<android::IBinder>>;

    android::binder::Status onRegistration(const std::string& name,
                                           const android::sp<android::IBinder>& binder) override {
        mNotices.emplace_back(name, binder);
        return android::binder::Status::ok();
    }

    /** What it was told since the last question. */
    std::vector<Notice> take() { return std::exchange(mNotices, {}); }

private:
    std::vector<Notice> mNotices;
};

/** Access of a service manager that runs as `ownUid`, called by whom the test says. */
class FakeAccess : public Access {
public:
    FakeAccess(uid_t ownUid, const Caller* caller) : Access(ownUid), mCaller(caller) {}
    [[nodiscard]] Caller caller() const override { return *mCaller; }

private:
    const Caller* mCaller;
};

}  // namespace servicemanager::test

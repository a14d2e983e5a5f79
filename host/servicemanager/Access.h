// SPDX-License-Identifier: Apache-2.0
//
// Access: who may do what with the service manager. Every such question is answered here.
//
// Policy: the service manager's own user may add any name, be the session an ordinary user's or
// root's. Everybody else may too, but for apps (app ids, which begin at 10000 for each Android
// user): an app that took the name of a system service would be believed by all. Everybody finds
// and lists everything, but for isolated apps, which find only what was added for them.
#pragma once

#include <sys/types.h>

#include <string>

namespace servicemanager {

/** Who made the call that is being served. */
struct Caller {
    /** 0 in a one-way call. Nothing is decided by it. */
    pid_t debugPid;
    uid_t uid;
};

class Access {
public:
    /** `ownUid`: the one that the service manager's own calls come from. */
    explicit Access(uid_t ownUid) : mOwnUid(ownUid) {}
    virtual ~Access() = default;
    Access(const Access&) = delete;
    Access& operator=(const Access&) = delete;

    /** Of the call that this thread serves; this process itself outside of one. */
    [[nodiscard]] virtual Caller caller() const;

    [[nodiscard]] bool canAdd(const Caller& caller, const std::string& name) const;

    /** `allowIsolated`: what the service was added with. */
    [[nodiscard]] bool canFind(const Caller& caller, bool allowIsolated) const;

private:
    const uid_t mOwnUid;
};

}  // namespace servicemanager

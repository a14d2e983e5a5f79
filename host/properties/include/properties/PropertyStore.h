// SPDX-License-Identifier: Apache-2.0
//
// Property store: small named values that all processes of a machine share.
//
// Problem: processes ask for properties at every decision, and a person changes one while they
// run. A question must cost next to nothing, and a change must be seen by the next question.
//
//      setprop ── flock, write ──▶  file  ◀── mapped, read without a lock ── every process
//
// Each entry has two places for its value and a count of its changes; the count says which place
// holds. A writer fills the other place and then raises the count, so a writer that is killed at
// any point leaves the old value standing and nothing to repair. A reader copies the value and
// looks at the count again; when it has moved it copies anew.
//
// Usage:
//
//      PropertyStore store(defaultStorePlace());
//      const std::optional<std::string> value = store.get("ro.debuggable");
//      const Status status = store.set("debug.foo", "1");
//
// Threads: any, and any number of processes.
//
// Limits: kCapacity names, never removed (an empty value counts as unset). Whoever may write to
// the file is trusted with its contents, not with the readers' lives: they check every bound. Yet
// a file that is cut short in the instant between a reader's check of its size and its copy ends
// that reader; nothing but hands does that, set() never shrinks a file.
#pragma once

#include <android-base/thread_annotations.h>
#include <properties/StorePlace.h>

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace hostproperties {

class StoreMapping;

/** Names that a store has room for. A headset has about a thousand; a session sets a handful. */
inline constexpr size_t kCapacity = 512;

/** The outcome of a change. */
struct [[nodiscard]] Status {
    /** 0, or an errno value: EINVAL (name or value), EPERM (read-only), ENOSPC (full), EBADF (the
     * file is no store), or what the system answered. */
    int error = 0;
    /** What went wrong, with the file's name; empty when nothing did. */
    std::string message;

    [[nodiscard]] bool ok() const { return error == 0; }
};

class PropertyStore {
public:
    /** Opens nothing yet: the file may come, go and be replaced at any time. */
    explicit PropertyStore(StorePlace place);
    ~PropertyStore();

    PropertyStore(const PropertyStore&) = delete;
    PropertyStore& operator=(const PropertyStore&) = delete;

    /**
     * The value of a name; empty when it was never set, there is no store, or the file is none
     * (which is logged once).
     */
    [[nodiscard]] std::optional<std::string> get(std::string_view name) const;

    /**
     * Gives a name a value, making the store when there is none. Names that begin with "ro." are
     * set once. Needs permission to write to the file. Waits for other writers.
     */
    Status set(std::string_view name, std::string_view value);

    /** Calls `visit` with each name and value, in the order of their first setting. */
    void forEach(const std::function<void(const std::string& name, const std::string& value)>&
                         visit) const;

private:
    [[nodiscard]] std::shared_ptr<const StoreMapping> current() const;

    const StorePlace mPlace;

    // Guards the two below; held while a store is opened, never while one is read.
    mutable std::mutex mMutex;
    mutable std::shared_ptr<const StoreMapping> mMapping GUARDED_BY(mMutex);
    mutable bool mWarned GUARDED_BY(mMutex) = false;
};

}  // namespace hostproperties

// SPDX-License-Identifier: Apache-2.0
//
// Who listens to the daemon, and what they must hear.
//
// Problem: listeners are called one-way, from whichever thread of the daemon takes a notice; so
// nobody knows when they have heard it, and two notices at once may be told in either order.
//
// How: every notice of a platform service, and every XR session that an app reports, makes the
// daemon tell everybody once. The headset says so here (Headset::onNotification); then it is
// waited until all that listen have heard it, before anything else happens. So at every step the
// calls are counted exactly, and the last one must be what the daemon answers. One that was
// unregistered keeps its count: a call too many fails the session once anything later is heard.
//
// One thread. Errors as Headset's.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "session/Headset.h"
#include "session/Hearing.h"

namespace sim {

class Listening {
public:
    /** Until it ends the headset reports to it. From a booted headset that was told nothing yet. */
    explicit Listening(Headset& headset);
    ~Listening();
    Listening(const Listening&) = delete;
    Listening& operator=(const Listening&) = delete;

    /** Registers or unregisters; SessionError when the daemon refuses. */
    void startFocus(const std::string& app, int type);
    void stopFocus(const std::string& app, int type);
    void startTop(const std::string& app);
    /** The app has died, and its listeners with it. */
    void forget(const std::string& app);

    /** Waits until everybody has heard what is due, and nobody more. SessionError otherwise. */
    void settle();

    /** The last notice of every listener, and of the helper, must be this one. */
    void expectLast(const Told& due) const;

    /** "com.a hears: ...", for everybody who has heard something since the last call. */
    [[nodiscard]] std::vector<std::string> takeLines();

    /** The pids that are registered for a focus type now, ascending. */
    [[nodiscard]] std::vector<int> pidsOf(int type) const;

private:
    struct Ear {
        Hearing hearing;
        std::set<int> types;     // registered for
        bool top = false;        // registered
        std::map<int, int> due;  // focus calls ever due, by type
        int topDue = 0;
    };
    static constexpr const char* kHelper = "vrfocushelper";

    void notified(bool focusToo);
    void request(const std::string& app, const char* op, int type);
    void hear();
    /** What one has heard too much of (or, if asked for, too little); empty: nothing. */
    [[nodiscard]] static std::string wrong(const Ear& ear, bool tooLittle);
    [[nodiscard]] std::string wrong(bool tooLittle) const;

    Headset& mHeadset;
    std::map<std::string, Ear> mEars;  // by app, and the helper
};

}  // namespace sim

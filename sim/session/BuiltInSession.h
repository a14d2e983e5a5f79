// SPDX-License-Identifier: Apache-2.0
//
// The built-in session: a day of a headset in fifteen steps.
//
// Every step does something and states what the daemon must answer afterwards; the answers are
// asked by the shell, which may read focus state, until they hold. The first that does not hold
// within the headset's patience ends the session with a SessionError.
//
// The expected answers hold under apps' own uids and under one shared uid; where they differ, they
// follow from the uids that the apps really have.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "session/Answers.h"
#include "session/Headset.h"
#include "session/Timeline.h"

namespace sim {

class BuiltInSession {
public:
    /** Both outlive this object. The headset is booted and has no apps yet. */
    BuiltInSession(Headset& headset, Timeline& timeline);

    void play();

private:
    struct Step {
        std::string title;
        std::function<void()> act;
        Answers expected;
    };

    [[nodiscard]] std::vector<Step> steps();
    void appendGame(std::vector<Step>* steps);
    void appendBackground(std::vector<Step>* steps);
    void appendDisplay(std::vector<Step>* steps);
    void appendFaults(std::vector<Step>* steps);
    void askWithoutPermission();
    [[nodiscard]] std::vector<Timeline::App> rows() const;

    Headset& mHeadset;
    Timeline& mTimeline;
};

}  // namespace sim

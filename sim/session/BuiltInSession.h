// SPDX-License-Identifier: Apache-2.0
//
// The built-in session: a day of a headset in twenty steps.
//
// Every step does something and states what must come of it:
//
//      what the daemon answers     asked by the shell, which may read focus state, until it holds
//      what it told last           every listener of the shell and of the coach, and the helper
//      what it reported            the telemetry events of the step, each field of them
//
// The last step has the daemon dump its state. The first thing that does not hold within the
// headset's patience ends the session with a SessionError.
//
// What is expected holds under apps' own uids and under one shared uid; where it differs, it
// follows from the uids that the apps really have.
//
// BuiltInSteps.cpp holds the steps, BuiltInSession.cpp what is done with one.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "session/Answers.h"
#include "session/Headset.h"
#include "session/Listening.h"
#include "session/TelemetryFeed.h"
#include "session/Timeline.h"

namespace sim {

class BuiltInSession {
public:
    /** Both outlive this object. The headset is not booted yet, and has no apps. */
    BuiltInSession(Headset& headset, Timeline& timeline);

    /** The headset has been booted. */
    void play();

private:
    /** What listeners and telemetry are told: a package, and a process of the cast or none. */
    struct Situation {
        std::string top;
        std::string immersive;
    };
    struct Step {
        std::string title;
        std::function<void()> act;
        Answers expected;
        std::vector<Situation> reported = {};  // telemetry, in order
        /** Absent: as expected. What nobody is told of stays as it was told last. */
        std::optional<Situation> told = {};
    };

    [[nodiscard]] std::vector<Step> steps();
    void appendGame(std::vector<Step>* steps);
    void appendBackground(std::vector<Step>* steps);
    void appendDisplay(std::vector<Step>* steps);
    void appendListenersGo(std::vector<Step>* steps);
    void appendFaults(std::vector<Step>* steps);
    void appendDumps(std::vector<Step>* steps);

    void play(const Step& step);
    void checkReported(const Step& step);
    void askWithoutPermission();
    void unregisterTwice();
    void showDump(const std::vector<std::string>& arguments, const Situation& due);
    [[nodiscard]] Told toldOf(const Situation& situation) const;
    [[nodiscard]] std::vector<Timeline::App> rows() const;

    Headset& mHeadset;
    Timeline& mTimeline;
    std::unique_ptr<Listening> mListening;
    std::unique_ptr<TelemetryFeed> mTelemetry;
    size_t mReported = 0;  // events so far
};

}  // namespace sim

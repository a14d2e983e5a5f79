// SPDX-License-Identifier: Apache-2.0
//
// A headset of its own on which commands are played, with a witness beside it.
//
//      Trial trial(options);
//      for (line) if (!trial.play(line)) ...; trial.askEverything(); trial.finding()
//
// One thread. A wish to stop throws SessionStopped; everything else that goes wrong is a finding.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Silence.h"
#include "Witness.h"
#include "scenario/Player.h"

namespace oracle {

/** Why a trial cannot go on. */
struct Finding {
    enum class Kind {
        Disagreement,  // an answer of the daemon is not the one that was due
        Crash,         // the daemon has ended by itself
        Failure,       // a command ended otherwise than it says, or could not be done
        Illegal,       // a command that cannot stand there: the daemon has nothing to do with it
    };
    Kind kind = Kind::Illegal;
    std::string text;         // for people
    std::string expectation;  // commands that show it; empty: those before show it
};

class Trial {
public:
    explicit Trial(const sim::Headset::Options& options);

    /** Whether it went well; false from the first finding on. */
    [[nodiscard]] bool play(const std::string& line);
    /** Asks the daemon all that the oracle knows, unless no answer can be compared now. */
    [[nodiscard]] bool askEverything();

    [[nodiscard]] const std::optional<Finding>& finding() const { return mFinding; }
    /** Answers so far that the oracle has agreed with, and the one that it has not. */
    [[nodiscard]] size_t compared() const { return mWitness.compared(); }

private:
    [[nodiscard]] sim::Headset::Options listening(sim::Headset::Options options);
    [[nodiscard]] bool guarded(const std::function<void()>& act);
    /** How the daemon has ended by itself; empty: it has not. */
    [[nodiscard]] std::string endingOfDaemon();
    void boot();
    void findConnections();
    void askNow();
    void ask(Json::Value request);
    [[nodiscard]] Json::Value focusQuestion(int type);

    Witness mWitness;
    Silence mSilence;
    sim::scenario::Player mPlayer;
    sim::scenario::LineReader mReader{"random"};
    std::optional<Finding> mFinding;
};

}  // namespace oracle

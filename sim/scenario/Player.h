// SPDX-License-Identifier: Apache-2.0
//
// Plays commands on a headset of its own.
//
// The headset boots at the first command that needs it. After every action it is waited until
// nothing is in flight any more, so that one command's effects are all there before the next one
// starts, and runs of the same scenario are alike; "settle off" ends that.
//
// One thread. What does not hold throws ExpectationFailed, what cannot be done SessionError, a wish
// to stop SessionStopped; after each of the three the player can be used on.
#pragma once

#include <json/value.h>

#include <chrono>
#include <deque>
#include <map>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "scenario/Ears.h"
#include "scenario/Reporter.h"
#include "scenario/Script.h"
#include "session/EndWatch.h"
#include "session/Headset.h"
#include "session/TelemetryFeed.h"

namespace sim::scenario {

/** An expectation that did not hold in time, or a call with another status than was due. */
class ExpectationFailed : public std::runtime_error {
public:
    ExpectationFailed(Outcome outcome, std::vector<std::string> events)
          : std::runtime_error("expected " + outcome.expected + ", got " + outcome.got),
            mOutcome(std::move(outcome)),
            mEvents(std::move(events)) {}

    [[nodiscard]] const Outcome& outcome() const { return mOutcome; }
    /** What happened before it, the latest last. */
    [[nodiscard]] const std::vector<std::string>& events() const { return mEvents; }
    [[nodiscard]] const Place& place() const { return mPlace; }
    [[nodiscard]] const std::string& command() const { return mCommand; }
    void at(const Command& command) {
        mPlace = command.place;
        mCommand = command.text;
    }

private:
    Outcome mOutcome;
    std::vector<std::string> mEvents;
    Place mPlace;
    std::string mCommand;
};

class Player {
public:
    /** The reporter outlives the player. */
    Player(Headset::Options options, Reporter& reporter);

    void play(const Command& command);
    /** The command that is played now, or was last; null before the first. For messages. */
    [[nodiscard]] const Command* current() const { return mCurrent; }
    /** How many commands of blocks have been done, each time that they were. */
    [[nodiscard]] size_t doneInBlocks() const { return mDoneInBlocks; }
    void boot();
    /** Null until the headset has booted. */
    [[nodiscard]] Headset* booted() { return mHeadset.get(); }

    /** Readable when something that runs has ended by itself. */
    [[nodiscard]] std::vector<int> endFds();
    /**
     * Tells what has ended by itself, each once. The platform notices the end of an app; the names
     * of those are returned. Commands that need what else has ended will fail.
     */
    std::vector<std::string> tellEnded();

    // For commands.

    [[nodiscard]] Headset& headset() { return *mHeadset; }
    [[nodiscard]] Reporter& reporter() { return mReporter; }
    [[nodiscard]] Ears& ears() { return *mEars; }

    /** A call that an app makes; the answer holds "exception". */
    [[nodiscard]] Json::Value call(const std::string& app, Json::Value request);
    /** The same, as one who may read focus state and is no client itself. */
    [[nodiscard]] Json::Value observe(Json::Value request);
    /** Fails unless a call ended as its command says (status=..., ok if it does not). */
    void checkStatus(const std::string& what, const Json::Value& answer);

    /** The app has listeners, or had: what they hear is taken in. */
    void listensFrom(const std::string& app) { mListening.insert(app); }
    [[nodiscard]] bool hasListened(const std::string& app) const {
        return mListening.contains(app);
    }
    /** SessionError when telemetry can be taken in no more. */
    void checkTelemetry() { mTelemetry->check(); }
    /** Waits until every event reported so far has been taken in. */
    void takeAllTelemetry();

    /** Waits until nothing is in flight, and takes in what was heard. */
    void settle();
    /** Whether that is done after each command, and each notice within one. */
    void setSettling(bool on);

    /** The lines that the daemon has logged and `expect log` has not passed yet. */
    [[nodiscard]] std::vector<std::string> freshLog();
    /** So many of them have been passed. */
    void passLog(size_t lines);

    /** Properties to be there before anything is started. */
    void setEarlyProperty(const std::string& name, const std::string& value);
    /** Next free uid for an app whose uid nobody stated. */
    [[nodiscard]] int freeUid();
    void event(const std::string& text);
    /** What happened last, the latest at the end. */
    [[nodiscard]] std::vector<std::string> events() const {
        return {mEvents.begin(), mEvents.end()};
    }

private:
    void playOnce(const Command& command);
    void await(const Command& command);
    void takeIn();
    void checkAtRest(const Command& command);
    [[noreturn]] void fail(Outcome outcome);
    [[nodiscard]] bool isNoticed(const EndWatch::Ended& ended);

    Headset::Options mOptions;
    Reporter& mReporter;
    std::deque<std::string> mEvents;  // the latest, for failures
    std::map<std::string, std::string> mEarlyProperties;
    std::unique_ptr<Headset> mHeadset;
    std::unique_ptr<TelemetryFeed> mTelemetry;
    std::unique_ptr<Ears> mEars;
    EndWatch mEnds;
    std::set<std::string> mListening;
    size_t mTelemetryTaken = 0;  // events
    const Command* mCurrent = nullptr;
    size_t mDoneInBlocks = 0;
    bool mSettling = true;
    int mFreeUid = Scope::kFirstFreeUid;
    size_t mLogPassed = 0;  // lines
};

}  // namespace sim::scenario

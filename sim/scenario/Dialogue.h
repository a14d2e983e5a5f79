// SPDX-License-Identifier: Apache-2.0
//
// A headset that is led line by line, by a person or by a program.
//
//      a line ── LineReader ── Player ──▶ Reply: done, a mistake, not as expected, could not be
//      done
//                                     (what happens and what is answered goes to the Reporter)
//
// Whatever a line brings, the next one can be taken: names are what they are on the headset, not
// what a line that failed meant them to be. A few commands are for dialogues alone: help, list,
// save, quit.
//
// One thread.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "scenario/News.h"
#include "scenario/Player.h"
#include "scenario/Reporter.h"
#include "scenario/Script.h"

namespace sim::scenario {

struct Reply {
    enum class Kind {
        Nothing,      // an empty line, a comment
        Taken,        // part of a block, which is done at its end
        Done,         // and every expectation held
        Mistake,      // nothing was done
        Unmet,        // something is not as it is expected
        Failed,       // could not be done
        Interrupted,  // by the person, with the interrupt key
        NoHeadset,    // it did not boot
        Quit,
    };

    Kind kind = Kind::Nothing;
    int line = 0;                     // its number, from 1
    std::string command;              // as it was written
    Mistake mistake;                  // of a Mistake
    std::string message;              // of what failed
    Outcome outcome;                  // of what is Unmet
    std::vector<std::string> events;  // that led to an Unmet, the latest last

    /** What is wrong, for people who see their line and the events; empty when all is well. */
    [[nodiscard]] std::string complaint() const;
};

class Dialogue {
public:
    /** Boots nothing yet. The reporter outlives this object; file: the lines' name in mistakes. */
    Dialogue(Headset::Options options, Reporter& reporter, const std::string& file)
          : mReporter(reporter), mPlayer(std::move(options), reporter), mReader(file) {}

    /**
     * Takes a line without its end. SessionStopped when a signal comes that is not for the line
     * alone.
     */
    [[nodiscard]] Reply take(std::string_view line);

    /** At the end of the lines: a Mistake when a block is open, else Nothing. */
    [[nodiscard]] Reply finish();

    /** The interrupt key is for the line that is being done, not for the session. */
    void setInterruptible() { mIsInterruptible = true; }

    /** Processes that end while no line is taken; outlived by this object. */
    [[nodiscard]] News news() {
        return {[this] { return mPlayer.endFds(); }, [this] { tellEnded(); }};
    }

    /** For a person who has thought better of it. */
    void abandonBlock();
    /** For a person who types the head of a block anew when it was a mistake. */
    void forgetWrongBlocks() { mReader.forgetWrongBlocks(); }
    [[nodiscard]] bool isInBlock() const { return mReader.isInBlock(); }
    [[nodiscard]] const Scope& scope() const { return mReader.scope(); }

    /** Of all lines so far: 0 all were done, 1 one was unmet or failed, 2 a mistake only. */
    [[nodiscard]] int exitStatus() const { return mStatus; }

private:
    [[nodiscard]] Reply counted(Reply reply);
    [[nodiscard]] Reply answerTo(std::string_view line);
    void doOwn(const std::string& verb, const Arguments& arguments, Reply* reply);
    void attempt(const std::function<void()>& work, Reply* reply);
    void playTaken(Reply* reply);
    void keepWhatWasDone(size_t count, const std::string& status);
    void drop(Reply* reply);
    void matchScope(Scope scope);
    void tellEnded();
    void save(const std::string& path, Reply* reply);

    Reporter& mReporter;
    Player mPlayer;
    LineReader mReader;
    Scope mOutside;      // names as they were before the block that is open
    Scope mBeforeWrong;  // and before the outermost one in it whose head was a mistake
    Command mCommand;    // the one that is played, or was last
    int mLine = 0;
    int mStatus = 0;
    bool mIsInterruptible = false;
    std::string mDone;  // what was done, as a scenario
};

}  // namespace sim::scenario

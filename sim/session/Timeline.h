// SPDX-License-Identifier: Apache-2.0
//
// The session as people read it: what happened, then what the daemon answered.
//
//       3/15  The racer starts its XR session
//             - com.orbit.racer reports its XR session visible
//             > com.velmar.shellenv hears: top com.orbit.racer, immersive com.orbit.racer (pid
//             4102) app                   pid    uid  head  input com.velmar.shellenv  4101  10050
//             yes   yes com.orbit.racer      4102  10061  yes   yes immersive com.orbit.racer* top
//             com.orbit.racer
//
// What differs from the step before is bold, or marked with a star where there are no colours.
#pragma once

#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "session/Answers.h"

namespace sim {

class Timeline {
public:
    struct App {
        std::string name;
        int pid = 0;
        int uid = 0;
    };

    /** Writes to a stream that outlives it, flushing after every step. */
    Timeline(FILE* out, bool colours) : mOut(out), mColours(colours) {}

    /** Colours when the stream is a terminal that knows them and NO_COLOR is unset. */
    [[nodiscard]] static bool wantsColours(FILE* out);

    void line(const std::string& text);
    void ready(const std::string& name, int pid);
    /** A row about a process that runs: what it does here. */
    void process(const std::string& name, int pid, int uid, const std::string& remark);
    void step(int number, int total, const std::string& title);
    void event(const std::string& text);
    /** What somebody was told by the daemon. */
    void heard(const std::string& text);
    /** Lines of a program's output, shown as they are. */
    void block(const std::string& text);
    /** apps in the order of their rows; those that the answers do not hold have ended. */
    void answers(const std::vector<App>& apps, const Answers& answers);
    /** Goes to standard error. */
    void failure(const std::string& text);
    void success(const std::string& text);

private:
    [[nodiscard]] std::string styled(const char* style, const std::string& text) const;
    [[nodiscard]] std::string cell(const std::string& text, bool changed, size_t width) const;
    [[nodiscard]] std::string row(const App& app, const Answers& answers, size_t width) const;

    FILE* const mOut;
    const bool mColours;
    std::optional<Answers> mBefore;
};

}  // namespace sim

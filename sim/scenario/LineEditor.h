// SPDX-License-Identifier: Apache-2.0
//
// Lines that a person types at a terminal, with editing, history and completion.
//
//      read() ── libedit ── our reading of one character, which waits for keys and for signals
//
// The person's ~/.editrc is followed. The history is kept in a file between sessions; where that
// cannot be read or written, there is none.
//
// One thread; one object at a time.
#pragma once

#include <android-base/unique_fd.h>
#include <histedit.h>

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "scenario/Completion.h"
#include "scenario/HistoryFile.h"
#include "scenario/News.h"
#include "scenario/Terminal.h"
#include "session/StopSignals.h"

namespace sim::scenario {

class LineEditor {
public:
    using Completer = std::function<Completion(std::string_view line)>;

    struct Ended {};    // the end key, on an empty line
    struct Cleared {};  // the interrupt key
    using Result = std::variant<std::string, Ended, Cleared>;

    /**
     * historyFile: empty for none. Terminal and signals outlive this object. News that comes while
     * a line is typed is shown above it.
     */
    LineEditor(Terminal& terminal, StopSignals& stops, Completer completer, News news,
               std::string historyFile);
    ~LineEditor();
    LineEditor(const LineEditor&) = delete;
    LineEditor& operator=(const LineEditor&) = delete;

    /** A line without its end. SessionStopped when a signal other than SIGINT comes. */
    [[nodiscard]] Result read(const std::string& prompt);

    /** $XDG_STATE_HOME/headset/history, or below ~/.local/state; empty when there is neither. */
    [[nodiscard]] static std::string usualHistoryFile();

private:
    static LineEditor& of(EditLine* line);
    static char* promptOf(EditLine* line);
    static int readCharacter(EditLine* line, wchar_t* out);
    static unsigned char completeLine(EditLine* line, int key);

    [[nodiscard]] bool awaitKey();
    void followTerminal();
    void showNews();
    unsigned char complete();
    void show(const std::vector<std::string>& words) const;
    void remember(const std::string& line);

    Terminal& mTerminal;
    StopSignals& mStops;
    const Completer mCompleter;
    const News mNews;
    const HistoryFile mHistoryFile;
    std::string mPrompt;
    int mStopped = 0;  // the signal that ended the reading of a line
    android::base::unique_fd mTerminalSignals;
    std::unique_ptr<EditLine, void (*)(EditLine*)> mLine;
    std::unique_ptr<History, void (*)(History*)> mHistory;
};

}  // namespace sim::scenario

// SPDX-License-Identifier: Apache-2.0
// Lines that a person types at a terminal.
#include "scenario/LineEditor.h"

#include <locale.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cwchar>
#include <utility>

#include "scenario/Words.h"
#include "session/SessionError.h"

#ifdef __has_feature
#if __has_feature(address_sanitizer)
#define VRFOCUS_LEAK_CHECK
#include <sanitizer/lsan_interface.h>
#endif
#endif

namespace sim::scenario {
namespace {

constexpr size_t kScreenWidth = 80;

/** What is allocated while one exists is no leak to the leak sanitizer. */
struct LeaksOfTheLibrary {
#ifdef VRFOCUS_LEAK_CHECK
    LeaksOfTheLibrary() {
        __lsan_disable();
    }
    ~LeaksOfTheLibrary() {
        __lsan_enable();
    }
#else
    // Not trivial, so that a variable of it is not unused.
    LeaksOfTheLibrary() {}
    ~LeaksOfTheLibrary() {}
#endif
};

/** Size changes, and coming back from being suspended, are read as SIGINT is. */
sigset_t terminalSignals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGWINCH);
    sigaddset(&set, SIGCONT);
    return set;
}

/** What all the words begin with. */
std::string commonStart(const std::vector<std::string>& words) {
    std::string start = words.front();
    for (const std::string& word : words) {
        const auto [end, other] =
                std::mismatch(start.begin(), start.end(), word.begin(), word.end());
        start.erase(end, start.end());
    }
    return start;
}

}  // namespace

LineEditor::LineEditor(Terminal& terminal, StopSignals& stops, Completer completer, News news,
                       std::string historyFile)
      : mTerminal(terminal),
        mStops(stops),
        mCompleter(std::move(completer)),
        mNews(std::move(news)),
        mHistoryFile(std::move(historyFile)),
        mLine(nullptr, el_end),
        mHistory(history_init(), history_end) {
    setlocale(LC_CTYPE, "C.UTF-8");
    const sigset_t set = terminalSignals();
    sigprocmask(SIG_BLOCK, &set, nullptr);
    mTerminalSignals.reset(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
    FILE* screen = mTerminal.screen();
    mLine.reset(el_init_fd("headset", stdin, screen, screen, mTerminal.keysFd(), STDOUT_FILENO,
                           STDOUT_FILENO));
    if (mLine == nullptr || mHistory == nullptr) {
        throw SessionError("this terminal cannot be used");
    }
    EditLine* line = mLine.get();
    el_set(line, EL_CLIENTDATA, this);
    el_set(line, EL_PROMPT, &LineEditor::promptOf);
    el_set(line, EL_EDITOR, "emacs");
    el_set(line, EL_SIGNAL, 0);
    // Between two lines the end key is one as others are: the terminal would leave nothing of it.
    el_set(line, EL_SETTY, "-x", "eof=", nullptr);
    el_set(line, EL_GETCFN, &LineEditor::readCharacter);
    {
        const LeaksOfTheLibrary ignored;  // it never frees the names of functions
        el_set(line, EL_ADDFN, "headset-complete", "completes the word", &LineEditor::completeLine);
    }
    el_set(line, EL_BIND, "^I", "headset-complete", nullptr);
    el_set(line, EL_BIND, "^R", "em-inc-search-prev", nullptr);
    el_set(line, EL_HIST, history, mHistory.get());
    HistEvent event;
    history(mHistory.get(), &event, H_SETSIZE, HistoryFile::kKeptLines);
    history(mHistory.get(), &event, H_SETUNIQUE, 1);
    mHistoryFile.load(mHistory.get());
    el_source(line, nullptr);
}

LineEditor::~LineEditor() {
    const sigset_t set = terminalSignals();
    mLine.reset();
    sigprocmask(SIG_UNBLOCK, &set, nullptr);
}

LineEditor::Result LineEditor::read(const std::string& prompt) {
    mPrompt = prompt;
    mStopped = 0;
    int count = 0;
    // Keys are keys from the moment on at which the prompt is seen: else the end key, pressed at
    // once, would be taken by the terminal.
    el_set(mLine.get(), EL_PREP_TERM, 1);
    const char* typed = el_gets(mLine.get(), &count);
    if (mStopped != 0) {
        el_reset(mLine.get());
        std::fputs(mStopped == SIGINT ? "^C\n" : "\n", mTerminal.screen());
        std::fflush(mTerminal.screen());
        if (mStopped != SIGINT) throw SessionStopped(mStopped);
        return Cleared{};
    }
    if (typed == nullptr || count <= 0) {
        std::fputs("\n", mTerminal.screen());
        std::fflush(mTerminal.screen());
        return Ended{};
    }
    std::string line(typed, static_cast<size_t>(count));
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r'))
        line.pop_back();
    remember(line);
    return line;
}

std::string LineEditor::usualHistoryFile() {
    const auto folder = [](const char* variable) {
        const char* value = getenv(variable);
        // Relative paths are to be ignored there.
        return value == nullptr || *value != '/' ? std::string() : std::string(value);
    };
    std::string state = folder("XDG_STATE_HOME");
    if (state.empty() && !folder("HOME").empty()) state = folder("HOME") + "/.local/state";
    return state.empty() ? "" : state + "/headset/history";
}

void LineEditor::remember(const std::string& line) {
    const std::string kept(trimmed(line));
    if (kept.empty()) return;
    HistEvent event;
    history(mHistory.get(), &event, H_ENTER, kept.c_str());
    mHistoryFile.append(kept);
}

LineEditor& LineEditor::of(EditLine* line) {
    void* self = nullptr;
    el_get(line, EL_CLIENTDATA, &self);
    return *static_cast<LineEditor*>(self);
}

char* LineEditor::promptOf(EditLine* line) {
    return of(line).mPrompt.data();
}

int LineEditor::readCharacter(EditLine* line, wchar_t* out) {
    LineEditor& self = of(line);
    mbstate_t state{};
    while (self.awaitKey()) {
        char byte = 0;
        const auto size = self.mTerminal.readByte(&byte);
        // The interrupt key has the terminal forget those that were pressed before it.
        if (!size) continue;
        if (*size == 0) return 0;
        const size_t length = mbrtowc(out, &byte, 1, &state);
        if (length == 1 || (length == 0 && byte == '\0')) return 1;
        // What is no UTF-8 is no key.
        if (length == static_cast<size_t>(-1)) state = {};
    }
    return -1;
}

bool LineEditor::awaitKey() {
    while (mStopped == 0) {
        std::vector<pollfd> watched{{mTerminal.keysFd(), POLLIN, 0},
                                    {mStops.fd(), POLLIN, 0},
                                    {mTerminalSignals.get(), POLLIN, 0}};
        for (const int fd : mNews.fds())
            watched.push_back({fd, POLLIN, 0});
        TEMP_FAILURE_RETRY(poll(watched.data(), watched.size(), /*timeout=*/-1));
        if (watched[1].revents != 0) mStopped = mStops.take();
        if (watched[2].revents != 0) followTerminal();
        const bool isNews = std::any_of(watched.begin() + 3, watched.end(),
                                        [](const pollfd& each) { return each.revents != 0; });
        if (mStopped == 0 && isNews) showNews();
        if (mStopped == 0 && watched[0].revents != 0) return true;
    }
    return false;
}

void LineEditor::followTerminal() {
    signalfd_siginfo info{};
    if (TEMP_FAILURE_RETRY(::read(mTerminalSignals.get(), &info, sizeof(info))) != sizeof(info)) {
        return;
    }
    if (info.ssi_signo == SIGCONT) {
        // Whoever had the terminal meanwhile has left it in a mode of their own.
        el_set(mLine.get(), EL_PREP_TERM, 0);
        el_set(mLine.get(), EL_PREP_TERM, 1);
    } else {
        el_resize(mLine.get());
    }
    el_set(mLine.get(), EL_REFRESH);
}

void LineEditor::showNews() {
    const char* clearToEnd = nullptr;
    el_get(mLine.get(), EL_GETTC, "ce", &clearToEnd);
    const bool canClear = clearToEnd != nullptr && *clearToEnd != '\0';
    std::fputs(canClear ? ("\r" + std::string(clearToEnd)).c_str() : "\n", mTerminal.screen());
    try {
        mNews.tell();
    } catch (const SessionStopped& stopped) {
        // The library, from within which this is called, lets no exception through.
        mStopped = stopped.signal();
    }
    el_set(mLine.get(), EL_REFRESH);
}

unsigned char LineEditor::completeLine(EditLine* line, int key) {
    static_cast<void>(key);
    return of(line).complete();
}

unsigned char LineEditor::complete() {
    const LineInfo* info = el_line(mLine.get());
    const Completion found =
            mCompleter({info->buffer, static_cast<size_t>(info->cursor - info->buffer)});
    if (found.words.empty()) return CC_ERROR;
    std::string more = commonStart(found.words).substr(found.typed);
    if (found.words.size() == 1 && found.words.front().back() != '=') more += ' ';
    if (more.empty()) {
        show(found.words);
        return CC_REDISPLAY;
    }
    return el_insertstr(mLine.get(), more.c_str()) == 0 ? CC_REFRESH : CC_ERROR;
}

void LineEditor::show(const std::vector<std::string>& words) const {
    size_t width = 0;
    for (const std::string& word : words)
        width = std::max(width, word.size() + 2);
    const size_t columns = std::max<size_t>(1, kScreenWidth / width);
    std::string text = "\n";
    for (size_t index = 0; index < words.size(); ++index) {
        const bool isLast = index + 1 == words.size() || (index + 1) % columns == 0;
        text += words[index] + (isLast ? "\n" : std::string(width - words[index].size(), ' '));
    }
    std::fputs(text.c_str(), mTerminal.screen());
    std::fflush(mTerminal.screen());
}

}  // namespace sim::scenario

// SPDX-License-Identifier: Apache-2.0
// The session as people read it.
#include "session/Timeline.h"

#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <sstream>

namespace sim {
namespace {

const char* const kBold = "\033[1m";
const char* const kDim = "\033[2m";
const char* const kRed = "\033[31m";
const char* const kGreen = "\033[32m";
const char* const kReset = "\033[0m";
const char* const kIndent = "       ";
constexpr size_t kNumberWidth = 7;   // a pid, a uid
constexpr size_t kVerdictWidth = 6;  // "input", "yes*"

std::string rightAligned(const std::string& text, size_t width) {
    return std::string(width > text.size() ? width - text.size() : 0, ' ') + text;
}

std::string leftAligned(const std::string& text, size_t width) {
    return text + std::string(width > text.size() ? width - text.size() : 0, ' ');
}

std::string orNone(const std::string& name) {
    return name.empty() ? "none" : name;
}

std::string verdictText(const Answers& answers, const std::string& name, bool Verdict::*type) {
    const auto found = answers.focus.find(name);
    if (found == answers.focus.end()) return "";
    return found->second.*type ? "yes" : "-";
}

}  // namespace

bool Timeline::wantsColours(FILE* out) {
    const char* terminal = getenv("TERM");
    return isatty(fileno(out)) == 1 && getenv("NO_COLOR") == nullptr && terminal != nullptr &&
           std::strcmp(terminal, "dumb") != 0;
}

void Timeline::line(const std::string& text) {
    std::fprintf(mOut, "%s\n", text.c_str());
    std::fflush(mOut);
}

void Timeline::ready(const std::string& name, int pid) {
    line("  " + styled(kGreen, "ready") + "  " + leftAligned(name, 20) + " pid " +
         std::to_string(pid));
}

void Timeline::process(const std::string& name, int pid, int uid, const std::string& remark) {
    line("  " + leftAligned(name, 24) + " pid " + leftAligned(std::to_string(pid), kNumberWidth) +
         " uid " + leftAligned(std::to_string(uid), kNumberWidth) + " " + remark);
}

void Timeline::step(int number, int total, const std::string& title) {
    line("\n" + rightAligned(std::to_string(number) + "/" + std::to_string(total), 5) + "  " +
         styled(kBold, title));
}

void Timeline::event(const std::string& text) {
    line(kIndent + styled(kDim, "- " + text));
}

void Timeline::heard(const std::string& text) {
    line(kIndent + styled(kGreen, "> ") + text);
}

void Timeline::block(const std::string& text) {
    std::istringstream lines(text);
    for (std::string each; std::getline(lines, each);)
        line(kIndent + styled(kDim, "| ") + each);
}

void Timeline::answers(const std::vector<App>& apps, const Answers& answers) {
    size_t width = 0;
    for (const App& app : apps)
        width = std::max(width, app.name.size());
    line(kIndent + styled(kDim, leftAligned("app", width) + rightAligned("pid", kNumberWidth) +
                                        rightAligned("uid", kNumberWidth) + "  " +
                                        leftAligned("head", kVerdictWidth) + "input"));
    for (const App& app : apps)
        line(kIndent + row(app, answers, width));
    const bool immersiveChanged = mBefore && mBefore->immersive != answers.immersive;
    const bool topChanged = mBefore && mBefore->top != answers.top;
    line(kIndent + styled(kDim, "immersive ") +
         cell(orNone(answers.immersive), immersiveChanged, 0) + styled(kDim, "   top ") +
         cell(orNone(answers.top), topChanged, 0));
    mBefore = answers;
}

void Timeline::failure(const std::string& text) {
    std::fprintf(stderr, "\n%s  %s\n", styled(kRed, "FAILED").c_str(), text.c_str());
}

void Timeline::success(const std::string& text) {
    line("\n" + styled(kGreen, "OK") + "  " + text);
}

std::string Timeline::styled(const char* style, const std::string& text) const {
    return mColours ? style + text + kReset : text;
}

std::string Timeline::cell(const std::string& text, bool changed, size_t width) const {
    if (!changed) return leftAligned(text, width);
    if (!mColours) return leftAligned(text + "*", width);
    const std::string padding(width > text.size() ? width - text.size() : 0, ' ');
    return styled(kBold, text) + padding;
}

std::string Timeline::row(const App& app, const Answers& answers, size_t width) const {
    std::string text = leftAligned(app.name, width) +
                       rightAligned(std::to_string(app.pid), kNumberWidth) +
                       rightAligned(std::to_string(app.uid), kNumberWidth) + "  ";
    if (!answers.focus.contains(app.name)) return text + "(gone)";
    for (bool Verdict::*type : {&Verdict::head, &Verdict::input}) {
        const std::string now = verdictText(answers, app.name, type);
        const bool changed = mBefore && verdictText(*mBefore, app.name, type) != now;
        text += cell(now, changed, type == &Verdict::head ? kVerdictWidth : 0);
    }
    return text;
}

}  // namespace sim

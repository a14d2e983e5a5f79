// SPDX-License-Identifier: Apache-2.0
// A headset that a person leads from a terminal.
#include "scenario/Prompt.h"

#include <cstdio>
#include <variant>

#include "scenario/Dialogue.h"
#include "scenario/LineEditor.h"
#include "scenario/Terminal.h"
#include "scenario/TextReporter.h"
#include "session/SessionError.h"

namespace sim::scenario {
namespace {

constexpr const char* kPrompt = "headset> ";
constexpr const char* kBlockPrompt = "    ...> ";

int lead(Dialogue& dialogue, LineEditor& editor, Timeline& timeline) {
    timeline.line(
            "A simulated headset. help lists the commands, the tabulator completes them, quit\n"
            "ends the session; try:\n"
            "  start game permissions=read-focus\n"
            "  front game\n"
            "  list");
    while (true) {
        const auto typed = editor.read(dialogue.isInBlock() ? kBlockPrompt : kPrompt);
        if (std::holds_alternative<LineEditor::Ended>(typed)) return 0;
        if (std::holds_alternative<LineEditor::Cleared>(typed)) {
            dialogue.abandonBlock();
            continue;
        }
        const Reply reply = dialogue.take(std::get<std::string>(typed));
        const std::string complaint = reply.complaint();
        if (!complaint.empty()) timeline.complaint(complaint);
        if (reply.kind == Reply::Kind::Mistake) dialogue.forgetWrongBlocks();
        if (reply.kind == Reply::Kind::Quit) return 0;
        if (reply.kind == Reply::Kind::NoHeadset) return 1;
    }
}

}  // namespace

int runPrompt(const Headset::Options& options) {
    try {
        Terminal terminal(*options.stack.stops);
        Timeline timeline(terminal.screen(), Timeline::wantsColours(stdout));
        TextReporter reporter(timeline, /*echo=*/false);
        Dialogue dialogue(options, reporter, "");
        dialogue.setInterruptible();
        LineEditor editor(
                terminal, *options.stack.stops,
                [&](std::string_view line) { return complete(line, dialogue.scope()); },
                dialogue.news(), LineEditor::usualHistoryFile());
        return lead(dialogue, editor, timeline);
    } catch (const SessionError& error) {
        std::fprintf(stderr, "headset: %s\n", error.what());
        return 1;
    } catch (const SessionStopped& stopped) {
        return 128 + stopped.signal();
    }
}

}  // namespace sim::scenario

// SPDX-License-Identifier: Apache-2.0
// headset --stdin [--json]
#include "scenario/StandardInput.h"

#include <signal.h>

#include <unistd.h>
#include <cstdio>

#include <string>

#include "scenario/Dialogue.h"
#include "scenario/InputLines.h"
#include "scenario/JsonReporter.h"
#include "scenario/OutputLines.h"
#include "scenario/TextReporter.h"
#include "session/SessionError.h"

namespace sim::scenario {
namespace {

constexpr const char* kName = "stdin";

/** Takes line after line; show is given each reply. The exit status. */
template <typename Begin, typename Show>
int takeAll(Dialogue& dialogue, InputLines& input, const Begin& begin, const Show& show) {
    const News news = dialogue.news();
    while (const auto line = input.next(news)) {
        begin(*line);
        const Reply reply = dialogue.take(*line);
        show(reply);
        if (reply.kind == Reply::Kind::Quit) return dialogue.exitStatus();
        if (reply.kind == Reply::Kind::NoHeadset) return dialogue.exitStatus();
    }
    show(dialogue.finish());
    return dialogue.exitStatus();
}

int takeAsJson(const Headset::Options& options, InputLines& input, StopSignals& stops) {
    OutputLines output(STDOUT_FILENO, stops);
    JsonReporter reporter(output);
    Dialogue dialogue(options, reporter, kName);
    return takeAll(
            dialogue, input,
            [&](const std::string& line) { reporter.begin(std::string(trimmed(line))); },
            [&](const Reply& reply) { reporter.reply(reply); });
}

int takeAsText(const Headset::Options& options, InputLines& input, StopSignals& stops) {
    Timeline timeline(stdout, Timeline::wantsColours(stdout), &stops);
    TextReporter reporter(timeline, /*echo=*/true);
    Dialogue dialogue(options, reporter, kName);
    const int status = takeAll(
            dialogue, input, [](const std::string&) {},
            [&](const Reply& reply) {
                const std::string complaint = reply.complaint();
                if (complaint.empty()) return;
                const std::string place = std::string(kName) + ":" + std::to_string(reply.line);
                timeline.error(place + ": " + complaint + "\n");
            });
    if (timeline.isLost()) throw SessionError("what was to be printed could not be written");
    return status;
}

}  // namespace

int runStandardInput(const Headset::Options& options, bool json) {
    StopSignals& stops = *options.stack.stops;
    InputLines input(STDIN_FILENO, STDOUT_FILENO, stops);
    try {
        return json ? takeAsJson(options, input, stops) : takeAsText(options, input, stops);
    } catch (const SessionStopped& stopped) {
        if (stopped.signal() != SIGPIPE) Timeline::stopped(stopped.signal());
        return 128 + stopped.signal();
    } catch (const SessionError& error) {
        std::fprintf(stderr, "headset: %s\n", error.what());
        return 1;
    }
}

}  // namespace sim::scenario

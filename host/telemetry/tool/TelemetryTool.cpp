// SPDX-License-Identifier: Apache-2.0
//
// Telemetry tool.
#include "TelemetryTool.h"

#include <errno.h>

#include <optional>

#include "../EventStream.h"
#include "EventSchemas.h"
#include "EventText.h"
#include "SinkFile.h"

namespace hosttelemetry {

namespace {

constexpr int kOk = 0;
constexpr int kFailure = 1;
constexpr int kUsageError = 2;

constexpr const char* kUsage =
        "usage: telemetry [--follow] [--json] [FILE]\n"
        "\n"
        "Prints the telemetry events in FILE, else in the file that HOST_TELEMETRY names, a line\n"
        "each. Events without a description beside this program are shown as bytes.\n"
        "\n"
        "  --follow   go on with each event as it comes, also when the file is not there yet\n"
        "  --json     lines of JSON\n";

struct Options {
    bool help = false;
    bool follow = false;
    bool json = false;
    std::string file;
};

std::optional<Options> parse(const std::vector<std::string>& arguments, const std::string& sink,
                             std::string* mistake) {
    Options options;
    if (arguments.size() == 1 && arguments[0] == "--help") {
        options.help = true;
        return options;
    }
    for (const std::string& argument : arguments) {
        if (argument == "--follow") {
            options.follow = true;
        } else if (argument == "--json") {
            options.json = true;
        } else if (argument.empty() || argument.starts_with('-')) {
            *mistake = "unknown option '" + argument + "'";
            return std::nullopt;
        } else if (!options.file.empty()) {
            *mistake = "more than one file: '" + argument + "'";
            return std::nullopt;
        } else {
            options.file = argument;
        }
    }
    if (options.file.empty()) options.file = sink;
    if (options.file.empty()) {
        *mistake = "no file is named, and HOST_TELEMETRY is not set";
        return std::nullopt;
    }
    return options;
}

/** One run: from the file to the lines. */
class Printer {
public:
    Printer(const Options& options, const ToolEnvironment& environment, std::ostream& out,
            std::ostream& err)
          : mOptions(options),
            mHangUpFd(environment.hangUpFd),
            mFile(options.file),
            mSchemas(environment.schemas),
            mOut(out),
            mErr(err) {}

    [[nodiscard]] int run() {
        for (;;) {
            const SinkFile::Status status = readNew();
            const bool mayCome = mOptions.follow && status.error == ENOENT;
            if (status.error != 0 && !mayCome) return fail(status.message);
            mOut.flush();
            if (!mOut) return fail("cannot write the output");
            if (!mOptions.follow) break;
            tellDamage();
            if (!mFile.waitForChange(mHangUpFd)) return kOk;
        }
        // Nobody will write the rest of a last line, as far as this run can know.
        if (mStream.isInsideLine()) mStream.startAnew();
        tellDamage();
        return kOk;
    }

private:
    [[nodiscard]] SinkFile::Status readNew() {
        return mFile.readNew([this](std::string_view piece, bool isFirst) {
            if (isFirst) mStream.startAnew();
            mStream.feed(piece);
        });
    }

    void print(const Event& event) {
        const auto decoded = mSchemas.decode(event);
        for (const std::string& problem : mSchemas.takeProblems())
            mErr << "telemetry: " << problem << '\n';
        mOut << (mOptions.json ? toJson(event, decoded) : toText(event, decoded)) << '\n';
    }

    void tellDamage() {
        const size_t damaged = mStream.damaged() - mTold;
        if (damaged == 0) return;
        mTold += damaged;
        mErr << "telemetry: " << mOptions.file << ": skipped what is no event (" << damaged
             << (damaged == 1 ? " place)\n" : " places)\n");
    }

    int fail(const std::string& what) {
        mErr << "telemetry: " << what << '\n';
        return kFailure;
    }

    const Options& mOptions;
    const int mHangUpFd;
    SinkFile mFile;
    EventSchemas mSchemas;
    EventStream mStream{[this](const Event& event) { print(event); }};
    size_t mTold = 0;
    std::ostream& mOut;
    std::ostream& mErr;
};

}  // namespace

int telemetry(const std::vector<std::string>& arguments, const ToolEnvironment& environment,
              std::ostream& out, std::ostream& err) {
    std::string mistake;
    const auto options = parse(arguments, environment.sink, &mistake);
    if (!options) {
        err << "telemetry: " << mistake << '\n' << kUsage;
        return kUsageError;
    }
    if (options->help) {
        out << kUsage;
        return kOk;
    }
    return Printer(*options, environment, out, err).run();
}

}  // namespace hosttelemetry

// SPDX-License-Identifier: Apache-2.0
//
// Options of dumpsys, from words.
#include "DumpsysOptions.h"

#include <android-base/parseint.h>
#include <android-base/strings.h>

#include <limits>

namespace tools {

using Action = DumpsysOptions::Action;
using std::chrono::milliseconds;

const char* const kDumpsysUsage =
        "usage: dumpsys [-t SEC | -T MS] [--pid] [SERVICE [ARGUMENTS]]\n"
        "       dumpsys [-t SEC | -T MS] [--pid] --skip SERVICES\n"
        "       dumpsys -l\n"
        "\n"
        "Prints what a service says about its state; without SERVICE, the names of all services\n"
        "and what each of them says, given \"-a\". ARGUMENTS go to the service as they stand.\n"
        "\n"
        "  -l               print the names of the running services only\n"
        "  -t SEC           wait so long for one service, in seconds (10 unless set)\n"
        "  -T MS            the same in milliseconds\n"
        "  --pid            print the process ids of services instead of what they say\n"
        "  --skip SERVICES  all services but these; several stand behind each other or with\n"
        "                   commas between them\n"
        "  --help           print this\n"
        "\n"
        "The environment variable BINDER_DRIVER names the binder device or the hub's socket.\n"
        "Exit status: 0; 1 when a service is missing, fails or does not answer in time; 2 for a\n"
        "wrong command line.\n";

namespace {

class Parser {
public:
    Parser(const std::vector<std::string>& words, std::string* error)
          : mWords(words), mError(error) {}

    std::optional<DumpsysOptions> parse() {
        while (mNext < mWords.size() && mWords[mNext].starts_with("-")) {
            const std::string& word = mWords[mNext++];
            if (word == "--") break;
            if (!parseOption(word)) return std::nullopt;
        }
        const bool understood = mSkip ? parseSkipped() : parseService();
        if (!understood || !choosesOne()) return std::nullopt;
        if (mHelp) mOptions.action = Action::Help;
        if (mList) mOptions.action = Action::List;
        return mOptions;
    }

private:
    bool parseOption(const std::string& word) {
        if (word == "--help") {
            mHelp = true;
        } else if (word == "-l") {
            mList = true;
        } else if (word == "--pid") {
            mOptions.pid = true;
        } else if (word == "--skip") {
            mSkip = true;
        } else if (word.starts_with("-t")) {
            return parseTimeout(word, "seconds", /*factor=*/1000);
        } else if (word.starts_with("-T")) {
            return parseTimeout(word, "milliseconds", /*factor=*/1);
        } else {
            return fail("unknown option '" + word + "'");
        }
        return true;
    }

    /** The number stands in the same word or is the next one. */
    bool parseTimeout(const std::string& word, const std::string& unit, int factor) {
        std::string number = word.substr(2);
        if (number.empty()) {
            if (mNext == mWords.size()) return fail(word + " wants a number of " + unit);
            number = mWords[mNext++];
        }
        int count = 0;
        if (!android::base::ParseInt(number, &count, /*min=*/1,
                                     std::numeric_limits<int>::max() / factor)) {
            return fail("invalid timeout (" + unit + "): '" + number + "'");
        }
        mOptions.timeout = milliseconds(count) * factor;
        return true;
    }

    bool parseSkipped() {
        for (; mNext < mWords.size(); mNext++) {
            for (std::string& name : android::base::Split(mWords[mNext], ",")) {
                if (!name.empty()) mOptions.skipped.insert(std::move(name));
            }
        }
        if (mOptions.skipped.empty()) return fail("--skip wants names of services");
        mOptions.arguments.add(android::String16("-a"));
        return true;
    }

    bool parseService() {
        if (mNext == mWords.size()) {
            mOptions.arguments.add(android::String16("-a"));
            return true;
        }
        mOptions.action = Action::One;
        mOptions.service = mWords[mNext++];
        for (; mNext < mWords.size(); mNext++) {
            const std::string& word = mWords[mNext];
            const android::String16 argument(word.data(), word.size());
            if (argument.size() == 0 && !word.empty()) {
                return fail("argument '" + word + "' is not UTF-8");
            }
            mOptions.arguments.add(argument);
        }
        return true;
    }

    /** -l and --help stand for themselves. */
    bool choosesOne() {
        const bool alone = mOptions.action == Action::All && !mSkip && !mOptions.pid;
        if (mList && !(alone && !mHelp)) return fail("-l goes with nothing else");
        if (mHelp && !alone) return fail("--help goes with nothing else");
        return true;
    }

    bool fail(const std::string& message) {
        *mError = message;
        return false;
    }

    const std::vector<std::string>& mWords;
    std::string* const mError;
    size_t mNext = 0;
    bool mHelp = false;
    bool mList = false;
    bool mSkip = false;
    DumpsysOptions mOptions;
};

}  // namespace

std::optional<DumpsysOptions> parseDumpsysOptions(const std::vector<std::string>& arguments,
                                                  std::string* error) {
    return Parser(arguments, error).parse();
}

}  // namespace tools

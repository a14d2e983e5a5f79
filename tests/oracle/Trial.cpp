// SPDX-License-Identifier: Apache-2.0
// A headset of its own on which commands are played, with a witness beside it.
#include "Trial.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <utility>

#include "Expectation.h"
#include "scenario/Vocabulary.h"
#include "session/SessionError.h"

namespace oracle {
namespace {

using sim::scenario::Command;
using sim::scenario::kObserver;
using sim::scenario::Mistake;

constexpr int kNullPointer = -4;
/** Of those that have ended the latest are asked about: the pids of others may be anybody's. */
constexpr size_t kEndedAskedAbout = 2;
constexpr std::chrono::milliseconds kEndAfterFailure(300);

/** The pids that stand in new lines of the daemon's log as those of nobody. */
std::set<int> missedIn(const std::string& file, uintmax_t oldSize) {
    static const std::string kBeginning = "Failed to read UID for PID ";
    std::ifstream log(file);
    log.seekg(static_cast<std::streamoff>(oldSize));
    std::set<int> pids;
    for (std::string line; std::getline(log, line);) {
        const size_t found = line.find(kBeginning);
        if (found == std::string::npos) continue;
        const char* number = line.data() + found + kBeginning.size();
        int pid = -1;
        std::from_chars(number, line.data() + line.size(), pid);
        pids.insert(pid);
    }
    return pids;
}

}  // namespace

Trial::Trial(const sim::Headset::Options& options) : mPlayer(listening(options), mSilence) {}

sim::Headset::Options Trial::listening(sim::Headset::Options options) {
    options.onFact = [this](const sim::Fact& fact) { mWitness.take(fact); };
    return options;
}

bool Trial::play(const std::string& line) {
    return guarded([&] {
        const auto result = mReader.take(line);
        if (const auto* mistake = std::get_if<Mistake>(&result)) {
            mFinding = Finding{Finding::Kind::Illegal, mistake->text(), ""};
        } else if (const auto* command = std::get_if<Command>(&result)) {
            if (command->form->pattern.verb() != "property") boot();
            mPlayer.play(*command);
            if (mPlayer.booted() != nullptr) findConnections();
        }
    });
}

void Trial::boot() {
    if (mPlayer.booted() != nullptr) return;
    mPlayer.boot();
    mPlayer.headset().awaitTrue("the daemon has found all services", [this] {
        findConnections();
        return mWitness.awaited().empty();
    });
    // The daemon is to know what the observer may before anything can take its permissions away.
    askNow();
}

void Trial::findConnections() {
    for (const std::string& service : std::set<std::string>(mWitness.awaited())) {
        if (mPlayer.headset().isDaemonConnected(service)) mWitness.found(service);
    }
}

bool Trial::askEverything() {
    return guarded([this] {
        if (mPlayer.booted() != nullptr && mWitness.compares()) askNow();
    });
}

void Trial::askNow() {
    ask(focusQuestion(/*type=*/kHeadTracking));
    ask(focusQuestion(/*type=*/kInputTracking));
    for (const char* question : {"getImmersiveApp", "getTopActivity", "getForegroundApps"})
        ask(sim::operation(question));
    const std::string log = mPlayer.headset().stack().folder().file("vrfocus.log");
    const uintmax_t size = std::filesystem::file_size(log);
    ask(sim::operation("dump"));
    mWitness.takeMissed(missedIn(log, size));
}

Json::Value Trial::focusQuestion(int type) {
    sim::Headset& headset = mPlayer.headset();
    Json::Value request = sim::operation("getClientFocusStatus");
    request["type"] = type;
    request["pids"] = Json::arrayValue;
    std::vector<int> ended;
    for (const std::string& name : headset.cast()) {
        if (name == kObserver) continue;
        if (headset.appRuns(name)) {
            request["pids"].append(headset.lastPidOf(name));
        } else {
            ended.push_back(headset.lastPidOf(name));
        }
    }
    const size_t count = std::min(ended.size(), kEndedAskedAbout);
    for (size_t at = ended.size() - count; at < ended.size(); ++at)
        request["pids"].append(ended[at]);
    return request;
}

void Trial::ask(Json::Value request) {
    if (mWitness.disagreement()) return;
    const std::string op = request["op"].asString();
    const Json::Value answer = mPlayer.observe(std::move(request));
    const int exception = answer["exception"].asInt();
    if (exception != 0 && !(op == "getImmersiveApp" && exception == kNullPointer))
        throw sim::SessionError(op + " is refused: " + sim::toLine(answer));
}

bool Trial::guarded(const std::function<void()>& act) {
    if (mFinding) return false;
    try {
        act();
    } catch (const sim::scenario::ExpectationFailed& failed) {
        mFinding = Finding{Finding::Kind::Failure, failed.command() + ": " + failed.what(), ""};
    } catch (const sim::SessionError& error) {
        mFinding = Finding{Finding::Kind::Failure, error.what(), ""};
    }
    if (const std::string ending = endingOfDaemon(); !ending.empty()) {
        mFinding = Finding{Finding::Kind::Crash, "vrfocus has ended by itself: " + ending,
                           "expect running daemon"};
    } else if (!mFinding && mWitness.disagreement()) {
        const Disagreement& found = *mWitness.disagreement();
        mFinding = Finding{Finding::Kind::Disagreement, textOf(found, mPlayer.headset()),
                           expectationFor(found, mPlayer.headset())};
    }
    return !mFinding;
}

std::string Trial::endingOfDaemon() {
    if (mPlayer.booted() == nullptr) return "";
    sim::ChildProcess* daemon = mPlayer.headset().stack().find(sim::Stack::kDaemon);
    if (daemon == nullptr || daemon->isHung()) return "";
    // Who calls it can know of its end before its parent does.
    const bool hasEnded = mFinding ? daemon->awaitEnd(kEndAfterFailure) : !daemon->running();
    return hasEnded ? daemon->ending() : "";
}

}  // namespace oracle

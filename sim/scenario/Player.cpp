// SPDX-License-Identifier: Apache-2.0
// Plays commands on a headset of its own.
#include "scenario/Player.h"

#include <fstream>
#include <utility>

#include "scenario/Vocabulary.h"
#include "session/KnownPackages.h"
#include "session/SessionError.h"

namespace sim::scenario {
namespace {

constexpr size_t kKeptEvents = 30;
constexpr const char* kObserverPackage = "com.velmar.observer";
constexpr int kObserverUid = 10999;

}  // namespace

Player::Player(Headset::Options options, Reporter& reporter)
      : mOptions(std::move(options)), mReporter(reporter) {
    mOptions.onEvent = [this](const std::string& text) { event(text); };
}

void Player::boot() {
    if (mHeadset != nullptr) return;
    for (const auto& [name, value] : mEarlyProperties)
        mOptions.stack.properties[name] = value;
    auto headset = std::make_unique<Headset>(mOptions);
    headset->install(kObserverPackage, kObserverUid,
                     {permissionOf("read-focus"), permissionOf("dump")});
    headset->install(kTerminal, headset->stack().toolUid(), {permissionOf("dump")});
    try {
        headset->boot();
    } catch (const SessionError& error) {
        // Its logs go with it.
        throw SessionError(std::string(error.what()) + "\n" + headset->stack().logTails());
    }
    headset->startApp({kObserver, kObserverPackage, headset->uidOf(kObserverPackage)});
    // The daemon has registered with services before anybody can find it.
    headset->ask(kObserver, operation("connect"));
    mTelemetry = std::make_unique<TelemetryFeed>(headset->stack());
    mEars = std::make_unique<Ears>();
    mHeadset = std::move(headset);
    setSettling(mSettling);
}

void Player::play(const Command& command) {
    // Some commands wait for nothing, and may be repeated for ever.
    if (mOptions.stack.stops != nullptr) mOptions.stack.stops->heed();
    if (command.form == nullptr) {
        for (int round = 0; round < command.repeats; ++round) {
            for (const Command& each : command.body) {
                play(each);
                if (each.form != nullptr) ++mDoneInBlocks;
            }
        }
        return;
    }
    const Command* const outer = std::exchange(mCurrent, &command);
    mReporter.command(command);
    try {
        playOnce(command);
    } catch (ExpectationFailed& failed) {
        if (failed.command().empty()) failed.at(command);
        throw;
    } catch (const SessionError&) {
        if (mHeadset != nullptr) mHeadset->stack().checkHub();
        throw;
    }
    if (outer != nullptr) mCurrent = outer;
}

void Player::playOnce(const Command& command) {
    const std::string verb = command.form->pattern.verb();
    if (verb != "property" && verb != "title") boot();
    if (command.form->play != nullptr) {
        const auto act = [&] { command.form->play(*this, command.arguments); };
        if (command.quietly) {
            mHeadset->quietly(act);
        } else {
            act();
        }
        if (mHeadset != nullptr && mSettling) settle();
    } else if (command.form->isNegative) {
        checkAtRest(command);
    } else {
        await(command);
    }
}

std::vector<int> Player::endFds() {
    return mHeadset == nullptr ? std::vector<int>() : mEnds.fds(*mHeadset);
}

int Player::freeUid() {
    while (mHeadset->isTaken(mFreeUid))
        ++mFreeUid;
    return mFreeUid++;
}

std::vector<std::string> Player::tellEnded() {
    std::vector<std::string> apps;
    if (mHeadset == nullptr) return apps;
    for (const EndWatch::Ended& ended : mEnds.take(*mHeadset)) {
        if (!isNoticed(ended)) {
            event(ended.text());
            continue;
        }
        apps.push_back(ended.name);
        try {
            mHeadset->crashApp(ended.name);
            if (mSettling) settle();
        } catch (const SessionError& error) {
            event(std::string("nobody was told: ") + error.what());
        }
    }
    return apps;
}

/** By the platform. With the hub, which an app may be seen to end of first, goes all of it. */
bool Player::isNoticed(const EndWatch::Ended& ended) {
    if (!ended.isApp || ended.name == kObserver) return false;
    try {
        mHeadset->stack().checkHub();
    } catch (const SessionError&) {
        return false;
    }
    return true;
}

void Player::await(const Command& command) {
    const std::chrono::duration<double> patience(mHeadset->stack().patience());
    const double seconds = secondsOf(command.arguments.text("within")).value_or(patience.count());
    Outcome outcome;
    const bool holds = mHeadset->stack().retry(
            [&] {
                takeIn();
                outcome = command.form->check(*this, command.arguments);
                return outcome.holds;
            },
            std::chrono::milliseconds(static_cast<long>(seconds * 1000)));
    if (!holds) fail(std::move(outcome));
    mReporter.held(outcome);
}

void Player::checkAtRest(const Command& command) {
    if (!mHeadset->stack().knowsQuiet()) {
        throw SessionError(
                "nobody can say whether something is still in flight: the hub hangs, or on a "
                "device its debug files (/sys/kernel/debug/binder, root's) cannot be read");
    }
    settle();
    Outcome outcome = command.form->check(*this, command.arguments);
    if (!outcome.holds) fail(std::move(outcome));
    mReporter.held(outcome);
}

void Player::fail(Outcome outcome) {
    throw ExpectationFailed(std::move(outcome), {mEvents.begin(), mEvents.end()});
}

void Player::settle() {
    mHeadset->settle();
    takeIn();
}

void Player::setSettling(bool on) {
    mSettling = on;
    mHeadset->settleNotices(on);
}

void Player::takeIn() {
    const auto take = [this](const std::string& who, const Json::Value& heard) {
        std::string text;
        for (const std::string& word : mEars->take(who, heard))
            text += " " + word;
        if (!text.empty()) event(who + (who == Ears::kTelemetry ? ":" : " hears:") + text);
    };
    for (const std::string& app : mListening) {
        if (mHeadset->responds(app)) take(app, mHeadset->ask(app, operation("heard")));
    }
    if (mHeadset->responds(Ears::kHelper)) {
        Stack& stack = mHeadset->stack();
        take(Ears::kHelper,
             stack.service(Ears::kHelper).request(operation("heard"), stack.patience()));
    }
    const Json::Value printed = mTelemetry->takePrinted();
    mTelemetryTaken += printed["heard"].size();
    take(Ears::kTelemetry, printed);
}

void Player::takeAllTelemetry() {
    const size_t reported = mTelemetry->countAll();
    mHeadset->awaitTrue("every telemetry event is shown", [&] {
        takeIn();
        checkTelemetry();
        return mTelemetryTaken >= reported;
    });
}

Json::Value Player::call(const std::string& app, Json::Value request) {
    return mHeadset->ask(app, std::move(request));
}

Json::Value Player::observe(Json::Value request) {
    if (!mHeadset->appRuns(kObserver)) {
        throw SessionError(
                "the daemon cannot be asked: the hub or the service manager went, and "
                "everything with it (restart it)");
    }
    return mHeadset->ask(kObserver, std::move(request));
}

void Player::checkStatus(const std::string& what, const Json::Value& answer) {
    const std::string due =
            mCurrent->arguments.has("status") ? mCurrent->arguments.text("status") : "ok";
    const std::string got = wordFor(statusNames(), answer["exception"].asInt());
    event(what + ": " + got);
    if (due == "any" || numberOf(statusNames(), due) == answer["exception"].asInt()) return;
    fail({false, "status " + due, "status " + got, got});
}

std::vector<std::string> Player::freshLog() {
    std::ifstream file(mHeadset->stack().folder().file("vrfocus.log"));
    std::vector<std::string> lines;
    size_t number = 0;
    for (std::string line; std::getline(file, line); ++number) {
        if (number >= mLogPassed) lines.push_back(line);
    }
    return lines;
}

void Player::passLog(size_t lines) {
    mLogPassed += lines;
}

void Player::setEarlyProperty(const std::string& name, const std::string& value) {
    mEarlyProperties[name] = value;
}

void Player::event(const std::string& text) {
    mEvents.push_back(text);
    if (mEvents.size() > kKeptEvents) mEvents.pop_front();
    mReporter.event(text);
}

}  // namespace sim::scenario

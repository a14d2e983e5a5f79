// SPDX-License-Identifier: Apache-2.0
// Random commands of the scenario language.
#include "scenario/RandomCommands.h"

#include <algorithm>
#include <sstream>
#include <utility>

namespace sim::scenario {
namespace {

constexpr int kMostApps = 10;  // at a time

std::string packageOf(const std::string& process) {
    return process.substr(0, process.find(':'));
}

std::string joinedWithCommas(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : ",") + word;
    return text;
}

/** What a role's first start takes besides its name. */
std::string optionsOf(const Role& role, const std::string& permissions) {
    std::string options = " uid=" + std::to_string(role.uid);
    if (role.isNative()) return options + " path=" + role.process;
    if (role.process != role.name) options += " process=" + role.process;
    if (role.packages != std::vector<std::string>{packageOf(role.process)})
        options += " packages=" + joinedWithCommas(role.packages);
    return permissions.empty() ? options : options + " permissions=" + permissions;
}

}  // namespace

RandomCommands::RandomCommands(uint64_t seed, RandomStart start)
      : mChance(seed),
        mApps(std::move(start.apps)),
        mActivities(std::move(start.activities)),
        mPanels(std::move(start.panels)),
        mIsBooted(start.isBooted),
        mCanReusePids(start.canReusePids),
        mCanAwait(start.canAwait),
        mHasHub(start.hasHub) {
    for (const auto& [name, uid] : start.packages)
        mRights.installForeign(name, uid);
    for (const int display : start.displays)
        mActivities.try_emplace(display);
    for (const std::string& process : start.away)
        mAway[process] = below(8);
    mIsDisplaySure = !isAway(kDisplay);
    for (const auto& [name, app] : mApps) {
        mUnsure.insert(name);
        for (const char* permission : {kReadFocus, kGrantTracking})
            mRights.mayBeDenied(app.uid, permission);
    }
}

const std::vector<RandomCommands::Kind>& RandomCommands::kinds() {
    using Self = RandomCommands;
    static const std::vector<Kind> kKinds{
            {40, &Self::start, true},
            {12, &Self::stop},
            {14, &Self::crash},
            {9, &Self::hang},
            {12, &Self::resume},
            {8, &Self::rename},
            {6, &Self::reuse, true},
            {90, &Self::report, true},
            {40, &Self::askFocus, true},
            {40, &Self::askOther, true},
            {24, &Self::listen, true},
            {10, &Self::unlisten, true},
            {50, &Self::grant, true},
            {4, &Self::install},
            {16, &Self::allow},
            {110, &Self::front},
            {40, &Self::back},
            {50, &Self::window},
            {40, &Self::panel},
            {24, &Self::display},
            {8, &Self::property},
            {40, &Self::quietly},
            {40, &Self::noticeOfActivities},
            {10, &Self::noticeOfDisplay},
            {20, &Self::noticeOfWindow},
            {8, &Self::say},
            {5, &Self::killService, true},
            {2, &Self::killDaemon, true},
            {3, &Self::restartGround},
            {8, &Self::refuseCalls},
            {10, &Self::replayNotices},
    };
    return kKinds;
}

std::string RandomCommands::next() {
    static const int kAll = [] {
        int sum = 0;
        for (const Kind& kind : kinds())
            sum += kind.weight;
        return sum;
    }();
    if (!std::exchange(mIsBooted, true) && oneIn(2))
        return std::string("property ro.debuggable ") + (oneIn(3) ? "0" : "1");
    if (!mNext.empty()) {
        std::string next = std::move(mNext.front());
        mNext.pop_front();
        return next;
    }
    if (std::string back = comeBack(); !back.empty()) return back;
    if (std::string end = answerAgain(); !end.empty()) return end;
    // Some kinds are always possible: "property" is one.
    while (true) {
        int drawn = below(kAll);
        const auto kind = std::find_if(kinds().begin(), kinds().end(), [&](const Kind& each) {
            drawn -= each.weight;
            return drawn < 0;
        });
        if (kind->needsDaemon && isAway(kDaemon)) continue;
        if (std::string text = (this->*kind->make)(); !text.empty()) return text;
    }
}

std::set<std::string> RandomCommands::wordsIn(const std::string& text) {
    std::set<std::string> words;
    std::istringstream parts(text);
    for (std::string word; std::getline(parts, word, ',');)
        words.insert(word);
    return words;
}

// Chance.

/** An app that runs and fits; empty when there is none. */
std::string RandomCommands::anApp(bool (*fits)(const App&)) {
    std::vector<std::string> names;
    for (const auto& [name, app] : mApps) {
        if (app.runs && fits(app)) names.push_back(name);
    }
    return names.empty() ? "" : oneOf(names);
}

/** One that does what it is told. */
std::string RandomCommands::anActive() {
    return anApp([](const App& app) { return !app.isHung; });
}

/** One that runs and is not held; empty when there is none. */
std::string RandomCommands::anOverlay() {
    std::vector<std::string> names;
    for (const auto& [name, app] : mApps) {
        if (app.runs && !app.isHung && randomOverlays().contains(name)) names.push_back(name);
    }
    return names.empty() ? "" : oneOf(names);
}

/** To be granted, or revoked: any, there or not, the main one among them. */
int RandomCommands::aDisplayFor(bool isGrant) {
    if (oneIn(3)) return below(kHighestDisplay + 2);
    if (isGrant) return oneOf(mActivities).first;
    return mGranted.empty() ? 0 : oneOf(mGranted);
}

int RandomCommands::aDisplayToShowOn() {
    if (!oneIn(3)) return 0;
    std::set<int> telling = mGranted;
    telling.insert(mLapsed.begin(), mLapsed.end());
    std::erase_if(telling, [this](int display) { return !mActivities.contains(display); });
    return telling.empty() || oneIn(3) ? oneOf(mActivities).first : oneOf(telling);
}

std::string RandomCommands::permissions(const std::string& wish) {
    if (wish != "?") return wish;
    std::vector<std::string> drawn;
    if (!oneIn(3)) drawn.emplace_back(kReadFocus);
    for (const char* permission : {kGrantTracking, "background-head", "background-input"}) {
        if (oneIn(6)) drawn.emplace_back(permission);
    }
    return joinedWithCommas(drawn);
}

// Apps.

std::string RandomCommands::start() {
    const auto running = std::count_if(mApps.begin(), mApps.end(),
                                       [](const auto& entry) { return entry.second.runs; });
    if (running >= kMostApps) return "";
    const Role& role = randomCast()[below(static_cast<int>(randomCast().size()))];
    const auto known = mApps.find(role.name);
    if (known != mApps.end() && known->second.runs) return "";
    const bool isAgain = known != mApps.end();
    if (isAgain && (known->second.uid != role.uid || known->second.process != role.process))
        return "";
    for (const std::string& package : role.packages) {
        if (mRights.isInstalled(package) && !mRights.isInstalledFor(package, role.uid)) return "";
    }
    const std::string drawn = isAgain ? "" : permissions(role.permissions);
    begin(role, drawn);
    return (role.isNative() ? "native " : "start ") + role.name + optionsOf(role, drawn) +
           (mCanReusePids && !role.isNative() ? " reusable=yes" : "");
}

void RandomCommands::begin(const Role& role, const std::string& permissions) {
    mApps[role.name] = {role.uid, role.process, /*runs=*/true, /*isHung=*/false, role.isNative()};
    mUnsure.erase(role.name);
    const std::set<std::string> held = wordsIn(permissions);
    for (const std::string& package : role.packages)
        mRights.install(package, role.uid, held);
}

void RandomCommands::end(const std::string& name) {
    mApps.at(name).runs = false;
    mApps.at(name).isHung = false;
    for (auto& [display, names] : mActivities)
        names.erase(name);
    mPanels.erase(name);
    std::erase_if(mListeners, [&](const auto& each) { return each.first.starts_with(name + " "); });
}

std::string RandomCommands::stop() {
    const std::string name = anActive();
    if (name.empty()) return "";
    end(name);
    return "stop " + name;
}

std::string RandomCommands::crash() {
    const std::string name = anApp([](const App&) { return true; });
    if (name.empty()) return "";
    end(name);
    return (oneIn(3) ? "kill " : "crash ") + name;
}

std::string RandomCommands::hang() {
    const std::string name = anActive();
    if (name.empty() || isAway(kDaemon)) return "";
    mApps.at(name).isHung = true;
    return "hang " + name;
}

std::string RandomCommands::resume() {
    const std::string name = anApp([](const App& app) { return app.isHung; });
    if (name.empty()) return "";
    mApps.at(name).isHung = false;
    return "resume " + name;
}

std::string RandomCommands::rename() {
    const std::string name = anActive();
    if (name.empty()) return "";
    mUnsure.insert(name);
    return "rename " + name + " " + oneOf(randomProcessNames());
}

std::string RandomCommands::reuse() {
    const std::string old = anApp([](const App& app) { return !app.isNative && !app.isHung; });
    if (!mCanReusePids || old.empty()) return "";
    const Role& role = randomCast()[below(static_cast<int>(randomCast().size()))];
    const bool isNew = !role.isNative() && !mApps.contains(role.name);
    if (!isNew || role.uid == mApps.at(old).uid) return "";
    for (const std::string& package : role.packages) {
        if (mRights.isInstalled(package)) return "";
    }
    const std::string drawn = permissions(role.permissions);
    end(old);
    begin(role, drawn);
    return "reuse " + old + " " + role.name + optionsOf(role, drawn);
}

// Calls.

RandomCommands::Answer RandomCommands::answerTo(const std::string& name,
                                                const std::string& permission) const {
    const App& app = mApps.at(name);
    if (mUnsure.contains(name)) return Answer::Unknown;
    const bool canAsk = !isAway(kPermission) && !mRefusing.contains(kPermission);
    return mRights.answerTo(app.uid, app.process, permission, canAsk);
}

std::string RandomCommands::status(const std::string& name, const std::string& permission,
                                   bool isIllegal) {
    const Answer answer = answerTo(name, permission);
    if (answer == Answer::Granted) return isIllegal ? " status=illegal-argument" : "";
    mRights.mayBeDenied(mApps.at(name).uid, permission);
    return answer == Answer::Refused ? " status=security" : " status=any";
}

std::string RandomCommands::report() {
    static const std::vector<std::string> kStates{"visible",  "visible",  "visible", "visible",
                                                  "stopping", "stopping", "1",       "3"};
    std::string name = anActive();
    if (name.empty()) return "";
    // Whoever is in front is likelier to have a session.
    const std::set<std::string>& inFront = mActivities.at(0);
    if (!inFront.empty() && !oneIn(3)) {
        const std::string other = oneOf(inFront);
        if (!mApps.at(other).isHung) name = other;
    }
    if (const std::string overlay = anOverlay(); !overlay.empty() && oneIn(4)) name = overlay;
    std::string text = "report " + name + " " + oneOf(kStates);
    const std::string other = anApp([](const App&) { return true; });
    if (oneIn(16) && other != name) text += " for=" + other + " status=security";
    return text;
}

std::string RandomCommands::askFocus() {
    const std::string name = anActive();
    if (name.empty()) return "";
    static const std::vector<std::string> kTypes{"head", "input"};
    const bool isIllegal = oneIn(16);
    std::string text =
            "ask " + name + " focus " + (isIllegal ? oneIn(2) ? "2" : "-1" : oneOf(kTypes));
    for (int more = below(4); more > 0; --more)
        text += " " + anApp([](const App&) { return true; });
    return text + status(name, kReadFocus, isIllegal);
}

std::string RandomCommands::askOther() {
    const std::string name = anActive();
    if (name.empty()) return "";
    static const std::vector<std::string> kQuestions{"immersive", "top", "foreground"};
    return "ask " + name + " " + oneOf(kQuestions) + status(name, kReadFocus);
}

std::string RandomCommands::listen() {
    static const std::vector<std::string> kWhat{"head", "input", "top"};
    const std::string name = anActive();
    if (name.empty()) return "";
    const std::string what = name + " " + oneOf(kWhat);
    const auto known = mListeners.find(what);
    const bool isTwice = known != mListeners.end() && known->second;
    const bool isUnsure = known != mListeners.end() && !known->second;
    const Answer answer = answerTo(name, kReadFocus);
    if (answer != Answer::Refused) mListeners[what] = answer == Answer::Granted || isTwice;
    const std::string sure = status(name, kReadFocus, isTwice);
    return "listen " + what + (isUnsure ? " status=any" : sure);
}

std::string RandomCommands::unlisten() {
    std::string what;
    if (!mListeners.empty() && !oneIn(4)) what = oneOf(mListeners).first;
    const std::string other = anActive();
    if (what.empty() && other.empty()) return "";
    if (what.empty()) what = other + (oneIn(2) ? " input" : " top");
    const std::string name = what.substr(0, what.find(' '));
    if (mApps.at(name).isHung) return "";
    const auto known = mListeners.find(what);
    const bool isMissing = known == mListeners.end();
    const bool isUnsure = !isMissing && !known->second;
    const Answer answer = answerTo(name, kReadFocus);
    if (answer == Answer::Granted) mListeners.erase(what);
    if (answer == Answer::Unknown && !isMissing) mListeners[what] = false;
    const std::string sure = status(name, kReadFocus, isMissing);
    return "unlisten " + what + (isUnsure ? " status=any" : sure);
}

std::string RandomCommands::grant() {
    const std::string name = anActive();
    // The daemon insists on the display manager when it grants others.
    const bool isGrant = !oneIn(3);
    const int display = mIsDisplaySure ? aDisplayFor(isGrant) : 0;
    if (name.empty()) return "";
    // Whoever may is preferred, so that much is granted.
    const Answer answer = answerTo(name, kGrantTracking);
    if (answer != Answer::Granted && !oneIn(4)) return "";
    if (!isGrant && answer != Answer::Refused) lapse(display);
    if (isGrant && answer != Answer::Refused && display != 0) mGranted.insert(display);
    return (isGrant ? "grant " : "revoke ") + name + " " + std::to_string(display) +
           status(name, kGrantTracking);
}

}  // namespace sim::scenario

// SPDX-License-Identifier: Apache-2.0
//
// What is known of a scenario's names at a line of it, before anything runs: which apps have been
// started and run and how, which packages are installed, which displays there are, so that mistakes
// are found at once. Also where the prompt's completion comes from.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>

namespace sim::scenario {

class Scope {
public:
    /** Apps that are started without a uid get this one and those after it. */
    static constexpr int kFirstFreeUid = 10100;

    /** How an app came to be, as far as its lines say. */
    struct Origin {
        std::optional<int> uid{};  // none: a free one
        std::string process{};
        bool isReusable = false;
    };

    void start(const std::string& name) {
        mApps[name] = true;
        mOrigins.erase(name);
    }
    void start(const std::string& name, Origin origin) {
        mApps[name] = true;
        mOrigins[name] = std::move(origin);
    }
    void end(const std::string& name) { mApps[name] = false; }
    void addPackage(const std::string& name) { mPackages.insert(name); }
    /** One that is installed keeps its uid. */
    void install(const std::string& package, std::optional<int> uid) {
        mInstalled.try_emplace(package, uid);
    }
    void addDisplay(int display) { mDisplays.insert(display); }
    void removeDisplay(int display) { mDisplays.erase(display); }
    /** From here on names cannot be known: something random runs. */
    void loosen() { mLoose = true; }
    /** A line was not understood: it may have installed a package, or added a display. */
    void doubt() { mDoubtful = true; }

    [[nodiscard]] bool runs(const std::string& name) const {
        const auto found = mApps.find(name);
        return found == mApps.end() ? mLoose : found->second || mLoose;
    }
    [[nodiscard]] bool mayStart(const std::string& name) const {
        const auto found = mApps.find(name);
        return found == mApps.end() || !found->second || mLoose;
    }
    [[nodiscard]] bool knows(const std::string& name) const {
        return mLoose || mApps.contains(name);
    }
    /** Whether packages, displays and origins are known for sure. */
    [[nodiscard]] bool isSure() const { return !mLoose && !mDoubtful; }
    [[nodiscard]] bool isInstalled(const std::string& package) const {
        return mInstalled.contains(package);
    }
    [[nodiscard]] std::optional<int> uidOfPackage(const std::string& package) const {
        const auto found = mInstalled.find(package);
        return found == mInstalled.end() ? std::nullopt : found->second;
    }
    [[nodiscard]] bool hasDisplay(int display) const { return mDisplays.contains(display); }
    /** Of its last start; null when that is not known. */
    [[nodiscard]] const Origin* originOf(const std::string& name) const {
        const auto found = mOrigins.find(name);
        return found == mOrigins.end() ? nullptr : &found->second;
    }

    /** By name; whether it runs. */
    [[nodiscard]] const std::map<std::string, bool>& apps() const { return mApps; }
    [[nodiscard]] const std::set<std::string>& packages() const { return mPackages; }

private:
    std::map<std::string, bool> mApps;
    std::map<std::string, Origin> mOrigins;
    std::set<std::string> mPackages;
    // With those that every headset has.
    std::map<std::string, std::optional<int>> mInstalled{{"com.velmar.observer", {}},
                                                         {"com.android.shell", {}}};
    std::set<int> mDisplays{0};
    bool mLoose = false;
    bool mDoubtful = false;
};

}  // namespace sim::scenario

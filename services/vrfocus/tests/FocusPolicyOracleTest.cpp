// SPDX-License-Identifier: Apache-2.0
//
// Policy against oracle: the same random worlds, asked of both.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "FocusOracle.h"
#include "FocusWorld.h"

namespace NQS::OS {
namespace {

// The sanitizers look for another kind of fault, at thirty times the cost.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define FOCUS_ORACLE_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define FOCUS_ORACLE_SANITIZED 1
#endif
#endif
#ifdef FOCUS_ORACLE_SANITIZED
constexpr int kStates = 10'000;
#else
constexpr int kStates = 100'000;
#endif
constexpr int kFirstPid = 11;
constexpr int kPids = 8;

struct User {
    int uid;
    const char* package;
    std::set<int> background;
};

/** The package and background access that the registry finds for each uid. */
const std::vector<User> kUsers = {
        {1000, "", {}},           {10001, "com.velmar.shellenv", {0, 1}}, {10002, "com.game", {}},
        {10003, "com.game", {0}}, {10004, "com.android.settings", {1}},   {10005, "com.mail", {}},
};
const std::vector<std::string> kNames = {
        "com.game",      "com.game:vr",        "com.mail", "home", "com.android.settings",
        "system_server", "com.velmar.shellenv"};

/** One world twice: as the oracle's values and behind the policy's fakes. */
class TwinWorlds {
public:
    TwinWorlds() {
        for (const User& user : kUsers) {
            const FocusClient client{user.uid, 0};
            if (user.uid == 10003) {
                fakes.grantPermission(client,
                                      "com.velmar.permission.ACCESS_BACKGROUND_HEAD_TRACKING");
            } else if (user.uid == 10004) {
                fakes.grantPermission(client,
                                      "com.velmar.permission.ACCESS_BACKGROUND_INPUT_TRACKING");
            }
        }
    }

    int upTo(int bound) { return std::uniform_int_distribution<int>(0, bound - 1)(mRandom); }

    void changeSomething() {
        switch (upTo(11)) {
            case 0:
            case 1:
                return restart(kFirstPid + upTo(kPids));
            case 2:
                return end(kFirstPid + upTo(kPids));
            case 3:
                return fill(values.foreground);
            case 4:
                return fill(values.rendering);
            case 5:
                return fill(values.top);
            case 6:
                return fill(values.allTop);
            case 7:
                values.window = anyone();
                return;
            case 8:
                return togglePanel(anyone());
            case 9:
                values.primary = upTo(2) ? "com.velmar.shellenv" : "com.game";
                return;
            default:
                return toggleFlag();
        }
    }

    void passOn() {
        fakes.tracker->foreground = clients(values.foreground);
        fakes.tracker->rendering = clients(values.rendering);
        fakes.tracker->top = clients(values.top);
        fakes.tracker->allTop = clients(values.allTop);
        fakes.tracker->windowFocus = {values.window.first, values.window.second};
        fakes.setPrimaryTop(values.primary);
        fakes.policy->setMainDisplayFocus(values.mainDisplay);
        FakeProperties::instance().set("ro.debuggable", values.debuggable);
        FakeProperties::instance().set("debug.nqs.vrfocus.permissive", values.permissive);
        // The tracker forgets dead panel apps whenever it is asked for them.
        std::erase_if(values.panels, [this](auto& id) { return !values.find(id.second); });
    }

    std::vector<int> somePids() {
        std::vector<int> pids(upTo(7));
        for (int& pid : pids)
            pid = kFirstPid - 1 + upTo(kPids + 2);
        return pids;
    }

    FocusWorld fakes;
    oracle::World values;
    /** By live pid: the types that it was last found to hold. */
    std::map<int, std::set<int>> currentFocus;

private:
    void end(int pid) {
        std::erase_if(values.alive, [pid](auto& proc) { return proc.id.second == pid; });
        currentFocus.erase(pid);
        fakes.end(pid);
        fakes.clients->getSnapshot();
    }

    void restart(int pid) {
        end(pid);
        const User& user = kUsers[upTo(static_cast<int>(kUsers.size()))];
        const std::string& name = kNames[upTo(static_cast<int>(kNames.size()))];
        const std::string package =
                name == "system_server" ? "android.uid.system:1000" : user.package;
        std::set<int> background = user.background;
        if (package != user.package && user.uid == 10001) background = {};
        values.alive.push_back({{user.uid, pid}, name, package, background});
        std::sort(values.alive.begin(), values.alive.end(),
                  [](auto& left, auto& right) { return left.id < right.id; });
        currentFocus[pid] = {};
        fakes.runKnown(user.uid, pid, name, std::string(user.package));
    }

    /** A live client, seldom under a wrong uid, or a dead pid. */
    oracle::Id anyone() {
        const int pid = kFirstPid + upTo(kPids);
        const oracle::Proc* proc = values.find(pid);
        if (!proc || upTo(8) == 0) return {kUsers[upTo(6)].uid, pid};
        return proc->id;
    }

    void fill(std::vector<oracle::Id>& list) {
        list.resize(upTo(5));
        for (oracle::Id& id : list)
            id = anyone();
    }
    void fill(std::set<oracle::Id>& set) {
        set.clear();
        for (int count = upTo(4); count > 0; --count)
            set.insert(anyone());
    }

    void togglePanel(const oracle::Id& id) {
        const bool add = values.panels.count(id) == 0;
        if (add) {
            values.panels.insert(id);
        } else {
            values.panels.erase(id);
        }
        fakes.setPanel({id.first, id.second}, add);
    }

    void toggleFlag() {
        // Permissive mode hides everything else: it is on one time in eight.
        values.mainDisplay = upTo(2) == 0;
        values.debuggable = upTo(2) == 0;
        values.permissive = upTo(4) == 0;
    }

    template <typename Ids>
    static std::vector<FocusClient> clients(const Ids& ids) {
        std::vector<FocusClient> all;
        for (const oracle::Id& id : ids)
            all.push_back({id.first, id.second});
        return all;
    }

    std::mt19937 mRandom{20260711};
};

TEST(FocusPolicyOracleTest, PolicyAndOracleAgreeOnRandomStates) {
    TwinWorlds worlds;
    int focused = 0, unfocused = 0, immersive = 0;
    for (int state = 0; state < kStates; ++state) {
        for (int changes = worlds.upTo(4); changes >= 0; --changes)
            worlds.changeSomething();
        worlds.passOn();

        const oracle::Proc* chosen = oracle::immersive(worlds.values);
        const std::optional<ImmersiveApp> app = worlds.fakes.policy->getImmersiveApp();
        ASSERT_EQ(app ? app->pid : 0, chosen ? chosen->id.second : 0) << "state " << state;
        immersive += chosen != nullptr;

        const int type = worlds.upTo(9) / 4;  // 2 now and then
        const std::vector<int> pids = worlds.somePids();
        const auto expected = oracle::verdicts(worlds.values, type, pids);
        std::vector<ClientStatus> out;
        worlds.fakes.policy->computeFocusState(static_cast<FocusType>(type), pids, out);
        std::vector<std::pair<int, bool>> verdicts;
        for (const ClientStatus& status : out)
            verdicts.emplace_back(status.pid, status.hasFocus);
        ASSERT_EQ(verdicts, expected) << "state " << state << " type " << type;

        for (const auto& [pid, hasFocus] : expected) {
            if (hasFocus) {
                worlds.currentFocus[pid].insert(type);
            } else {
                worlds.currentFocus[pid].erase(type);
            }
            ++(hasFocus ? focused : unfocused);
        }
        std::map<int, std::set<int>> recorded;
        for (const auto& record : worlds.fakes.clients->getSnapshot()) {
            auto& types = recorded[record.pid];
            for (const FocusType held : record.currentFocus)
                types.insert(static_cast<int>(held));
        }
        ASSERT_EQ(recorded, worlds.currentFocus) << "state " << state;
        worlds.fakes.log->take();
        worlds.fakes.activity->calls.take();
        worlds.fakes.permission->calls.take();
        FakeProperties::instance().takeReads();
    }
    // The worlds were worth asking about.
    EXPECT_GT(focused, kStates / 10);
    EXPECT_GT(unfocused, kStates / 10);
    EXPECT_GT(immersive, kStates / 10);
    EXPECT_LT(immersive, kStates * 9 / 10);
}

}  // namespace
}  // namespace NQS::OS

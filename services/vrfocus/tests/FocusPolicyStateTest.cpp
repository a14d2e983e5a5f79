// SPDX-License-Identifier: Apache-2.0
//
// Focus state: which signal gives which focus, what is asked in which order, what is recorded.
#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "FocusWorld.h"

namespace NQS::OS {
namespace {

using Calls = std::vector<std::string>;
using Verdicts = std::vector<std::pair<int, bool>>;

constexpr char kDebuggable[] = "ro.debuggable";
constexpr char kPermissive[] = "debug.nqs.vrfocus.permissive";
constexpr FocusType kHead = FocusType::HeadTracking;
constexpr FocusType kInput = FocusType::InputTracking;
constexpr FocusType kUnknown = static_cast<FocusType>(2);

class FocusStateTest : public ::testing::Test {
protected:
    Verdicts compute(FocusType type, const std::vector<int>& pids) {
        return compute(*mWorld.policy, type, pids);
    }
    static Verdicts compute(FocusPolicy& policy, FocusType type, const std::vector<int>& pids) {
        std::vector<ClientStatus> out;
        policy.computeFocusState(type, pids, out);
        Verdicts verdicts;
        for (const ClientStatus& status : out)
            verdicts.emplace_back(status.pid, status.hasFocus);
        return verdicts;
    }
    bool hasFocus(FocusType type, const FocusClient& client) {
        return compute(type, {client.pid}) == Verdicts{{client.pid, true}};
    }
    /** What a computation asks and records, in order. */
    Calls callsOf(FocusType type, const std::vector<int>& pids) {
        mWorld.log->take();
        compute(type, pids);
        return mWorld.log->take();
    }
    /** The types that the registry holds as the client's current focus. */
    std::set<FocusType> currentFocus(const FocusClient& client) {
        for (const auto& record : mWorld.clients->getSnapshot()) {
            if (record.client() == client) return record.currentFocus;
        }
        return {};
    }

    FocusWorld mWorld;
    FakeProperties& mProperties = FakeProperties::instance();
    const FocusClient mGame = mWorld.run(10001, 101, "com.game");
    const FocusClient mMail = mWorld.run(10002, 102, "com.mail");
};

TEST_F(FocusStateTest, EachSignalGivesItsTypesAndNoOther) {
    const struct {
        const char* signal;
        std::function<void(const FocusClient&)> give;
        bool head, input;
    } kRows[] = {
            {"none", [](auto&) {}, false, false},
            {"foreground", [this](auto& c) { mWorld.tracker->foreground = {c}; }, true, true},
            {"panel", [this](auto& c) { mWorld.setPanel(c, true); }, true, true},
            {"window focus", [this](auto& c) { mWorld.tracker->windowFocus = c; }, true, false},
            {"top activity", [this](auto& c) { mWorld.tracker->top = {c}; }, true, true},
            {"top anywhere", [this](auto& c) { mWorld.tracker->allTop = {c}; }, true, false},
            {"rendering", [this](auto& c) { mWorld.tracker->rendering = {c}; }, false, false},
    };
    int pid = 200;
    for (const auto& row : kRows) {
        const FocusClient client = mWorld.run(10050, ++pid, "com.subject");
        mWorld.tracker->forgetSignals();
        row.give(client);
        EXPECT_EQ(hasFocus(kHead, client), row.head) << row.signal;
        EXPECT_EQ(hasFocus(kInput, client), row.input) << row.signal;
        EXPECT_EQ(compute(kUnknown, {pid}), (Verdicts{{pid, false}})) << row.signal;
    }
}

TEST_F(FocusStateTest, ASignalUnderAnotherUidGivesNothingButToTheNewestForegroundClient) {
    const FocusClient impostor{mGame.uid + 1, mGame.pid};
    mWorld.tracker->top = mWorld.tracker->allTop = {impostor};
    mWorld.tracker->windowFocus = impostor;
    EXPECT_FALSE(hasFocus(kHead, mGame));
    EXPECT_FALSE(hasFocus(kInput, mGame));
    // Which has head focus under the registry's uid.
    mWorld.tracker->foreground = {impostor};
    EXPECT_TRUE(hasFocus(kHead, mGame));
    EXPECT_FALSE(hasFocus(kInput, mGame));
    mWorld.tracker->foreground = {impostor, mMail};
    EXPECT_FALSE(hasFocus(kHead, mGame));
    // A newer one without a record does not count as the newest.
    mWorld.clients->unknown = {mMail.pid};
    EXPECT_TRUE(hasFocus(kHead, mGame));
}

TEST_F(FocusStateTest, BackgroundAccessCountsPerType) {
    const FocusClient shell = mWorld.run(10003, 103, "com.velmar.vrshell");
    const FocusClient headOnly = mWorld.run(10004, 104, "com.headonly");
    mWorld.permission->grant("com.velmar.permission.ACCESS_BACKGROUND_HEAD_TRACKING", 10004);
    EXPECT_EQ(compute(kHead, {103, 104}), (Verdicts{{103, true}, {104, true}}));
    EXPECT_EQ(compute(kInput, {103, 104}), (Verdicts{{103, true}, {104, false}}));
    EXPECT_FALSE(hasFocus(kUnknown, shell));
    EXPECT_FALSE(hasFocus(kUnknown, headOnly));
}

TEST_F(FocusStateTest, TheImmersiveAppHasInputFocusAsLongAsTheMainDisplayHas) {
    const FocusClient overlay = mWorld.run(10003, 103, "com.android.settings");
    mWorld.tracker->rendering = {overlay};
    mWorld.tracker->windowFocus = overlay;
    EXPECT_TRUE(hasFocus(kInput, overlay));
    mWorld.policy->setMainDisplayFocus(false);
    // Every other signal it has is lost with it, for input alone.
    mWorld.tracker->foreground = mWorld.tracker->top = {overlay};
    mWorld.setPanel(overlay, true);
    EXPECT_FALSE(hasFocus(kInput, overlay));
    EXPECT_TRUE(hasFocus(kHead, overlay));
    mWorld.policy->setMainDisplayFocus(true);
    EXPECT_TRUE(hasFocus(kInput, overlay));
}

TEST_F(FocusStateTest, TheImmersiveAppIsMatchedByPidAloneToTheFirstRecord) {
    class Fixed : public FocusPolicy {
    public:
        using FocusPolicy::FocusPolicy;
        std::optional<ImmersiveApp> getImmersiveApp() override {
            ImmersiveApp app;
            app.pid = 101;
            app.uid = 4242;
            return app;
        }
    };
    Fixed policy(mWorld.tracker, mWorld.clients);
    // A pid that is reused between its two questions has two records: the lower uid comes first.
    mWorld.clients->onBuild = [this, asked = 0](int) mutable {
        if (++asked == 2) mWorld.run(9000, 101, "com.reused");
    };
    EXPECT_EQ(compute(policy, kInput, {101, 101}), (Verdicts{{101, true}, {101, false}}));
}

TEST_F(FocusStateTest, AnswersComeByUidThenPidOncePerProcessAndAreAppended) {
    mWorld.run(1000, 901, "low");
    std::vector<ClientStatus> out(1);
    out[0].pid = -7;
    mWorld.policy->computeFocusState(kHead, {102, 101, 555, 102, -1, 0, 901, 101}, out);
    std::vector<int> pids;
    for (const ClientStatus& status : out)
        pids.push_back(status.pid);
    EXPECT_EQ(pids, (std::vector<int>{-7, 901, 101, 102}));
}

TEST_F(FocusStateTest, VerdictsAreRecordedInTheRegistryPerType) {
    mWorld.tracker->windowFocus = mGame;
    compute(kHead, {101, 102});
    compute(kInput, {101, 102});
    EXPECT_EQ(currentFocus(mGame), (std::set<FocusType>{kHead}));
    EXPECT_EQ(currentFocus(mMail), std::set<FocusType>());
    mWorld.tracker->windowFocus = {};
    mWorld.tracker->top = {mGame, mMail};
    compute(kInput, {101});
    EXPECT_EQ(currentFocus(mGame), (std::set<FocusType>{kHead, kInput}));
    mWorld.tracker->top = {};
    compute(kHead, {101, 102});
    EXPECT_EQ(currentFocus(mGame), (std::set<FocusType>{kInput}));
}

TEST_F(FocusStateTest, TheSystemIsAskedInItsOrderAlsoWithoutPids) {
    EXPECT_EQ(callsOf(kHead, {}),
              (Calls{"foreground", "windowFocus", "foreground", "top", "allTop"}));
    EXPECT_EQ(callsOf(kInput, {}), (Calls{"foreground", "top", "rendering", "foreground"}));
    mWorld.tracker->foreground = {mGame, mMail};
    mWorld.tracker->top = {mMail};
    mWorld.clients->unknown = {mMail.pid};
    // Clients that were not asked for are left alone, focused or not.
    EXPECT_EQ(callsOf(kHead, {102, 101}),
              (Calls{"build 102", "build 101", "foreground", "windowFocus", "foreground",
                     "build 102", "build 101", "top", "allTop", "add 10001/101 0"}));
    mWorld.clients->unknown = {};
    mWorld.tracker->foreground = {};
    EXPECT_EQ(callsOf(kInput, {102, 101}),
              (Calls{"build 102", "build 101", "foreground", "top", "rendering", "foreground",
                     "remove 10001/101 1", "add 10002/102 1"}));
    for (const int type : {2, -1, 1 << 30}) {
        EXPECT_EQ(callsOf(static_cast<FocusType>(type), {101}),
                  (Calls{"build 101", "foreground", "remove 10001/101 " + std::to_string(type)}));
    }
}

TEST_F(FocusStateTest, ThePanelListIsAskedForWhateverTheType) {
    // Asking prunes: a dead panel app is gone even when its process comes back.
    for (const int type : {0, 1, 2}) {
        const FocusClient panel = mWorld.run(10060, 160, "com.panel");
        mWorld.setPanel(panel, true);
        mWorld.end(panel.pid);
        compute(static_cast<FocusType>(type), {});
        mWorld.run(10060, 160, "com.panel");
        EXPECT_EQ(mWorld.tracker->getClientsWithForegroundPanelApp(), std::vector<FocusClient>());
    }
}

TEST_F(FocusStateTest, PermissiveModeNeedsBothProperties) {
    const struct {
        std::optional<bool> debuggable, permissive;
        bool focus;
    } kRows[] = {
            {{}, {}, false},      {{}, true, false},     {false, true, false}, {true, {}, false},
            {true, false, false}, {false, false, false}, {true, true, true},
    };
    for (const auto& row : kRows) {
        mProperties.clear();
        if (row.debuggable) mProperties.set(kDebuggable, *row.debuggable);
        if (row.permissive) mProperties.set(kPermissive, *row.permissive);
        for (const FocusType type : {kHead, kInput, kUnknown}) {
            EXPECT_EQ(hasFocus(type, mGame), row.focus)
                    << row.debuggable.value_or(false) << row.permissive.value_or(false);
        }
    }
}

TEST_F(FocusStateTest, PropertiesAreReadOncePerUnfocusedRecordAndTheSecondOnlyAfterTheFirst) {
    mWorld.run(10003, 103, "com.chat");
    mWorld.tracker->top = {mGame};
    mProperties.takeReads();
    compute(kHead, {101, 102, 103});
    EXPECT_EQ(mProperties.takeReads(), (Calls{kDebuggable, kDebuggable}));
    mProperties.set(kDebuggable, true);
    compute(kHead, {101, 102, 103});
    EXPECT_EQ(mProperties.takeReads(), (Calls{kDebuggable, kPermissive, kDebuggable, kPermissive}));
}

}  // namespace
}  // namespace NQS::OS

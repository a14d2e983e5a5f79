// SPDX-License-Identifier: Apache-2.0
//
// The registry: what a record says of a process, how long it is kept, and what was asked for it.
#include "ClientManager.h"

#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "TrackerTest.h"

namespace NQS::OS {
namespace {

constexpr char kHeadPermission[] = "com.velmar.permission.ACCESS_BACKGROUND_HEAD_TRACKING";
constexpr char kInputPermission[] = "com.velmar.permission.ACCESS_BACKGROUND_INPUT_TRACKING";

using Types = std::set<FocusType>;
using Lines = std::vector<std::string>;

const Types kNone;
const Types kHead = {FocusType::HeadTracking};
const Types kInput = {FocusType::InputTracking};
const Types kBoth = {FocusType::HeadTracking, FocusType::InputTracking};

class ClientManagerTest : public TrackerTest {
protected:
    static constexpr int kPid = 4321;

    void SetUp() override { registry = std::make_unique<ClientManager>(makeTracker()); }

    FocusClientWithMetadata build(int pid = kPid) {
        const auto record = registry->buildClientInfo(pid);
        EXPECT_TRUE(record.has_value());
        return record.value_or(FocusClientWithMetadata(-1, -1, "", "", {}, {}));
    }
    Types focusOf(int pid = kPid) { return build(pid).currentFocus; }

    std::unique_ptr<ClientManager> registry;
};

struct PackageRow {
    const char* what;
    std::string process;
    std::vector<std::string> packages;
    std::string expected;
};

TEST_F(ClientManagerTest, PackageIsChosenFromThoseOfTheUid) {
    const std::vector<PackageRow> rows = {
            {"none", "com.app", {}, ""},
            {"one, named like the process", "com.app", {"com.app"}, "com.app"},
            {"one, with another name", "com.app:x", {"com.other"}, "com.other"},
            {"two, one named like the process", "com.b", {"com.a", "com.b"}, "com.b"},
            {"two, suffix kept", "com.b:remote", {"com.a", "com.b"}, "com.b:remote"},
            {"cut at the first colon", "com.b:x:y", {"com.a", "com.b"}, "com.b:x:y"},
            {"longer base than a package", "com.bb", {"com.a", "com.b"}, ""},
            {"no base", ":remote", {"com.a", "com.b"}, ""},
            {"system server, one", "system_server", {"android"}, "android.uid.system:1000"},
            {"system server, two", "system_server", {"android", "b"}, "android.uid.system:1000"},
            {"system server with suffix",
             "system_server:x",
             {"a", "system_server"},
             "system_server:x"},
    };
    int uid = 10050;
    for (const PackageRow& row : rows) {
        SCOPED_TRACE(row.what);
        permission->install(++uid, row.packages);
        processes.set(uid, uid, row.process);
        EXPECT_EQ(build(uid).package, row.expected);
        EXPECT_EQ(build(uid).process, row.process);
    }
}

struct AccessRow {
    const char* what;
    int uid;
    std::string process;
    std::vector<std::string> packages;
    std::vector<std::string> grants;
    Types expected;
};

std::vector<AccessRow> accessRows() {
    std::vector<AccessRow> rows = {
            {"nothing", 10050, "com.app", {"com.app"}, {}, kNone},
            {"head permission", 10050, "com.app", {"com.app"}, {kHeadPermission}, kHead},
            {"input permission", 10050, "com.app", {"com.app"}, {kInputPermission}, kInput},
            {"both", 10050, "com.app", {"com.app"}, {kHeadPermission, kInputPermission}, kBoth},
            {"root", 0, "init", {}, {}, kBoth},
            {"native under its uid", 1041, "/system/bin/audioserver", {}, {}, kBoth},
            {"native under another uid", 1000, "/system/bin/audioserver", {}, {}, kNone},
            {"second native", 1000, "/system/bin/mrsystemservice", {}, {}, kBoth},
            {"second native, other uid", 1041, "/system/bin/mrsystemservice", {}, {}, kNone},
            {"third native", 1000, "/system_ext/bin/avatardataserviced", {}, {}, kBoth},
            {"third native, other uid", 2000, "/system_ext/bin/avatardataserviced", {}, {}, kNone},
            {"listed package with suffix",
             10050,
             "com.velmar.vrshell:ui",
             {"a", "com.velmar.vrshell"},
             {},
             kNone},
            {"listed name without package", 10050, "com.velmar.vrshell", {}, {}, kNone},
            {"system server alone", 1000, "system_server", {"com.velmar.vrshell"}, {}, kNone},
    };
    for (const char* package : {"com.velmar.vrshell", "com.velmar.shellenv", "com.velmar.boundary",
                                "com.velmar.systemdriver", "com.velmar.mrservice"}) {
        rows.push_back({package, 10050, package, {package}, {}, kBoth});
    }
    return rows;
}

TEST_F(ClientManagerTest, BackgroundAccessComesFromPermissionsAndLists) {
    int pid = 100;
    for (const AccessRow& row : accessRows()) {
        SCOPED_TRACE(row.what);
        permission->world.access([&](FakePermissionController::World& world) {
            world.grants.clear();
            world.packages = {{row.uid, row.packages}};
        });
        for (const std::string& grant : row.grants)
            permission->grant(grant, row.uid);
        processes.set(++pid, row.uid, row.process);
        EXPECT_EQ(build(pid).backgroundAccess, row.expected);
        EXPECT_EQ(build(pid).currentFocus, kNone);
    }
}

TEST_F(ClientManagerTest, NewRecordAsksForPackagesThenEachPermissionByType) {
    processes.set(kPid, 10050, "com.app");
    build();
    EXPECT_EQ(permission->calls.take(),
              (Lines{"packages 10050", std::string("permission ") + kHeadPermission + " 10050/4321",
                     std::string("permission ") + kInputPermission + " 10050/4321"}));
    // Root has both without being asked about.
    processes.set(kPid, 0, "init");
    EXPECT_EQ(build().backgroundAccess, kBoth);
    EXPECT_EQ(permission->calls.take(), (Lines{"packages 0"}));
}

TEST_F(ClientManagerTest, SecondAnswerIsTheRecordOnFileWithAFreshProcessName) {
    processes.set(kPid, 10050, "zygote64");
    permission->install(10050, {"com.app"});
    build();
    permission->calls.take();
    permission->install(10050, {"com.changed"});
    permission->grant(kHeadPermission, 10050);
    processes.set(kPid, 10050, "com.app:late");

    const FocusClientWithMetadata again = build();
    EXPECT_EQ(again.process, "com.app:late");
    EXPECT_EQ(again.package, "com.app");
    EXPECT_EQ(again.backgroundAccess, kNone);
    EXPECT_EQ(permission->calls.take(), Lines{});
    EXPECT_EQ(processes.shortNames(), 0);
    const auto snapshot = registry->getSnapshot();
    ASSERT_EQ(snapshot.size(), 1U);
    EXPECT_EQ(snapshot.begin()->process, "zygote64") << "on file it stays what it was";
}

TEST_F(ClientManagerTest, ReusedPidGetsARecordOfItsOwn) {
    permission->grant(kHeadPermission, 10050);
    processes.set(kPid, 10050, "com.old");
    build();
    registry->addCurrentFocus({.uid = 10050, .pid = kPid}, FocusType::HeadTracking);

    processes.set(kPid, 10060, "com.new");
    const FocusClientWithMetadata record = build();
    EXPECT_EQ(record.uid, 10060);
    EXPECT_EQ(record.process, "com.new");
    EXPECT_EQ(record.backgroundAccess, kNone);
    EXPECT_EQ(record.currentFocus, kNone);

    registry->addCurrentFocus({.uid = 10060, .pid = kPid}, FocusType::InputTracking);
    const auto snapshot = registry->getSnapshot();
    ASSERT_EQ(snapshot.size(), 1U);
    EXPECT_EQ(snapshot.begin()->uid, 10060);
    EXPECT_EQ(snapshot.begin()->currentFocus, kInput);
}

TEST_F(ClientManagerTest, PackageNameIsTakenWithWhatFollowsAZero) {
    const std::string package("com.velmar.vrshell\0.x", 21);
    permission->install(10050, {package});
    processes.set(kPid, 10050, "com.app");
    EXPECT_EQ(build().package, package);
    EXPECT_EQ(build().backgroundAccess, kNone);

    permission->install(10060, {package, "com.a"});
    processes.set(kPid + 1, 10060, "com.velmar.vrshell");
    EXPECT_EQ(build(kPid + 1).package, "") << "named like a part of a package only";
}

TEST_F(ClientManagerTest, UnreadableUidIsWarnedOfAndNotOnRecord) {
    EXPECT_FALSE(registry->buildClientInfo(-1).has_value());
    EXPECT_EQ(log.take(), (Lines{"W Failed to read UID for PID -1, focus allowlist may fail"}));
    EXPECT_EQ(permission->calls.take(), Lines{});
}

TEST_F(ClientManagerTest, FocusIsNotedForTheExactClientOnly) {
    processes.set(kPid, 10050, "com.app");
    const FocusClient client{.uid = 10050, .pid = kPid};
    const FocusClient others[] = {{.uid = 10051, .pid = kPid}, {.uid = 10050, .pid = kPid + 1}};
    registry->addCurrentFocus(client, FocusType::HeadTracking);
    EXPECT_EQ(focusOf(), kNone) << "not on record yet";
    for (const FocusClient& other : others)
        registry->addCurrentFocus(other, FocusType::HeadTracking);
    EXPECT_EQ(focusOf(), kNone);
    registry->addCurrentFocus(client, FocusType::InputTracking);
    EXPECT_EQ(focusOf(), kInput);
    registry->addCurrentFocus(client, FocusType::HeadTracking);
    for (const FocusClient& other : others)
        registry->removeCurrentFocus(other, FocusType::InputTracking);
    EXPECT_EQ(focusOf(), kBoth);
    registry->removeCurrentFocus(client, FocusType::InputTracking);
    EXPECT_EQ(focusOf(), kHead);
}

TEST_F(ClientManagerTest, SnapshotIsOrderedAndForgetsTheDeadWhichNothingElseDoes) {
    const std::vector<FocusClient> all = {{10050, 20}, {1000, 50}, {1000, 30}};
    for (const FocusClient& client : all) {
        processes.set(client.pid, client.uid, "com.app");
        build(client.pid);
        registry->addCurrentFocus(client, FocusType::HeadTracking);
    }
    // Gone and back between two snapshots: the record has not been looked at meanwhile.
    processes.kill(20);
    EXPECT_FALSE(registry->buildClientInfo(20).has_value());
    processes.set(20, 10050, "com.app");
    EXPECT_EQ(focusOf(20), kHead);
    processes.kill(50);
    std::vector<FocusClient> clients;
    for (const auto& record : registry->getSnapshot())
        clients.push_back(record.client());
    EXPECT_EQ(clients, (std::vector<FocusClient>{{1000, 30}, {10050, 20}}));
    processes.set(50, 1000, "com.app");
    EXPECT_EQ(focusOf(50), kNone);
}

}  // namespace
}  // namespace NQS::OS

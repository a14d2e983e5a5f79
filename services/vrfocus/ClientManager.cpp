// SPDX-License-Identifier: Apache-2.0
//
// Client registry: how a record is built, and what is known without asking anyone.
#define LOG_TAG "VrFocus"

#include "ClientManager.h"

#include "ConnectionManager.h"
#include "Utf8.h"

#include <log/log.h>
#include <osutils/Process.h>
#include <utils/String16.h>
#include <utils/Vector.h>

#include <map>
#include <utility>

namespace NQS::OS {

namespace {

constexpr int kRootUid = 0;

/** Packages that may hold every type of focus in the background. */
const std::set<std::string> kBackgroundPackages = {
        "com.velmar.vrshell",      "com.velmar.shellenv",  "com.velmar.boundary",
        "com.velmar.systemdriver", "com.velmar.mrservice",
};

/** Native processes that may do so too, each under this uid only. */
const std::map<std::string, int> kBackgroundProcesses = {
        {"/system/bin/audioserver", 1041},
        {"/system/bin/mrsystemservice", 1000},
        {"/system_ext/bin/avatardataserviced", 1000},
};

/** What grants a type in the background to everyone else. */
const std::map<FocusType, android::String16> kBackgroundPermissions = {
        {FocusType::HeadTracking,
         android::String16("com.velmar.permission.ACCESS_BACKGROUND_HEAD_TRACKING")},
        {FocusType::InputTracking,
         android::String16("com.velmar.permission.ACCESS_BACKGROUND_INPUT_TRACKING")},
};

// Many packages share the system server's process; it stands for none of them.
const std::string kSystemServerProcess = "system_server";
const std::string kSystemServerPackage = "android.uid.system:1000";

bool contains(const android::Vector<android::String16>& packages, const std::string& package) {
    for (const android::String16& candidate : packages) {
        if (toUtf8(candidate) == package) return true;
    }
    return false;
}

}  // namespace

ClientManager::ClientManager(std::shared_ptr<ConnectionManager> connectionManager)
      : mConnectionManager(std::move(connectionManager)) {
    mCache.max_load_factor(1.0F);
}

ClientManager::~ClientManager() = default;

std::optional<FocusClientWithMetadata> ClientManager::buildClientInfo(int pid) {
    const std::optional<int> uid = Process::getProcessUid(pid);
    if (!uid) {
        ALOGW("Failed to read UID for PID %d, focus allowlist may fail", pid);
        return std::nullopt;
    }
    // One object all the way out: a record has strings and sets to move.
    std::optional<FocusClientWithMetadata> info = findCached(pid, *uid);
    if (!info) {
        info.emplace(buildRecord(pid, *uid));
        const std::lock_guard<std::mutex> lock(mMutex);
        // Another thread may have been first, and its record may already carry focus.
        mCache.try_emplace(pid, *info);
    }
    return info;
}

std::optional<FocusClientWithMetadata> ClientManager::findCached(int pid, int uid) {
    std::optional<FocusClientWithMetadata> cached;
    const std::lock_guard<std::mutex> lock(mMutex);
    const auto entry = mCache.find(pid);
    if (entry == mCache.end()) return cached;
    const FocusClientWithMetadata& record = entry->second;
    if (record.uid == uid) {
        cached.emplace(uid, pid, record.package, Process::getProcessName(pid, /*full=*/true),
                       record.backgroundAccess, record.currentFocus);
    } else {
        mCache.erase(entry);
    }
    return cached;
}

FocusClientWithMetadata ClientManager::buildRecord(int pid, int uid) {
    std::string process = Process::getProcessName(pid, /*full=*/true);
    std::string package = choosePackage(uid, process);
    std::set<FocusType> access = collectBackgroundAccess(pid, uid, package, process);
    return {uid,
            pid,
            std::move(package),
            std::move(process),
            std::move(access),
            /*currentFocus=*/{}};
}

std::string ClientManager::choosePackage(int uid, const std::string& process) {
    android::Vector<android::String16> packages;
    mConnectionManager->getPackagesForUid(uid, packages);
    if (process == kSystemServerProcess) return kSystemServerPackage;
    if (packages.size() == 1) return toUtf8(packages[0]);
    // Packages that share a uid are told apart by the process name, which begins with the
    // package's. What follows is kept: two processes of one package stay distinct.
    if (packages.size() > 1 && contains(packages, process.substr(0, process.find(':')))) {
        return process;
    }
    return {};
}

std::set<FocusType> ClientManager::collectBackgroundAccess(int pid, int uid,
                                                           const std::string& package,
                                                           const std::string& process) {
    std::set<FocusType> access;
    for (const auto& [type, permission] : kBackgroundPermissions) {
        if (uid == kRootUid || mConnectionManager->checkPermission(permission, pid, uid)) {
            access.insert(type);
        }
    }
    const auto listed = kBackgroundProcesses.find(process);
    const bool isListedProcess = listed != kBackgroundProcesses.end() && listed->second == uid;
    if (isListedProcess || kBackgroundPackages.count(package) != 0) {
        access.insert({FocusType::HeadTracking, FocusType::InputTracking});
    }
    return access;
}

void ClientManager::addCurrentFocus(const FocusClient& client, FocusType type) {
    const std::lock_guard<std::mutex> lock(mMutex);
    FocusClientWithMetadata* record = findClientLocked(client);
    if (record != nullptr) record->currentFocus.insert(type);
}

void ClientManager::removeCurrentFocus(const FocusClient& client, FocusType type) {
    const std::lock_guard<std::mutex> lock(mMutex);
    FocusClientWithMetadata* record = findClientLocked(client);
    if (record != nullptr) record->currentFocus.erase(type);
}

FocusClientWithMetadata* ClientManager::findClientLocked(const FocusClient& client) {
    const auto entry = mCache.find(client.pid);
    if (entry == mCache.end() || entry->second.client() != client) return nullptr;
    return &entry->second;
}

std::set<FocusClientWithMetadata> ClientManager::getSnapshot() {
    const std::lock_guard<std::mutex> lock(mMutex);
    std::erase_if(mCache, [](const auto& entry) { return !Process::isProcessAlive(entry.first); });
    std::set<FocusClientWithMetadata> records;
    for (const auto& [pid, record] : mCache) {
        records.insert(record);
    }
    return records;
}

}  // namespace NQS::OS

// SPDX-License-Identifier: Apache-2.0
//
// Client registry: who the process behind a pid is, and which focus it may hold and holds.
//
// Finding out costs several calls to other services, so a record is kept per pid from the first
// question on. It is dropped when the pid shows up under another uid, and by getSnapshot() once the
// process is dead. While it lives its package, background access and cached name stay as they were
// found: a permission granted later counts from the client's next process on.
//
// Threads: any. One mutex guards the records; no other service is called under it.
#pragma once

#include "FocusClient.h"
#include "FocusClientWithMetadata.h"
#include "FocusType.h"

#include <android-base/thread_annotations.h>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>

namespace NQS::OS {

class ConnectionManager;

class ClientManager {
public:
    explicit ClientManager(std::shared_ptr<ConnectionManager> connectionManager);
    virtual ~ClientManager();
    ClientManager(const ClientManager&) = delete;
    ClientManager& operator=(const ClientManager&) = delete;

    /**
     * The record of a process, with the process name of this moment. Empty when the pid has no
     * readable uid.
     *
     * The first call for a process asks other services for its packages and permissions and may
     * block as long as they do; calls for other processes go on meanwhile.
     */
    virtual std::optional<FocusClientWithMetadata> buildClientInfo(int pid);

    /** Notes that the client holds the type. Ignored for a client that is not on record. */
    virtual void addCurrentFocus(const FocusClient& client, FocusType type);

    /** Notes that the client does not hold the type. Ignored for one that is not on record. */
    virtual void removeCurrentFocus(const FocusClient& client, FocusType type);

    /** Forgets the records of dead processes and returns copies of the others. */
    std::set<FocusClientWithMetadata> getSnapshot();

private:
    /** The record on file, with a fresh process name; drops one that is of another uid. */
    std::optional<FocusClientWithMetadata> findCached(int pid, int uid) EXCLUDES(mMutex);
    FocusClientWithMetadata buildRecord(int pid, int uid) EXCLUDES(mMutex);
    std::string choosePackage(int uid, const std::string& process);
    std::set<FocusType> collectBackgroundAccess(int pid, int uid, const std::string& package,
                                                const std::string& process);
    /** The record of exactly this client; null when there is none. */
    FocusClientWithMetadata* findClientLocked(const FocusClient& client) REQUIRES(mMutex);

    const std::shared_ptr<ConnectionManager> mConnectionManager;
    std::mutex mMutex;
    /** By pid. */
    std::unordered_map<int, FocusClientWithMetadata> mCache GUARDED_BY(mMutex);
};

}  // namespace NQS::OS

// SPDX-License-Identifier: Apache-2.0
//
// Fake registry: the real one with every virtual call logged, and pids it can be made blind to.
//
// Records come from the made-up processes and packages that the real registry asks for, so its
// snapshot holds what it has been asked about.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "CallLog.h"
#include "ClientManager.h"
#include "ConnectionManager.h"

namespace NQS::OS {

class FakeClientManager : public ClientManager {
public:
    FakeClientManager(std::shared_ptr<ConnectionManager> connectionManager,
                      std::shared_ptr<CallLog> log = std::make_shared<CallLog>())
          : ClientManager(std::move(connectionManager)), mLog(std::move(log)) {}

    /** Pids that get no record. */
    std::set<int> unknown;
    /** Run by buildClientInfo, with the pid, before it answers. */
    std::function<void(int)> onBuild = [](int) {};

    std::optional<FocusClientWithMetadata> buildClientInfo(int pid) override {
        mLog->add("build " + std::to_string(pid));
        onBuild(pid);
        if (unknown.contains(pid)) return std::nullopt;
        return ClientManager::buildClientInfo(pid);
    }
    void addCurrentFocus(const FocusClient& client, FocusType type) override {
        mLog->add("add " + text(client, type));
        ClientManager::addCurrentFocus(client, type);
    }
    void removeCurrentFocus(const FocusClient& client, FocusType type) override {
        mLog->add("remove " + text(client, type));
        ClientManager::removeCurrentFocus(client, type);
    }

private:
    static std::string text(const FocusClient& client, FocusType type) {
        return std::to_string(client.uid) + "/" + std::to_string(client.pid) + " " +
               std::to_string(static_cast<int>(type));
    }

    const std::shared_ptr<CallLog> mLog;
};

}  // namespace NQS::OS

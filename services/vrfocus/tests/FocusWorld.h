// SPDX-License-Identifier: Apache-2.0
//
// Focus world: a policy with a made-up system around it, in one process.
//
//      policy ---> fake tracker (virtual queries) ---> in-process platform services
//         |                                                    ^
//         +------> fake registry ---> made-up processes        | packages, permissions
//                        +-------------------------------------+
//
// One world at a time per program: processes, properties and the service manager are global.
#pragma once

#include <json/value.h>

#include <memory>
#include <string>
#include <vector>

#include "CallLog.h"
#include "FakeClientManager.h"
#include "FakeConnectionManager.h"
#include "FakePlatform.h"
#include "FocusPolicy.h"

namespace NQS::OS {

class FocusWorld : public FakePlatform {
public:
    /** Starts a process; its uid gets the one package, or none when that is empty. */
    FocusClient run(int uid, int pid, const std::string& process, const std::string& package) {
        processes.set(pid, uid, process);
        permission->install(uid, package.empty() ? std::vector<std::string>()
                                                 : std::vector<std::string>{package});
        return {uid, pid};
    }
    /** An app's main process: named like its package. */
    FocusClient run(int uid, int pid, const std::string& process) {
        return run(uid, pid, process, process);
    }
    /** Starts a process and has the registry make its record, so that the snapshot holds it. */
    template <typename... Names>
    FocusClient runKnown(int uid, int pid, const Names&... names) {
        const FocusClient client = run(uid, pid, names...);
        clients->ClientManager::buildClientInfo(pid);
        return client;
    }
    void end(int pid) { processes.kill(pid); }

    /** Has the activity manager tell the tracker whether the client runs a panel service. */
    void setPanel(const FocusClient& client, bool present) {
        activity->world.access([&](FakeActivityManager::World& world) {
            if (present) {
                world.panels.insert(client);
            } else {
                world.panels.erase(client);
            }
        });
        activity->observer()->onForegroundServicesChanged(client.pid, client.uid,
                                                          /*serviceTypes=*/0);
    }

    void setPrimaryTop(const std::string& package) {
        activity->world.access([&](FakeActivityManager::World& world) {
            world.topActivity = android::String16(package.c_str());
        });
    }

    /** Package of the stored immersive app; empty when none is stored. Chooses none. */
    std::string storedPackage() { return policy->dumpJson()["immersiveApp"].asString(); }

    const std::shared_ptr<CallLog> log = std::make_shared<CallLog>();
    const std::shared_ptr<FakeConnectionManager> tracker =
            std::make_shared<FakeConnectionManager>(log);
    const std::shared_ptr<FakeClientManager> clients =
            std::make_shared<FakeClientManager>(tracker, log);
    const std::shared_ptr<FocusPolicy> policy = std::make_shared<FocusPolicy>(tracker, clients);
};

}  // namespace NQS::OS

// SPDX-License-Identifier: Apache-2.0
//
// The daemon: builds the one object of each kind, publishes the service and serves until killed.
#include <osutils/ServiceHost.h>

#include <csignal>
#include <memory>

#include "ClientManager.h"
#include "ConnectionManager.h"
#include "FocusPolicy.h"
#include "VrFocusService.h"

int main() {
    using namespace NQS::OS;
    // A reader of a dump may hang up at any time: that write fails, the daemon goes on.
    std::signal(SIGPIPE, SIG_IGN);

    const auto connectionManager = std::make_shared<ConnectionManager>();
    const auto clientManager = std::make_shared<ClientManager>(connectionManager);
    const auto policy = std::make_shared<FocusPolicy>(connectionManager, clientManager);
    const android::sp<VrFocusService> service = new VrFocusService(connectionManager, policy);

    ServiceHost host({{"vrfocus", service}});
    host.startThreadPool();
    return 0;
}

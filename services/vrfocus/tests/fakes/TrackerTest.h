// SPDX-License-Identifier: Apache-2.0
//
// Tracker fixture: a tracker among six made-up services.
//
// All services are up unless a test takes one away. Notices are sent through the observers that
// the tracker registered with them.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "ConnectionManager.h"
#include "FakePlatform.h"

namespace NQS::OS {

class TrackerTest : public testing::Test, protected FakePlatform {
protected:
    std::shared_ptr<ConnectionManager> makeTracker() {
        tracker = std::make_shared<ConnectionManager>();
        return tracker;
    }

    /** The service dies and does not come back. */
    template <typename Service>
    void loseService(const std::string& name, Service& service) {
        names.remove(name);
        service.die();
    }

    /** A process that lives, with its name made up. */
    void start(const FocusClient& client) {
        processes.set(client.pid, client.uid, "process" + std::to_string(client.pid));
    }

    CallLog& log = fakeLog();
    std::shared_ptr<ConnectionManager> tracker;
};

}  // namespace NQS::OS

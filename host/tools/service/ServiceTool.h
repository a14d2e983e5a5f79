// SPDX-License-Identifier: Apache-2.0
//
// Service tool: which services there are, and a call to any of them by hand.
#pragma once

#include <binder/IServiceManager.h>

#include <chrono>
#include <ostream>
#include <string>
#include <vector>

#include "CallArguments.h"
#include "common/Startup.h"

namespace tools {

/** Methods return the exit status: 0, or 1 when a service is missing or fails. */
class ServiceTool {
public:
    /** `patience`: how long list() waits for one service to say what kind it is. */
    ServiceTool(android::sp<android::IServiceManager> serviceManager,
                std::chrono::milliseconds patience, std::ostream& out, std::ostream& err);

    /** A service that does not answer in time is listed without its descriptor. */
    [[nodiscard]] int list();

    /** A service that is not there is an answer, not a failure. */
    [[nodiscard]] int check(const std::string& name);

    /**
     * Calls with the interface token of the service's own descriptor. Waits as long as the service
     * takes.
     */
    [[nodiscard]] int call(const std::string& name, const CallArguments& arguments);

private:
    [[nodiscard]] android::sp<android::IBinder> find(const std::string& name);

    const android::sp<android::IServiceManager> mServiceManager;
    const std::chrono::milliseconds mPatience;
    std::ostream& mOut;
    std::ostream& mErr;
};

/** The whole program but for what concerns the process. Returns the exit status. */
[[nodiscard]] int serviceMain(const std::vector<std::string>& arguments, const Connect& connect,
                              std::ostream& out, std::ostream& err);

}  // namespace tools

// SPDX-License-Identifier: Apache-2.0
//
// Dumpsys: what services say about their state, for people and scripts.
//
// One service is printed as it comes. All of them are printed under headings, each with the time it
// took. A service that is missing, fails or takes too long is reported and passed over.
#pragma once

#include <binder/IServiceManager.h>

#include <ostream>
#include <string>
#include <vector>

#include "DumpsysOptions.h"
#include "Output.h"
#include "PipedDump.h"
#include "common/Startup.h"

namespace tools {

class Dumpsys {
public:
    /** The output's failure ends a run; what it was is left in the output. */
    Dumpsys(android::sp<android::IServiceManager> serviceManager, Output& output,
            std::ostream& err);

    /** The exit status: 0, or 1 when something could not be printed. */
    [[nodiscard]] int run(const DumpsysOptions& options);

private:
    [[nodiscard]] bool printNames(const std::vector<android::String16>& names,
                                  const std::set<std::string>& skipped);
    [[nodiscard]] bool printOne(const DumpsysOptions& options);
    [[nodiscard]] bool printAll(const DumpsysOptions& options);
    [[nodiscard]] bool printUnderHeading(const std::string& name,
                                         const android::sp<android::IBinder>& service,
                                         const DumpsysOptions& options);
    [[nodiscard]] bool report(const std::string& name, const PipedDumpResult& result,
                              const DumpsysOptions& options);
    [[nodiscard]] android::sp<android::IBinder> find(const std::string& name);
    [[nodiscard]] std::vector<android::String16> listServices();

    const android::sp<android::IServiceManager> mServiceManager;
    Output& mOutput;
    std::ostream& mErr;
};

/** The whole program but for what concerns the process. Returns the exit status. */
[[nodiscard]] int dumpsysMain(const std::vector<std::string>& arguments, const Connect& connect,
                              int outFd, std::ostream& err);

}  // namespace tools

// SPDX-License-Identifier: Apache-2.0
//
// Session, started in the order that it needs.
#include "Session.h"

#include <stdlib.h>
#include <sys/stat.h>

#include "TestDevice.h"

namespace servicemanager::test {

using binderhost::tests::onDevice;
using binderhost::tests::testDevice;

namespace {

std::string enter(const std::string& folder) {
    // Services of other users are part of a session.
    if (chmod(folder.c_str(), 0711) != 0) abort();
    const std::string driver = onDevice() ? testDevice() : folder + "/hub";
    setenv("BINDER_DRIVER", driver.c_str(), /*overwrite=*/1);
    return driver;
}

std::optional<Program> startHub(const std::string& programs, const std::string& socket) {
    if (onDevice()) return {};
    return Program::ready({programs + "/binderhub", "--socket", socket});
}

}  // namespace

Session::Session(const std::string& programs)
      : mDriver(enter(mFolder.path)),
        mHub(startHub(programs, mDriver)),
        mServiceManager(Program::ready({programs + "/servicemanager"})) {}

}  // namespace servicemanager::test

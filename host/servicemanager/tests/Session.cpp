// SPDX-License-Identifier: Apache-2.0
//
// Session, started in the order that it needs.
#include "Session.h"

#include <stdlib.h>
#include <sys/stat.h>

namespace servicemanager::test {

namespace {

std::string enter(const std::string& folder) {
    // Services of other users are part of a session.
    if (chmod(folder.c_str(), 0711) != 0) abort();
    const std::string socket = folder + "/hub";
    setenv("BINDER_DRIVER", socket.c_str(), /*overwrite=*/1);
    return socket;
}

}  // namespace

Session::Session(const std::string& programs)
      : mHub(Program::ready({programs + "/binderhub", "--socket", enter(mFolder.path)})),
        mServiceManager(Program::ready({programs + "/servicemanager"})) {}

}  // namespace servicemanager::test

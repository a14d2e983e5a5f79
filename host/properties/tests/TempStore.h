// SPDX-License-Identifier: Apache-2.0
//
// Temporary store: a place for one test's properties, gone with it.
#pragma once

#include <android-base/file.h>
#include <properties/PropertyStore.h>

#include <string>

namespace hostproperties::test {

class TempStore {
public:
    [[nodiscard]] StorePlace place() const { return {.path = path(), .privateFolder = {}}; }
    [[nodiscard]] std::string path() const { return std::string(mFolder.path) + "/properties"; }
    [[nodiscard]] std::string folder() const { return mFolder.path; }

private:
    TemporaryDir mFolder;
};

}  // namespace hostproperties::test

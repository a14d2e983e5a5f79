// SPDX-License-Identifier: Apache-2.0
// The simulated native package manager.
#include "services/PackageManagerNative.h"

#include <utils/String16.h>

namespace sim {

using android::binder::Status;

Status PackageManagerNative::getNamesForUids(const std::vector<int32_t>& uids,
                                             std::vector<std::string>* out) {
    out->clear();
    const auto world = mWorld.get();
    for (const int32_t uid : uids) {
        const std::vector<std::string> names = world->packagesOf(uid);
        out->push_back(names.empty() ? "" : names.front());
    }
    return Status::ok();
}

Status PackageManagerNative::getInstallerForPackage(const android::String16&, std::string* out) {
    out->clear();
    return Status::ok();
}

Status PackageManagerNative::getVersionCodeForPackage(const android::String16&, int64_t* out) {
    *out = 1;
    return Status::ok();
}

}  // namespace sim

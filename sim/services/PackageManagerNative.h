// SPDX-License-Identifier: Apache-2.0
// The simulated native package manager ("package_native").
#pragma once

#include <android/content/pm/BnPackageManagerNative.h>

#include <string>
#include <vector>

#include "services/SimulatedService.h"
#include "services/WorldReplica.h"

namespace sim {

class PackageManagerNative : public android::content::pm::BnPackageManagerNative,
                             public SimulatedService {
public:
    /** The replica outlives this object. */
    explicit PackageManagerNative(const WorldReplica& world) : mWorld(world) {}

    /** Per uid its first package; an empty name when it has none. */
    android::binder::Status getNamesForUids(const std::vector<int32_t>& uids,
                                            std::vector<std::string>* out) override;
    /** Nobody installed anything: always empty. */
    android::binder::Status getInstallerForPackage(const android::String16& packageName,
                                                   std::string* out) override;
    /** 1 for every package. */
    android::binder::Status getVersionCodeForPackage(const android::String16& packageName,
                                                     int64_t* out) override;

private:
    const WorldReplica& mWorld;
};

}  // namespace sim

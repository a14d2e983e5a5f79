// SPDX-License-Identifier: Apache-2.0
// The simulated permission controller ("permission"): permissions and packages of the world.
#pragma once

#include <binder/IPermissionController.h>

#include "services/SimulatedService.h"
#include "services/WorldReplica.h"

namespace sim {

class PermissionController : public android::BnPermissionController, public SimulatedService {
public:
    /** The replica outlives this object. */
    explicit PermissionController(const WorldReplica& world) : mWorld(world) {}

    bool checkPermission(const android::String16& permission, int32_t pid, int32_t uid) override;
    /** Every operation is allowed. */
    int32_t noteOp(const android::String16& op, int32_t uid,
                   const android::String16& packageName) override;
    void getPackagesForUid(const uid_t uid, android::Vector<android::String16>& packages) override;
    /** None of the world's permissions is asked for at run time. */
    bool isRuntimePermission(const android::String16& permission) override;
    /** -1 for a package that is not installed. */
    int getPackageUid(const android::String16& package, int flags) override;

private:
    const WorldReplica& mWorld;
};

}  // namespace sim

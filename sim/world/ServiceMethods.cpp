// SPDX-License-Identifier: Apache-2.0
// What can be called of each simulated service. A test compares it with the generated proxies.
#include "world/ServiceMethods.h"

#include <algorithm>
#include <map>

namespace sim {
namespace {

constexpr bool kRegisters = true;
constexpr bool kOneWay = true;

const std::map<std::string, std::vector<ServiceMethod>>& allMethods() {
    static const std::map<std::string, std::vector<ServiceMethod>> kMethods{
            {"activity",
             {{"registerProcessObserver", 110, kRegisters},
              {"unregisterProcessObserver", 111},
              {"hasForegroundPanelService", 225},
              {"hasActivityOnPrimaryDisplay", 226},
              {"getDisplaysWithTopActivities", 227},
              {"getTopActivityOnPrimaryDisplay", 228}}},
            {"display", {{"registerCallbackWithEventMask", 5, kRegisters}}},
            {"permission",
             {{"checkPermission", 1},
              {"noteOp", 2},
              {"getPackagesForUid", 3},
              {"isRuntimePermission", 4},
              {"getPackageUid", 5}}},
            {"package_native",
             {{"getNamesForUids", 1},
              {"getInstallerForPackage", 2},
              {"getVersionCodeForPackage", 3}}},
            {"VelmarWindowManager",
             {{"registerWindowLayoutObserver", 1, kRegisters},
              {"unregisterWindowLayoutObserver", 2},
              {"registerSystemKeyEventHandler", 3},
              {"unregisterSystemKeyEventHandler", 4}}},
            {"vrfocushelper",
             {{"onFocusChanged", 1, !kRegisters, kOneWay},
              {"onTopActivityChanged", 2, !kRegisters, kOneWay},
              {"onImmersiveAppChanged", 3, !kRegisters, kOneWay}}},
    };
    return kMethods;
}

}  // namespace

const std::vector<ServiceMethod>& methodsOf(const std::string& service) {
    static const std::vector<ServiceMethod> kNone;
    const auto found = allMethods().find(service);
    return found == allMethods().end() ? kNone : found->second;
}

const ServiceMethod* findMethod(const std::string& service, std::string_view name) {
    const std::vector<ServiceMethod>& methods = methodsOf(service);
    const auto found =
            std::find_if(methods.begin(), methods.end(),
                         [&](const ServiceMethod& method) { return method.name == name; });
    return found == methods.end() ? nullptr : &*found;
}

}  // namespace sim

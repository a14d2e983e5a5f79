// SPDX-License-Identifier: Apache-2.0
//
// Focus client with metadata: moving, and the two forms in which it leaves the daemon.
#include "FocusClientWithMetadata.h"

#include <utils/String16.h>

#include <utility>

namespace NQS::OS {

namespace {

Json::Value toNumbers(const std::set<FocusType>& types) {
    Json::Value numbers(Json::arrayValue);
    for (const FocusType type : types) {
        numbers.append(static_cast<Json::Int>(type));
    }
    return numbers;
}

}  // namespace

FocusClientWithMetadata::FocusClientWithMetadata(int32_t uid, int32_t pid, std::string package,
                                                 std::string process,
                                                 std::set<FocusType> backgroundAccess,
                                                 std::set<FocusType> currentFocus)
      : uid(uid),
        pid(pid),
        package(std::move(package)),
        process(std::move(process)),
        backgroundAccess(std::move(backgroundAccess)),
        currentFocus(std::move(currentFocus)) {}

// The library leaves moved-from strings and sets in some valid state; this promises an empty one.
FocusClientWithMetadata::FocusClientWithMetadata(FocusClientWithMetadata&& other) noexcept
      : uid(other.uid),
        pid(other.pid),
        package(std::move(other.package)),
        process(std::move(other.process)),
        backgroundAccess(std::move(other.backgroundAccess)),
        currentFocus(std::move(other.currentFocus)) {
    other.package.clear();
    other.process.clear();
    other.backgroundAccess.clear();
    other.currentFocus.clear();
}

FocusClientWithMetadata& FocusClientWithMetadata::operator=(
        FocusClientWithMetadata&& other) noexcept {
    if (this == &other) return *this;
    uid = other.uid;
    pid = other.pid;
    package = std::exchange(other.package, {});
    process = std::exchange(other.process, {});
    backgroundAccess = std::exchange(other.backgroundAccess, {});
    currentFocus = std::exchange(other.currentFocus, {});
    return *this;
}

Json::Value FocusClientWithMetadata::toJson() const {
    Json::Value json(Json::objectValue);
    json["uid"] = uid;
    json["pid"] = pid;
    json["process"] = process;
    json["package"] = package;
    json["backgroundAccess"] = toNumbers(backgroundAccess);
    json["currentFocus"] = toNumbers(currentFocus);
    return json;
}

velmar::internal::ImmersiveApp FocusClientWithMetadata::toImmersiveApp(bool isTopActivity) const {
    velmar::internal::ImmersiveApp app;
    app.packageName = android::String16(package.data(), package.size());
    app.pid = pid;
    app.uid = uid;
    app.isTopActivity = isTopActivity;
    return app;
}

}  // namespace NQS::OS

// SPDX-License-Identifier: Apache-2.0
//
// Focus client with metadata: a process with the facts that focus is decided on.
//
// A plain value without a lock of its own. Sets of it are ordered by identity alone, so that a set
// holds one record at most per (uid, pid), whatever else the records say.
#pragma once

#include "FocusClient.h"
#include "FocusType.h"

#include <json/value.h>
#include <velmar/internal/ImmersiveApp.h>

#include <cstdint>
#include <set>
#include <string>

namespace NQS::OS {

struct FocusClientWithMetadata {
    int32_t uid;
    int32_t pid;
    /** The package that the process stands for, in UTF-8; empty when unknown. */
    std::string package;
    /** A native process's path, or an app process's name: package, or package:suffix. */
    std::string process;
    /** The types that the client may hold without being in the foreground. */
    std::set<FocusType> backgroundAccess;
    /** The types that the client was last found to hold. */
    std::set<FocusType> currentFocus;

    FocusClientWithMetadata(int32_t uid, int32_t pid, std::string package, std::string process,
                            std::set<FocusType> backgroundAccess, std::set<FocusType> currentFocus);
    FocusClientWithMetadata(const FocusClientWithMetadata&) = default;
    FocusClientWithMetadata& operator=(const FocusClientWithMetadata&) = default;
    /** Leaves the other's strings and sets empty; its identity stays. */
    FocusClientWithMetadata(FocusClientWithMetadata&& other) noexcept;
    FocusClientWithMetadata& operator=(FocusClientWithMetadata&& other) noexcept;
    ~FocusClientWithMetadata() = default;

    /** The identity: the first two fields as one value. */
    [[nodiscard]] FocusClient client() const { return {uid, pid}; }

    /** The form of the state dump. Types are numbers; an empty set is an empty array. */
    [[nodiscard]] Json::Value toJson() const;

    /** The form in which the focus service hands the client out. */
    [[nodiscard]] velmar::internal::ImmersiveApp toImmersiveApp(bool isTopActivity) const;

    /** On (uid, pid) only. */
    friend bool operator<(const FocusClientWithMetadata& left,
                          const FocusClientWithMetadata& right) {
        return left.client() < right.client();
    }
};

}  // namespace NQS::OS

// SPDX-License-Identifier: Apache-2.0
//
// The course of a scenario as its lines alone tell it: what a command needs of those before it, and
// what it changes for those after it.
#pragma once

#include <optional>
#include <string>

#include "scenario/Scope.h"
#include "scenario/Script.h"

namespace sim::scenario {

struct Complaint {
    int column = 0;
    std::string message;
};

/** Why a command whose words are right cannot succeed where it stands, if that is certain. */
[[nodiscard]] std::optional<Complaint> complaintAbout(const Command& command, const Scope& scope);

/** The names that a command starts, ends or installs. */
void applyTo(const Command& command, Scope* scope);

}  // namespace sim::scenario

// SPDX-License-Identifier: Apache-2.0
//
// Random commands on a headset, whatever has been done to it.
#pragma once

#include "scenario/Pattern.h"
#include "scenario/RandomCommands.h"
#include "session/Headset.h"

namespace sim::scenario {

class Player;

/** What random commands must know of a headset before the first of them. */
[[nodiscard]] RandomStart randomStart(Headset& headset);

/** random SEED COUNT: plays each as if it were written; errors as Player::play. */
void playRandom(Player& player, const Arguments& arguments);

}  // namespace sim::scenario

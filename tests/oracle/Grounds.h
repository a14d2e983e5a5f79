// SPDX-License-Identifier: Apache-2.0
//
// What cannot be left out when a command ended otherwise than it says.
//
// Problem: nobody can say a second time with which status a call must end, so after leaving out a
// line the same end may be the right one. It depends on who the caller is, what it may, which
// listeners it has, what there is, and who is away. Those lines stay; what apps show and tell goes.
#pragma once

#include "Shortening.h"

namespace oracle {

/** Lines on which it depends whether the last one is legal and how it must end, and that one. */
[[nodiscard]] Lines groundsOf(const Lines& lines);

/** Whether all of the grounds are there, in their order. */
[[nodiscard]] bool holdsAll(const Lines& lines, const Lines& grounds);

}  // namespace oracle

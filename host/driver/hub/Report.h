// SPDX-License-Identifier: Apache-2.0
//
// Report: what the hub says on stderr about its clients.
//
// Problem: what clients do makes it speak, so they could fill a disk, or, where nobody reads the
// other end of a pipe, make it wait for ever. So it says a bounded number of lines a second and
// none that would have to wait; how many it left out, it says when it speaks again.
#pragma once

namespace binderhost::hub {

/** A line of printf's kind, without prefix and end; %m is not for it. */
void report(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace binderhost::hub

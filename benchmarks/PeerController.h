// SPDX-License-Identifier: Apache-2.0
//
// What dbus-broker needs to run without the launcher it comes with, which wants systemd: somebody
// at its controlling socket who hands it a listening socket and a policy.
#pragma once

#include <functional>

/**
 * Starts a dbus-broker that serves a listening socket and lets everybody do everything, calls
 * `ready`, and answers the broker until one of the two ends. Never returns; in a child process.
 */
[[noreturn]] void controlBroker(int listeningSocket, const std::function<void()>& ready);

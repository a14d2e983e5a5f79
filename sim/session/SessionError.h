// SPDX-License-Identifier: Apache-2.0
//
// How a session ends early. The simulation's only exceptions: thrown by the controller, caught in
// main and in tests, so that a session script reads as a list of steps.
#pragma once

#include <stdexcept>
#include <string>

namespace sim {

/** Something that the session needs failed; what() says what, and what was expected. */
class SessionError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/** The person wants it to end: what they pressed came as this signal. */
class SessionStopped : public std::exception {
public:
    explicit SessionStopped(int signal) : mSignal(signal) {}
    [[nodiscard]] int signal() const { return mSignal; }
    [[nodiscard]] const char* what() const noexcept override { return "stopped by a signal"; }

private:
    const int mSignal;
};

}  // namespace sim

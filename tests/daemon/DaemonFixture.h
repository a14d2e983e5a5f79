// SPDX-License-Identifier: Apache-2.0
//
// A booted headset with a game in front, whose daemon the test process itself may call.
//
// The uid of all that the session has not started holds every permission that the daemon asks for,
// so a caller in the test process is granted all, as root and as an ordinary user. Each test ends
// by looking whether the daemon is the one that was started, answers, and holds no more than
// before.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

#include "../session/HeadsetFixture.h"
#include "FocusCaller.h"
#include "Holdings.h"

namespace daemontest {

class DaemonFixture : public sim::HeadsetFixture {
protected:
    /** The pool's own thread, those that the driver may ask for, the main thread, a sanitizer's. */
    static constexpr size_t kMostThreads = 1 + 15 + 1 + 1;

    DaemonFixture();
    void SetUp() override;

    /** The hub's socket, or the device that stands in for it. */
    [[nodiscard]] std::string hubPath() {
        return mHeadset->stack().environment().at("BINDER_DRIVER");
    }
    [[nodiscard]] int daemonPid() { return mHeadset->stack().daemonPid(); }

    /** A new process of the driver, under the test's pid. */
    [[nodiscard]] std::unique_ptr<FocusCaller> makeCaller() {
        return std::make_unique<FocusCaller>(hubPath());
    }

    /** A driven process under the test's uid, ready; gone with the object. */
    [[nodiscard]] std::unique_ptr<sim::DrivenProcess> startDriven(const std::string& program,
                                                                  const std::string& name);
    [[nodiscard]] std::chrono::milliseconds patience() { return mHeadset->stack().patience(); }

    /** What the daemon answers to every question, and its dump. */
    [[nodiscard]] std::string picture();

    /** Waits until the daemon and the hub hold no more than before, with the same callers alive. */
    void expectHoldings(const Holdings& before);
    [[nodiscard]] Holdings holdings() { return holdingsOf(daemonPid(), hubPath()); }

    /** Holdings while nothing is under way anywhere. */
    [[nodiscard]] Holdings settledHoldings();

    /** Runs steps that must leave no trace: the same daemon, the same picture, no more held. */
    void expectNoTrace(const std::function<void()>& steps);
};

}  // namespace daemontest

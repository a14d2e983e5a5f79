// SPDX-License-Identifier: Apache-2.0
//
// PeerClient: a client that is a process of its own, led by the test.
//
//      test                                                    peer, forked
//        exchange ── commands, payloads, descriptors ────────▶   writeRead
//                 ◀── returns, copies of their buffers, descriptors ──
//
// A thread of a peer is led through a socket of its own. What does not answer is a failure with a
// message after kDeadline. The last client of a peer takes it along: it is killed.
//
// Limits: peers are forked, so a test has no threads of its own.
#pragma once

#include <android-base/unique_fd.h>
#include <sys/types.h>

#include <chrono>
#include <memory>
#include <string>

#include "Child.h"
#include "StepClient.h"
#include "driver/Driver.h"

namespace binderhost::tests {

class PeerClient : public StepClient {
public:
    static constexpr std::chrono::seconds kDeadline{30};

    /** Who a peer is: as the test, or, where that is root, somebody who may not become another. */
    enum class As { Tester, Ordinary };
    static constexpr uid_t kOrdinaryUid = 65534;

    /** A new process with the driver at a path. */
    explicit PeerClient(const std::string& path, As as = As::Tester);
    /** A new thread of the same process; it leaves the driver when its client is destroyed. */
    explicit PeerClient(const PeerClient* sibling);
    PeerClient(PeerClient&&) = default;

    [[nodiscard]] int exchange(const Commands& commands, bool read) override;
    [[nodiscard]] int becomeContextManager() override;
    void exitThread();
    [[nodiscard]] int setMaxThreads(uint32_t count);
    [[nodiscard]] int enableOnewaySpamDetection(bool enable);

    /** Lets the thread wait for returns, which the next call to next() takes. */
    void beginRead();

    /** What runs in the peer, on this thread of it; without captures. */
    using Function = int (*)(Driver& driver, int64_t argument);
    [[nodiscard]] int run(Function function, int64_t argument = 0);

    [[nodiscard]] pid_t pid() const { return mProcess->pid(); }
    /** Ends the process and waits until it is gone; its driver may notice later. */
    void kill() { mProcess->killAndWait(); }

private:
    void send(const Commands& commands, bool read);
    [[nodiscard]] int receive();

    std::shared_ptr<Child> mProcess;
    android::base::unique_fd mSocket;
    bool mReading = false;
};

}  // namespace binderhost::tests

// SPDX-License-Identifier: Apache-2.0
//
// Channel: one thread's tie to the hub. Used by that thread only.
//
//                     send kRead                         record arrives
//      nothing asked ────────────▶ a read is outstanding ──────────────▶ returns to hand out ─┐
//           ▲                            │  ▲                                                 │
//           │                  -EINTR:   └──┘                     all handed out              │
//           └─────────────────────────────────────────────────────────────────────────────────┘
//
// A reply without objects is completed here, with the read left outstanding: the hub takes the
// thread for idle at once and the next call only receives.
#pragma once

#include <android-base/unique_fd.h>
#include <linux/android/binder.h>

#include <memory>
#include <vector>

#include "ForkGuard.h"
#include "embedded/IncomingRecord.h"
#include "embedded/OutgoingFrame.h"
#include "embedded/Session.h"

namespace binderhost {

class Channel {
public:
    Channel(std::shared_ptr<Session> session, android::base::unique_fd socket);
    ~Channel();
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    [[nodiscard]] int writeRead(binder_write_read* bwr);

private:
    /** A one-way call alone, which needs no answer: false when the hub must be asked. */
    [[nodiscard]] bool post(binder_write_read* bwr);
    [[nodiscard]] int write(binder_write_read* bwr, bool* completedLocally);
    /** Packs and sends one frame from the start of the commands. */
    [[nodiscard]] int writeSome(std::span<const uint8_t> commands, bool wantsRead, bool whole,
                                size_t* consumed, bool* completedLocally);
    [[nodiscard]] int sendFrame(const OutgoingFrame& frame);
    /** The kernel stamps it with the pid and the real uid. */
    [[nodiscard]] int sendBytes(std::span<const uint8_t> bytes, std::span<const int> descriptors);
    /** The kernel attests the pid and the effective uid, which it would not do unasked. */
    [[nodiscard]] int sendClaiming(std::span<const uint8_t> bytes,
                                   std::span<const int> descriptors);
    [[nodiscard]] int read(binder_write_read* bwr);
    [[nodiscard]] int receive();
    void handOut(binder_write_read* bwr);
    void leave();

    const std::shared_ptr<Session> mSession;
    android::base::unique_fd mSocket;
    ForkGuard mGuard{&mSocket};
    gid_t mGroup;
    bool mReadOutstanding = false;
    /** No call was sent that no later read asks about: a letter might overtake it. */
    bool mCallsAnswered = true;
    uint32_t mCallsInHand = 0;
    IncomingRecord mIncoming;
    size_t mHandedOut = 0;
    const size_t mRoomSize;
    const std::unique_ptr<uint8_t[]> mRoom;
    Received mReceived;
};

}  // namespace binderhost

// SPDX-License-Identifier: Apache-2.0
//
// One thread's commands on their way to the driver and from it. Used by that thread alone.
#pragma once

#include <binder/IPCThreadState.h>
#include <driver/Driver.h>
#include <utils/RefBase.h>

#include <array>
#include <cstring>
#include <deque>
#include <memory>
#include <vector>

namespace android {

struct IPCThreadState::Queues {
    /** Commands to be written. */
    std::vector<uint8_t> out;
    /** Something in out that a thread outside the pool must not sit on. */
    bool urgent = false;
    /** out ends in a BC_REPLY: the next thing to happen must be the write that sends it. */
    bool replyQueued = false;
    /**
     * An answer went out in an exchange that also reads. The driver counts the thread as idle: it
     * must not call anybody until it has been given work.
     */
    bool promised = false;

    /** Commands that have been read; those before inPosition are done. */
    std::array<uint8_t, 1024> in;
    size_t inPosition = 0;
    size_t inEnd = 0;

    /** Replies that were queued and whose completion has not come, oldest first. */
    std::deque<std::unique_ptr<Parcel>> repliesInFlight;
    /** One that is done, small and empty, for the next: an answer takes no memory then. */
    std::unique_ptr<Parcel> spareReply;
    /** Replies that were completed; what they hold is released when nothing is unread. */
    std::vector<std::unique_ptr<Parcel>> doneReplies;
    /** Local objects that the driver has let go of. */
    std::vector<BBinder*> strongReturns;
    std::vector<RefBase::weakref_type*> weakReturns;
    /** Proxies whose acquisition is queued: they must not go before it has been written. */
    std::vector<sp<RefBase>> heldUntilWritten;

    /** The process's share, once it has been needed: it opens the driver. */
    ProcessState::Internals* process = nullptr;

    bool looper = false;
    /** Waits for an answer that this thread is in, one inside the other. */
    int waits = 0;
    bool knownToDriver = false;
    /** Made by a destructor of thread data that ran late: the driver knows the thread no more. */
    bool afterThreadExit = false;

    [[nodiscard]] bool unread() const { return inPosition < inEnd; }

    void put(uint32_t command) {
        append(&command, sizeof(command));
        urgent = urgent || command != BC_FREE_BUFFER;
    }
    template <typename T>
    void put(uint32_t command, const T& argument) {
        uint8_t both[sizeof(command) + sizeof(argument)];
        std::memcpy(both, &command, sizeof(command));
        std::memcpy(both + sizeof(command), &argument, sizeof(argument));
        append(both, sizeof(both));
        urgent = urgent || command != BC_FREE_BUFFER;
    }

    [[nodiscard]] std::unique_ptr<Parcel> takeReply() {
        return spareReply != nullptr ? std::move(spareReply) : std::make_unique<Parcel>();
    }
    /** The parcel must hold no objects: releasing those may run a user's code. */
    void keepReply(std::unique_ptr<Parcel> reply) {
        if (reply->dataCapacity() > kLargestSpare) return;
        reply->freeData();
        reply->restoreAllowFds(true);
        spareReply = std::move(reply);
    }

    /** The next bytes read. False when they end early, which a driver never lets happen. */
    template <typename T>
    [[nodiscard]] bool take(T* out_) {
        if (inEnd - inPosition < sizeof(T)) return false;
        std::memcpy(out_, in.data() + inPosition, sizeof(T));
        inPosition += sizeof(T);
        return true;
    }
    template <typename T>
    [[nodiscard]] T argument() {
        T value{};
        if (!take(&value)) inPosition = inEnd;
        return value;
    }

private:
    static constexpr size_t kLargestSpare = 4096;

    void append(const void* bytes, size_t size) {
        const auto* first = static_cast<const uint8_t*>(bytes);
        out.insert(out.end(), first, first + size);
    }
};

}  // namespace android

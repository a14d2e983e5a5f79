// SPDX-License-Identifier: Apache-2.0
//
// OutgoingFrame: a stretch of BC_* commands, packed for the hub.
//
// Pointers become contents: data and offsets follow their transaction, or the data go into a
// sealed memory file when they are large; a buffer's address becomes the hub's number. Packing
// changes nothing in the process, so a frame that could not be sent is simply packed again.
#pragma once

#include <android-base/unique_fd.h>
#include <linux/android/binder.h>

#include <cstdint>
#include <span>
#include <vector>

#include "embedded/BufferTable.h"
#include "embedded/Frame.h"

namespace binderhost {

class OutgoingFrame {
public:
    /** What to do with descriptor objects, after the kernel has refused to send some. */
    enum class Descriptors { Send, OnlyOpenOnes, None };

    OutgoingFrame(const BufferTable& buffers, Descriptors descriptors)
          : mBuffers(buffers), mMode(descriptors) {
        mBytes.reserve(kUsualBytes);
        mBytes.resize(sizeof(frame::Header));
    }

    /** Commands that are already in the hub's form. */
    void addPacked(std::span<const uint8_t> commands) {
        mBytes.insert(mBytes.end(), commands.begin(), commands.end());
    }

    /**
     * Packs commands until their end or until the frame is full. False at something that is no
     * command; consumed() then ends before it.
     */
    [[nodiscard]] bool add(std::span<const uint8_t> commands);

    void setFlags(uint32_t flags);
    [[nodiscard]] size_t consumed() const { return mConsumed; }
    [[nodiscard]] std::span<const uint8_t> bytes() const { return mBytes; }
    [[nodiscard]] std::span<const int> descriptors() const { return mDescriptors; }
    [[nodiscard]] bool empty() const { return mBytes.size() == sizeof(frame::Header); }
    /** Addresses of the buffers that it gives back: to be released once it is sent. */
    [[nodiscard]] std::span<const uint64_t> freed() const { return mFreed; }
    [[nodiscard]] uint32_t replies() const { return mReplies; }
    [[nodiscard]] uint32_t calls() const { return mTransactions; }
    /** One reply without objects and no call: nothing the hub could have to say to it. */
    [[nodiscard]] bool needsNoCompletion() const {
        return mReplies == 1 && mTransactions == 0 && !mReplyHasObjects;
    }

private:
    /** A reply, a freed buffer and a few references: one allocation. */
    static constexpr size_t kUsualBytes = 512;

    struct Plan;
    [[nodiscard]] bool addTransaction(uint32_t command, const binder_transaction_data& data);
    [[nodiscard]] Plan plan(const binder_transaction_data& data) const;
    void append(uint32_t command, const Plan& plan);

    const BufferTable& mBuffers;
    const Descriptors mMode;
    std::vector<uint8_t> mBytes;
    std::vector<int> mDescriptors;
    std::vector<android::base::unique_fd> mMemory;
    std::vector<uint64_t> mFreed;
    size_t mConsumed = 0;
    uint32_t mReplies = 0;
    uint32_t mTransactions = 0;
    bool mReplyHasObjects = false;
};

}  // namespace binderhost

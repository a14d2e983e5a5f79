// SPDX-License-Identifier: Apache-2.0
//
// A driver that says what a test has written down, and keeps what it is told.
//
// It reaches what real processes cannot force: a death notice in the middle of a wait, an exchange
// that is interrupted half-way, an answer that overtakes an acknowledgement.
//
//      caller steps    for threads outside the pool, one per exchange that reads, in order
//      pool steps      for threads of the pool; they wait for one to be added
#pragma once

#include <driver/Driver.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace scripted {

/** Bytes of BR_* commands, as one exchange hands them over. */
class Reads {
public:
    Reads& put(uint32_t command) {
        append(&command, sizeof(command));
        return *this;
    }
    template <typename T>
    Reads& put(uint32_t command, const T& argument) {
        put(command);
        append(&argument, sizeof(argument));
        return *this;
    }
    [[nodiscard]] const std::vector<uint8_t>& bytes() const { return mBytes; }

private:
    void append(const void* data, size_t size) {
        const auto* first = static_cast<const uint8_t*>(data);
        mBytes.insert(mBytes.end(), first, first + size);
    }
    std::vector<uint8_t> mBytes;
};

/** One command that the runtime wrote. */
struct Written {
    uint32_t command = 0;
    /** Which exchange with the driver it came in, and whether that exchange read as well. */
    int exchange = 0;
    bool reads = false;
    bool byPool = false;
    /** Of transactions and replies. */
    binder_transaction_data transaction{};
    std::vector<uint8_t> payload;
    /** Handle, buffer or cookie of the others. */
    uint64_t value = 0;
};

struct Step {
    Reads reads;
    int result = 0;
    /** Bytes of the write buffer taken; all by default. */
    size_t consume = SIZE_MAX;
};

class ScriptedDriver : public binderhost::Driver {
public:
    using MakeStep = std::function<Step()>;

    /** Forgets everything; what still stands afterwards is the test's own. */
    void reset();

    void caller(const Reads& reads) { addCaller({reads, 0, SIZE_MAX}); }
    void addCaller(const Step& step);
    void pool(const Reads& reads);
    /** Made when it is read: for arguments that only exist by then. */
    void poolLater(MakeStep make);

    /** Done once, when a command of this kind has been written, before its exchange ends. */
    void whenWritten(uint32_t command, std::function<void()> act);

    /** A payload that BR_TRANSACTION or BR_REPLY may name; live until it is handed back. */
    binder_transaction_data payload(const void* data, size_t size,
                                    const std::vector<binder_size_t>& offsets = {});

    [[nodiscard]] std::vector<Written> written() const;
    [[nodiscard]] std::vector<uint32_t> writtenCommands() const;
    /** Waits until a command has been written that many times. */
    [[nodiscard]] bool awaitWritten(uint32_t command, size_t times = 1) const;
    [[nodiscard]] size_t liveBuffers() const;
    /** Acquired less released, of all handles. */
    [[nodiscard]] int heldHandles() const;
    [[nodiscard]] size_t standingDeathRequests() const;
    /** Exchanges that read when no step was left. */
    [[nodiscard]] int unscriptedReads() const;

    /** From here on every exchange ends as when the other side has gone. */
    void goAway();

    int writeRead(binder_write_read* bwr) override;
    int becomeContextManager() override { return 0; }
    int setMaxThreads(uint32_t /*count*/) override { return 0; }
    int enableOnewaySpamDetection(bool /*enable*/) override { return 0; }
    void exitThread() override;
    std::string describe() const override { return "a script"; }

private:
    struct Buffer {
        std::vector<uint8_t> data;
        std::vector<binder_size_t> offsets;
    };

    void recordLocked(const uint8_t* bytes, size_t size, bool reads);
    /** Does what is due, without the lock. */
    void act(std::unique_lock<std::mutex>* lock, const uint8_t* bytes, size_t size);
    size_t argumentLocked(Written* entry, const uint8_t* argument);
    bool isPoolLocked() const;

    mutable std::mutex mLock;
    mutable std::condition_variable mChanged;
    std::deque<Step> mCallerSteps;
    std::deque<MakeStep> mPoolSteps;
    std::vector<Written> mWritten;
    std::map<uint32_t, std::function<void()>> mActs;
    std::map<uint64_t, std::unique_ptr<Buffer>> mBuffers;
    std::map<uint64_t, int> mHandles;
    std::set<uint64_t> mDeathRequests;
    std::set<std::thread::id> mPoolThreads;
    int mExchanges = 0;
    int mUnscriptedReads = 0;
    bool mGone = false;
};

}  // namespace scripted

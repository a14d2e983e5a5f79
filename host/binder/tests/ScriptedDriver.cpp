// SPDX-License-Identifier: Apache-2.0
#include "ScriptedDriver.h"

#include <algorithm>
#include <cerrno>

namespace scripted {
namespace {

using namespace std::chrono_literals;
constexpr auto kDeadline = 20s;

template <typename T>
T load(const uint8_t* from) {
    T value{};
    std::memcpy(&value, from, sizeof(value));
    return value;
}

}  // namespace

void ScriptedDriver::reset() {
    std::lock_guard lock(mLock);
    mCallerSteps.clear();
    mPoolSteps.clear();
    mWritten.clear();
    mActs.clear();
    mBuffers.clear();
    mHandles.clear();
    mDeathRequests.clear();
    mUnscriptedReads = 0;
}

void ScriptedDriver::addCaller(const Step& step) {
    std::lock_guard lock(mLock);
    mCallerSteps.push_back(step);
}

void ScriptedDriver::pool(const Reads& reads) {
    poolLater([reads] { return Step{reads, 0, SIZE_MAX}; });
}

void ScriptedDriver::poolLater(MakeStep make) {
    {
        std::lock_guard lock(mLock);
        mPoolSteps.push_back(std::move(make));
    }
    mChanged.notify_all();
}

binder_transaction_data ScriptedDriver::payload(const void* data, size_t size,
                                                const std::vector<binder_size_t>& offsets) {
    auto buffer = std::make_unique<Buffer>();
    const auto* first = static_cast<const uint8_t*>(data);
    buffer->data.assign(first, first + size);
    buffer->data.reserve(std::max<size_t>(size, 1));  // A buffer has an address, even an empty one.
    buffer->offsets = offsets;
    binder_transaction_data transaction{};
    transaction.data_size = size;
    transaction.offsets_size = offsets.size() * sizeof(binder_size_t);
    transaction.data.ptr.buffer = reinterpret_cast<uintptr_t>(buffer->data.data());
    transaction.data.ptr.offsets = reinterpret_cast<uintptr_t>(buffer->offsets.data());
    std::lock_guard lock(mLock);
    mBuffers[transaction.data.ptr.buffer] = std::move(buffer);
    return transaction;
}

std::vector<Written> ScriptedDriver::written() const {
    std::lock_guard lock(mLock);
    return mWritten;
}

std::vector<uint32_t> ScriptedDriver::writtenCommands() const {
    std::vector<uint32_t> commands;
    for (const Written& entry : written())
        commands.push_back(entry.command);
    return commands;
}

bool ScriptedDriver::awaitWritten(uint32_t command, size_t times) const {
    std::unique_lock lock(mLock);
    return mChanged.wait_for(lock, kDeadline, [&] {
        return size_t(std::count_if(mWritten.begin(), mWritten.end(), [&](const Written& entry) {
                   return entry.command == command;
               })) >= times;
    });
}

size_t ScriptedDriver::liveBuffers() const {
    std::lock_guard lock(mLock);
    return mBuffers.size();
}

int ScriptedDriver::heldHandles() const {
    std::lock_guard lock(mLock);
    int held = 0;
    for (const auto& [handle, count] : mHandles)
        held += count;
    return held;
}

size_t ScriptedDriver::standingDeathRequests() const {
    std::lock_guard lock(mLock);
    return mDeathRequests.size();
}

int ScriptedDriver::unscriptedReads() const {
    std::lock_guard lock(mLock);
    return mUnscriptedReads;
}

void ScriptedDriver::goAway() {
    {
        std::lock_guard lock(mLock);
        mGone = true;
    }
    mChanged.notify_all();
}

void ScriptedDriver::exitThread() {
    std::lock_guard lock(mLock);
    mPoolThreads.erase(std::this_thread::get_id());
}

bool ScriptedDriver::isPoolLocked() const {
    return mPoolThreads.contains(std::this_thread::get_id());
}

size_t ScriptedDriver::argumentLocked(Written* entry, const uint8_t* argument) {
    switch (entry->command) {
        case BC_TRANSACTION:
        case BC_REPLY: {
            entry->transaction = load<binder_transaction_data>(argument);
            const auto* data = reinterpret_cast<const uint8_t*>(entry->transaction.data.ptr.buffer);
            entry->payload.assign(data, data + entry->transaction.data_size);
            break;
        }
        case BC_FREE_BUFFER:
            entry->value = load<binder_uintptr_t>(argument);
            mBuffers.erase(entry->value);
            break;
        case BC_ACQUIRE:
            entry->value = load<uint32_t>(argument);
            mHandles[entry->value]++;
            break;
        case BC_RELEASE:
            entry->value = load<uint32_t>(argument);
            mHandles[entry->value]--;
            break;
        case BC_REQUEST_DEATH_NOTIFICATION:
            entry->value = load<binder_handle_cookie>(argument).cookie;
            mDeathRequests.insert(entry->value);
            break;
        case BC_CLEAR_DEATH_NOTIFICATION:
            entry->value = load<binder_handle_cookie>(argument).cookie;
            mDeathRequests.erase(entry->value);
            break;
        case BC_ACQUIRE_DONE:
        case BC_INCREFS_DONE:
            entry->value = load<binder_ptr_cookie>(argument).cookie;
            break;
        case BC_DEAD_BINDER_DONE:
            entry->value = load<binder_uintptr_t>(argument);
            break;
        case BC_ENTER_LOOPER:
        case BC_REGISTER_LOOPER:
            mPoolThreads.insert(std::this_thread::get_id());
            break;
        case BC_EXIT_LOOPER:
            mPoolThreads.erase(std::this_thread::get_id());
            break;
        default:
            break;
    }
    return _IOC_SIZE(entry->command);
}

void ScriptedDriver::recordLocked(const uint8_t* bytes, size_t size, bool reads) {
    for (size_t at = 0; at + sizeof(uint32_t) <= size;) {
        Written entry;
        entry.command = load<uint32_t>(bytes + at);
        entry.exchange = mExchanges;
        entry.reads = reads;
        at += sizeof(uint32_t);
        at += argumentLocked(&entry, bytes + at);
        entry.byPool = isPoolLocked();
        mWritten.push_back(std::move(entry));
    }
}

void ScriptedDriver::whenWritten(uint32_t command, std::function<void()> act) {
    std::lock_guard lock(mLock);
    mActs[command] = std::move(act);
}

void ScriptedDriver::act(std::unique_lock<std::mutex>* lock, const uint8_t* bytes, size_t size) {
    std::vector<std::function<void()>> due;
    for (size_t at = 0; !mActs.empty() && at + sizeof(uint32_t) <= size;) {
        const auto command = load<uint32_t>(bytes + at);
        if (auto act = mActs.extract(command)) due.push_back(std::move(act.mapped()));
        at += sizeof(command) + _IOC_SIZE(command);
    }
    lock->unlock();
    for (const auto& each : due)
        each();
    lock->lock();
}

int ScriptedDriver::writeRead(binder_write_read* bwr) {
    std::unique_lock lock(mLock);
    if (mGone) {
        bwr->write_consumed = 0;
        bwr->read_consumed = 0;
        return -ECONNREFUSED;
    }
    mExchanges++;
    const bool reads = bwr->read_size > 0;
    const auto* bytes = reinterpret_cast<const uint8_t*>(bwr->write_buffer);
    Step step;
    const bool scripted = reads && !mCallerSteps.empty() && !isPoolLocked();
    if (scripted) {
        step = mCallerSteps.front();
        mCallerSteps.pop_front();
    }
    const size_t consumed = std::min<size_t>(step.consume, bwr->write_size);
    recordLocked(bytes, consumed, reads);
    bwr->write_consumed = consumed;
    bwr->read_consumed = 0;
    mChanged.notify_all();
    act(&lock, bytes, consumed);
    if (!reads) return 0;
    if (isPoolLocked()) {
        const bool work =
                mChanged.wait_for(lock, kDeadline, [this] { return mGone || !mPoolSteps.empty(); });
        if (mGone || !work) return -ECONNREFUSED;
        const MakeStep make = std::move(mPoolSteps.front());
        mPoolSteps.pop_front();
        lock.unlock();
        step = make();
        lock.lock();
    } else if (!scripted) {
        mUnscriptedReads++;
        return -ECONNREFUSED;
    }
    const std::vector<uint8_t>& answer = step.reads.bytes();
    const size_t size = std::min<size_t>(answer.size(), bwr->read_size);
    if (size > 0) std::memcpy(reinterpret_cast<void*>(bwr->read_buffer), answer.data(), size);
    bwr->read_consumed = size;
    return step.result;
}

}  // namespace scripted

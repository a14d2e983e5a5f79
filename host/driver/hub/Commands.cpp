// SPDX-License-Identifier: Apache-2.0
//
// The command stream of a frame, command by command. Part of Hub.
#include "hub/Hub.h"

namespace binderhost::hub {

bool Hub::handle(Thread* thread, uint32_t flags, uid_t uid, std::span<const uint8_t> commands,
                 FrameDescriptors* descriptors) {
    if ((flags & ~(frame::kRead | frame::kCompletesLocally)) != 0) return false;
    if ((flags & frame::kRead) && thread->waiting) return false;
    ByteReader reader(commands);
    bool sound = true;
    while (sound && !reader.empty()) {
        uint32_t command = 0;
        sound = reader.take(&command) &&
                handleCommand(thread, command, uid, flags, &reader, descriptors) &&
                thread->todo.size() <= mLimits.threadBacklog;
    }
    sound = sound && (descriptors->lost || descriptors->used == descriptors->all.size());
    if (sound && (flags & frame::kRead)) thread->waiting = true;
    mScheduler.touch(thread);
    flush();
    return sound;
}

bool Hub::handleCommand(Thread* thread, uint32_t command, uid_t uid, uint32_t flags,
                        ByteReader* reader, FrameDescriptors* descriptors) {
    switch (command) {
        case BC_TRANSACTION:
        case BC_REPLY: {
            Message message;
            if (!Message::take(reader, descriptors, &message)) return false;
            if (command == BC_TRANSACTION) {
                mCalls.transact(thread, uid, &message);
            } else {
                mCalls.reply(thread, uid, &message, (flags & frame::kCompletesLocally) != 0);
            }
            return true;
        }
        case BC_FREE_BUFFER: {
            uint64_t number = 0;
            if (!reader->take(&number)) return false;
            auto& buffers = thread->process->buffers;
            auto at = buffers.find(number);
            if (at != buffers.end() && at->second->delivered) mBuffers.release(at->second.get());
            return true;
        }
        case BC_REGISTER_LOOPER:
        case BC_ENTER_LOOPER:
        case BC_EXIT_LOOPER:
            handleLooperCommand(thread, command);
            return true;
        case frame::kCommandReject:
            mCalls.reject(thread);
            return true;
        case BC_INCREFS:
        case BC_ACQUIRE:
        case BC_RELEASE:
        case BC_DECREFS:
            return handleHandleCommand(thread, command, reader);
        default:
            return handleCookieCommand(thread, command, reader);
    }
}

void Hub::handleLooperCommand(Thread* thread, uint32_t command) {
    Process& process = *thread->process;
    // One that was a looper before is not the one that was asked for.
    if (command == BC_REGISTER_LOOPER && !thread->looper && process.requestedThreads > 0) {
        process.requestedThreads--;
        process.startedThreads++;
    }
    thread->looper = command != BC_EXIT_LOOPER;
}

bool Hub::handleHandleCommand(Thread* thread, uint32_t command, ByteReader* reader) {
    uint32_t handle = 0;
    if (!reader->take(&handle)) return false;
    const bool strong = command == BC_ACQUIRE || command == BC_RELEASE;
    const bool up = command == BC_ACQUIRE || command == BC_INCREFS;
    Reference* reference = mReferences.find(thread->process, handle);
    if (reference) {
        if (up) {
            mReferences.increment(reference, strong);
        } else {
            mReferences.decrement(reference, strong);
        }
        return true;
    }
    // Handle 0 is everybody's from the start; any other that is not held is a slip of the
    // process, which harms only itself.
    const NodePtr node = mReferences.contextManager();
    if (up && handle == 0 && node && node->owner != thread->process) {
        return mReferences.take(thread->process, node, strong, /*ownerThread=*/nullptr) != nullptr;
    }
    return true;
}

bool Hub::handleCookieCommand(Thread* thread, uint32_t command, ByteReader* reader) {
    switch (command) {
        case BC_INCREFS_DONE:
        case BC_ACQUIRE_DONE: {
            binder_ptr_cookie object{};
            if (!reader->take(&object)) return false;
            mReferences.confirm(thread->process, object, command == BC_ACQUIRE_DONE);
            return true;
        }
        case BC_REQUEST_DEATH_NOTIFICATION:
        case BC_CLEAR_DEATH_NOTIFICATION: {
            binder_handle_cookie what{};
            if (!reader->take(&what)) return false;
            if (command == BC_REQUEST_DEATH_NOTIFICATION) {
                return mDeaths.request(thread->process, what);
            }
            mDeaths.clear(thread, what);
            return true;
        }
        case BC_DEAD_BINDER_DONE:
        case frame::kCommandUntold: {
            uint64_t cookie = 0;
            if (!reader->take(&cookie)) return false;
            mDeaths.seen(thread, cookie, /*told=*/command == BC_DEAD_BINDER_DONE);
            return true;
        }
        case BR_INCREFS:
        case BR_ACQUIRE:
        case BR_RELEASE:
        case BR_DECREFS: {
            Untold untold{command, {}};
            if (!reader->take(&untold.object)) return false;
            Process* process = thread->process;
            if (process->untold >= mLimits.untold) return false;
            process->untold++;
            mScheduler.queue(process, untold);
            return true;
        }
        default:
            return false;
    }
}

}  // namespace binderhost::hub

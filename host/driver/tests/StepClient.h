// SPDX-License-Identifier: Apache-2.0
//
// StepClient: a client of a driver that is led step by step.
//
// Several in one test play several processes, one step after the other, with no interleaving left
// to chance.
//
//      server.publish();                                   // takes handle 0, waits as a looper
//      client.write(Commands().call(0, kCode, "hello"));
//      const Return call = server.expect(BR_TRANSACTION);
//      server.write(Commands().freeBuffer(call).reply("world"));
//      EXPECT_EQ(client.expectReply().text(), "world");
#pragma once

#include <cstring>
#include <deque>
#include <stdexcept>
#include <string>

#include "Commands.h"

namespace binderhost::tests {

/** Throws when something fails that no test is about; GoogleTest reports it. */
class StepClient {
public:
    virtual ~StepClient() = default;

    /** One BINDER_WRITE_READ as it is. */
    [[nodiscard]] virtual int exchange(const Commands& commands, bool read) = 0;
    [[nodiscard]] virtual int becomeContextManager() = 0;

    /** Hands commands over and reads nothing. */
    void write(const Commands& commands) { check(exchange(commands, /*read=*/false)); }

    /** The next return, in the order of the driver; waits for it. */
    [[nodiscard]] Return next() {
        while (mReturns.empty())
            check(exchange({}, /*read=*/true));
        Return first = std::move(mReturns.front());
        mReturns.pop_front();
        return first;
    }

    /** The next return that is not about this process's own nodes, which are confirmed. */
    [[nodiscard]] Return nextEvent() {
        for (;;) {
            Return each = next();
            const auto object = each.as<binder_ptr_cookie>();
            if (each.command == BR_INCREFS) {
                write(Commands().object(BC_INCREFS_DONE, object.ptr, object.cookie));
            } else if (each.command == BR_ACQUIRE) {
                write(Commands().object(BC_ACQUIRE_DONE, object.ptr, object.cookie));
            } else if (each.command != BR_RELEASE && each.command != BR_DECREFS &&
                       each.command != BR_SPAWN_LOOPER) {
                return each;
            }
        }
    }

    [[nodiscard]] Return expect(uint32_t command) {
        Return each = nextEvent();
        if (each.command == command) return each;
        throw std::runtime_error("wanted " + name(command) + ", got " + name(each.command));
    }

    /** The answer to a two-way call: its completion, then the reply. */
    [[nodiscard]] Return expectReply() {
        (void)expect(BR_TRANSACTION_COMPLETE);
        return expect(BR_REPLY);
    }

    /** Becomes the context manager and a looper. */
    void publish() {
        check(becomeContextManager());
        write(Commands().looper());
    }

    [[nodiscard]] static std::string name(uint32_t command) {
        static constexpr const char* kNames[] = {"BR_ERROR",
                                                 "BR_OK",
                                                 "BR_TRANSACTION",
                                                 "BR_REPLY",
                                                 "BR_ACQUIRE_RESULT",
                                                 "BR_DEAD_REPLY",
                                                 "BR_TRANSACTION_COMPLETE",
                                                 "BR_INCREFS",
                                                 "BR_ACQUIRE",
                                                 "BR_RELEASE",
                                                 "BR_DECREFS",
                                                 "BR_ATTEMPT_ACQUIRE",
                                                 "BR_NOOP",
                                                 "BR_SPAWN_LOOPER",
                                                 "BR_FINISHED",
                                                 "BR_DEAD_BINDER",
                                                 "BR_CLEAR_DEATH_NOTIFICATION_DONE",
                                                 "BR_FAILED_REPLY",
                                                 "BR_FROZEN_REPLY",
                                                 "BR_ONEWAY_SPAM_SUSPECT"};
        const uint32_t number = _IOC_NR(command);
        return number < std::size(kNames) ? kNames[number] : std::to_string(command);
    }

protected:
    StepClient() = default;

    static void check(int status) {
        if (status) throw std::runtime_error("driver: " + std::string(std::strerror(-status)));
    }

    /** Keeps what was read, less the fillers, for next(). */
    void keep(std::vector<Return> returns) {
        for (Return& each : returns) {
            if (each.command != BR_NOOP) mReturns.push_back(std::move(each));
        }
    }

    /** Cuts a read buffer into its commands. */
    [[nodiscard]] static std::vector<Return> cut(const uint8_t* room, size_t size) {
        std::vector<Return> out;
        for (size_t at = 0; at < size;) {
            Return& each = out.emplace_back();
            std::memcpy(&each.command, room + at, sizeof(each.command));
            at += sizeof(each.command);
            each.argument.assign(room + at, room + at + _IOC_SIZE(each.command));
            at += each.argument.size();
        }
        return out;
    }

private:
    std::deque<Return> mReturns;
};

}  // namespace binderhost::tests

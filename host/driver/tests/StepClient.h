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
#include <sstream>
#include <stdexcept>
#include <string>

#include "Commands.h"

namespace binderhost::tests {

/** A node of somebody's, and the cookie of a death link. */
inline constexpr uint64_t kPtr = 0x1000;
inline constexpr uint64_t kCookie = 0xc00c1e;

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

    /** A one-way call that is complete at once. */
    void post(uint32_t handle, uint32_t code, Payload payload = {}) {
        write(Commands().oneway(handle, code, std::move(payload)));
        (void)expect(BR_TRANSACTION_COMPLETE);
    }

    /** The next call, whose buffer is freed. */
    Return take() {
        Return call = expect(BR_TRANSACTION);
        write(Commands().freeBuffer(call));
        return call;
    }

    /** The next call, whose buffer is freed, and which is answered. */
    Return serve(Payload answer = {}) {
        Return call = expect(BR_TRANSACTION);
        write(Commands().freeBuffer(call).reply(std::move(answer)));
        (void)expect(BR_TRANSACTION_COMPLETE);
        return call;
    }

    /** The same of a call with an object, of which this process keeps a handle. */
    uint32_t serveAndKeep() {
        const Return call = expect(BR_TRANSACTION);
        const uint32_t handle = call.object(0).handle;
        write(Commands().count(BC_ACQUIRE, handle).freeBuffer(call).reply());
        (void)expect(BR_TRANSACTION_COMPLETE);
        return handle;
    }

    /** The context manager's handle on a node of this process. */
    uint32_t giveNode(StepClient* manager, uint64_t ptr = kPtr) {
        write(Commands().call(0, 1, Payload().node(ptr)));
        const uint32_t handle = manager->serveAndKeep();
        write(Commands().freeBuffer(expectReply()));
        return handle;
    }

    /** This process's handle on what the context manager gives it. */
    uint32_t takeNode(StepClient* manager, const Payload& given = Payload().node(kPtr)) {
        write(Commands().call(0, 1));
        (void)manager->serve(given);
        const Return reply = expectReply();
        const uint32_t handle = reply.object(0).handle;
        write(Commands().count(BC_ACQUIRE, handle).freeBuffer(reply));
        return handle;
    }

    /** Becomes the context manager and a looper. */
    void publish() {
        check(becomeContextManager());
        write(Commands().looper());
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

    [[nodiscard]] static std::string name(uint32_t command) {
        // In the order of their numbers.
        std::istringstream names(
                "ERROR OK TRANSACTION REPLY ACQUIRE_RESULT DEAD_REPLY TRANSACTION_COMPLETE INCREFS "
                "ACQUIRE RELEASE DECREFS ATTEMPT_ACQUIRE NOOP SPAWN_LOOPER FINISHED DEAD_BINDER "
                "CLEAR_DEATH_NOTIFICATION_DONE FAILED_REPLY FROZEN_REPLY ONEWAY_SPAM_SUSPECT");
        std::string out;
        for (uint32_t skipped = 0; skipped <= _IOC_NR(command); skipped++) {
            if (!(names >> out)) return std::to_string(command);
        }
        return "BR_" + out;
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

private:
    std::deque<Return> mReturns;
};

}  // namespace binderhost::tests

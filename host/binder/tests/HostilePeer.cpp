// SPDX-License-Identifier: Apache-2.0
#include "HostilePeer.h"

#include <binder/Parcel.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <initializer_list>
#include <map>
#include <random>

#include "PeerProcess.h"
#include "RawClient.h"

namespace peers {
namespace {

using binderhost::tests::Commands;
using binderhost::tests::Payload;
using binderhost::tests::RawClient;
using binderhost::tests::Return;

constexpr uint64_t kOwnNode = 0x1000;

/** What a parcel of the platform's form holds. */
std::string bytesOf(const android::Parcel& parcel) {
    return {reinterpret_cast<const char*>(parcel.data()), parcel.dataSize()};
}

/** The victim, and the registry at handle 0. */
class Hostile {
public:
    Hostile() : mClient(binderhost::driverPath()) {
        android::Parcel name;
        name.writeUtf8AsUtf16(std::string(kVictim));
        const Return found = call(0, Registry::kFind, bytesOf(name));
        if (found.command != BR_REPLY || found.offsets.empty())
            throw std::runtime_error("no victim");
        mVictim = found.object(0).handle;
        mClient.write(Commands().count(BC_ACQUIRE, mVictim).freeBuffer(found));
    }

    /** Words that a parcel may hold, and objects of any kind among them. */
    void sendRandomMessages() {
        using android::IBinder;
        const uint32_t codes[] = {kEcho,
                                  kWho,
                                  kKeep,
                                  kGive,
                                  kDrop,
                                  kWriteTo,
                                  kMake,
                                  kCallBack,
                                  IBinder::PING_TRANSACTION,
                                  IBinder::DUMP_TRANSACTION,
                                  IBinder::SHELL_COMMAND_TRANSACTION,
                                  IBinder::INTERFACE_TRANSACTION,
                                  IBinder::EXTENSION_TRANSACTION,
                                  Registry::kFind};
        std::map<uint32_t, int> ends;
        for (int i = 0; i < 600; i++) {
            const uint32_t code = codes[mRandom() % std::size(codes)];
            // A call back that nobody waits for would wait for a thread that this process has not.
            const bool oneway = code != kCallBack && any({0, 0, 1}) != 0;
            const uint32_t to = any({0, 1}) != 0 ? mVictim : 0;
            const uint32_t flags = (oneway ? uint32_t{TF_ONE_WAY} : 0) | uint32_t{TF_ACCEPT_FDS};
            const Return answer = call(to, code, anyPayload(), flags);
            if (answer.carriesBuffer()) mClient.write(Commands().freeBuffer(answer));
            ends[answer.command]++;
        }
        const bool each = ends[BR_REPLY] > 50 && ends[BR_FAILED_REPLY] > 50;
        if (!each || ends[BR_DEAD_REPLY] != 0) throw std::runtime_error("not the mixture meant");
    }

    /** The victim calls back, and its caller is gone. */
    void dieWhileCalled() {
        mClient.write(Commands().call(mVictim, kCallBack, callBack()));
        while (mClient.nextEvent().command != BR_TRANSACTION)
            continue;
        _exit(0);
    }

    /** The victim calls back, and what it is answered is no parcel that it expects. */
    void answerWithRubbish() {
        for (int i = 0; i < 200; i++) {
            mAnswersWithRubbish = true;
            const Return answer = call(mVictim, kCallBack, callBack());
            if (answer.carriesBuffer()) mClient.write(Commands().freeBuffer(answer));
        }
    }

    void flood() {
        int failed = 0;
        for (int i = 0; i < 2000; i++) {
            if (call(mVictim, kEcho, std::string(4096, 'x'), TF_ONE_WAY).command ==
                BR_FAILED_REPLY) {
                failed++;
            }
        }
        std::fprintf(stderr, "%d of 2000 refused\n", failed);
    }

    void passDescriptors() {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
        Payload payload;
        for (int i = 0; i < 200; i++)
            payload.descriptor(ends[1]);
        for (int i = 0; i < 5; i++) {
            const Return answer = call(mVictim, kKeep, payload);
            if (answer.carriesBuffer()) mClient.write(Commands().freeBuffer(answer));
        }
    }

private:
    /** Waits for the answer to a call, or for the completion of a one-way call. */
    Return call(uint32_t handle, uint32_t code, Payload payload, uint32_t flags = TF_ACCEPT_FDS) {
        mClient.write(Commands().call(handle, code, std::move(payload), flags));
        const bool oneway = (flags & TF_ONE_WAY) != 0;
        for (;;) {
            Return each = mClient.nextEvent();
            switch (each.command) {
                case BR_TRANSACTION:
                    serve(each);
                    break;
                case BR_TRANSACTION_COMPLETE:
                    if (oneway) return each;
                    break;
                case BR_REPLY:
                case BR_DEAD_REPLY:
                case BR_FAILED_REPLY:
                    return each;
                default:
                    break;
            }
        }
    }

    void serve(const Return& call) {
        Commands answer;
        answer.freeBuffer(call);
        if ((call.data().flags & TF_ONE_WAY) == 0) {
            answer.reply(mAnswersWithRubbish ? anyPayload() : Payload());
        }
        mClient.write(answer);
    }

    Payload callBack() {
        Payload payload;
        payload.node(kOwnNode);
        const uint32_t rest[] = {12, kEcho};
        payload.bytes.append(reinterpret_cast<const char*>(rest), sizeof(rest));
        return payload;
    }

    uint32_t any(std::initializer_list<uint64_t> values) {
        return static_cast<uint32_t>(*(values.begin() + mRandom() % values.size()));
    }

    Payload anyPayload() {
        Payload payload;
        for (size_t parts = mRandom() % 6; parts > 0; parts--) {
            switch (mRandom() % 4) {
                case 0: {
                    // A size, a count, a length: what a reader believes first.
                    const uint32_t word =
                            any({0, 1, 4, 0x7fffffff, 0xffffffff, 0x80000000, 0x10000, mRandom()});
                    payload.bytes.append(reinterpret_cast<const char*>(&word), sizeof(word));
                    break;
                }
                case 1:
                    payload.node(kOwnNode + 8 * (mRandom() % 3), /*cookie=*/7,
                                 any({BINDER_TYPE_BINDER, BINDER_TYPE_WEAK_BINDER}));
                    break;
                case 2:
                    payload.handle(any({0, mVictim, 77}),
                                   any({BINDER_TYPE_HANDLE, BINDER_TYPE_WEAK_HANDLE, mRandom()}));
                    break;
                default:
                    payload.descriptor(static_cast<int>(any({STDERR_FILENO, 9999})));
                    break;
            }
        }
        return payload;
    }

    RawClient mClient;
    std::mt19937 mRandom{11};
    uint32_t mVictim = 0;
    bool mAnswersWithRubbish = false;
};

}  // namespace

void runHostile(const std::string& attack) {
    static const std::map<std::string, void (Hostile::*)()> kAttacks = {
            {"random", &Hostile::sendRandomMessages},   {"dying", &Hostile::dieWhileCalled},
            {"rubbish", &Hostile::answerWithRubbish},   {"flood", &Hostile::flood},
            {"descriptors", &Hostile::passDescriptors},
    };
    try {
        Hostile hostile;
        (hostile.*kAttacks.at(attack))();
    } catch (const std::exception& problem) {
        std::fprintf(stderr, "%s: %s\n", attack.c_str(), problem.what());
        _exit(1);
    }
    _exit(0);
}

}  // namespace peers

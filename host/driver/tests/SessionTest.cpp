// SPDX-License-Identifier: Apache-2.0
//
// Random sessions of calls, deaths and notices: the same seed, the same transcript on each driver.
//
// Each step ends with everybody having read all that there is for it: a one-way call to a node of
// its own marks the end, since what was queued before it is read before it. What a step does
// depends on what was seen so far only.
#include <array>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <sstream>
#include <utility>

#include "DriverFixture.h"

namespace binderhost::tests {
namespace {

constexpr uint64_t kNodes = 0x1000;
constexpr uint32_t kUnknownHandle = 4711;

enum Code : uint32_t { kJoin = 1, kPost, kCall, kMark };

/** A process with what it holds; the registry is the one with number 0. */
struct Party {
    struct Held {
        int owner = 0;
        uint64_t link = 0;  // its cookie, or 0
    };
    Party(const std::string& path, PeerClient::As as, int number)
          : client(path, as), number(number) {}

    PeerClient client;
    const int number;
    std::map<uint32_t, Held> held;
    uint32_t mark = 0;  // the registry's handle
};

class Session {
public:
    Session(const std::string& path, std::function<Stats()> stats, uint32_t seed,
            PeerClient::As as = PeerClient::As::Tester)
          : mPath(path),
            mStats(std::move(stats)),
            mRandom(seed),
            mAs(as),
            mRegistry(path, as, /*number=*/0) {
        mRegistry.client.publish();
        for (auto& member : mMembers)
            start(&member);
    }

    [[nodiscard]] std::string play(int steps) {
        for (int step = 0; step < steps; step++) {
            mTranscript << "step " << step << "\n";
            std::unique_ptr<Party>& member = mMembers.at(random(mMembers.size()));
            const size_t deed = random(16);
            if (deed < 2) {
                kill(&member);
            } else if (deed < 6) {
                link(member.get());
            } else if (deed < 7) {
                clear(member.get());
            } else if (deed < 8) {
                release(member.get());
            } else if (deed < 10) {
                post(member.get());
            } else {
                call(member.get());
            }
            settle();
        }
        return mTranscript.str();
    }

private:
    enum class Until { Call, Answer, Mark };

    size_t random(size_t below) { return mRandom() % below; }

    /** 0, everybody's, among them. */
    uint32_t anyHandle(const Party& party) {
        const size_t index = random(party.held.size() + 1);
        return index == 0 ? 0 : std::next(party.held.begin(), ptrdiff_t(index - 1))->first;
    }

    /** Its text names the owners of its objects, for the model of the receiver. */
    Payload anyPayload(const Party& party) {
        const uint32_t handle = anyHandle(party);
        const bool withNode = random(2) == 0;
        const bool withHandle = handle != 0 && random(2) == 0;
        std::string text;
        if (withNode) text += std::to_string(party.number) + " ";
        if (withHandle) text += std::to_string(party.held.at(handle).owner) + " ";
        Payload payload(text);
        if (withNode) payload.node(kNodes + 8 * random(3), /*cookie=*/7);
        if (withHandle) payload.handle(handle);
        return payload;
    }

    Party* alive(int number) {
        if (number == 0) return &mRegistry;
        for (const auto& member : mMembers) {
            if (member && member->number == number) return member.get();
        }
        return nullptr;
    }

    void start(std::unique_ptr<Party>* member) {
        *member = std::make_unique<Party>(mPath, mAs, ++mStarted);
        Party* party = member->get();
        party->client.write(Commands().looper().call(0, kJoin, Payload().node(kNodes - 8)));
        const Return call = readUntil(&mRegistry, Until::Call);
        party->mark = call.object(0).handle;
        mRegistry.client.write(Commands().count(BC_ACQUIRE, party->mark).freeBuffer(call).reply());
        (void)readUntil(party, Until::Answer);
    }

    void kill(std::unique_ptr<Party>* member) {
        const uint32_t mark = (*member)->mark;
        (*member)->client.kill();
        const uint64_t left = mMembers.size();  // the other members and the registry
        const Stats last =
                lookUntil(mStats, [&](const Stats& now) { return now.at("processes") == left; });
        EXPECT_EQ(last.at("processes"), left);
        mRegistry.client.write(Commands().count(BC_RELEASE, mark));
        start(member);
    }

    void link(Party* party) {
        const uint32_t handle = anyHandle(*party);
        if (handle == 0 || party->held[handle].link) return;
        party->held[handle].link = ++mLastCookie;
        party->client.write(Commands().death(BC_REQUEST_DEATH_NOTIFICATION, handle, mLastCookie));
    }

    void clear(Party* party) {
        const uint32_t handle = anyHandle(*party);
        if (handle == 0 || !party->held[handle].link) return;
        const uint64_t cookie = std::exchange(party->held[handle].link, 0);
        party->client.write(Commands().death(BC_CLEAR_DEATH_NOTIFICATION, handle, cookie));
    }

    void release(Party* party) {
        const uint32_t handle = anyHandle(*party);
        if (handle == 0) return;
        party->held.erase(handle);
        party->client.write(Commands().count(BC_RELEASE, handle));
    }

    void post(Party* party) {
        const uint32_t handle = random(8) == 0 ? kUnknownHandle : anyHandle(*party);
        party->client.write(Commands().oneway(handle, kPost, anyPayload(*party)));
        (void)mStats();  // a hub has taken it
    }

    /** One that is answered, or whose callee dies with it, unread or read. */
    void call(Party* caller) {
        const uint32_t handle = random(8) == 0 ? kUnknownHandle : anyHandle(*caller);
        caller->client.write(Commands().call(handle, kCall, anyPayload(*caller)));
        (void)mStats();
        const bool known = handle == 0 || caller->held.contains(handle);
        Party* callee = !known ? nullptr : alive(handle ? caller->held.at(handle).owner : 0);
        const size_t fate = random(6);
        if (callee && (fate > 0 || callee == &mRegistry)) {
            const Return call = readUntil(callee, Until::Call);
            keep(callee, call);
            if (fate == 1 && callee != &mRegistry) {
                callee->client.write(Commands().freeBuffer(call));
            } else {
                callee->client.write(Commands().freeBuffer(call).reply(anyPayload(*callee)));
            }
        }
        if (callee && callee != &mRegistry && fate <= 1) {
            for (auto& member : mMembers) {
                if (member.get() == callee) kill(&member);
            }
        }
        const Return answer = readUntil(caller, Until::Answer);
        if (answer.command != BR_REPLY) return;
        keep(caller, answer);
        caller->client.write(Commands().freeBuffer(answer));
    }

    /** Everybody reads to the end. */
    void settle() {
        (void)mStats();
        for (const auto& member : mMembers) {
            mRegistry.client.write(Commands().oneway(member->mark, kMark));
            readToMark(member.get());
        }
        Party* first = mMembers[0].get();
        first->client.write(Commands().oneway(0, kMark));
        readToMark(&mRegistry);
    }
    void readToMark(Party* party) {
        party->client.write(Commands().freeBuffer(readUntil(party, Until::Mark)));
        (void)mStats();  // what it wrote comes before the next mark
    }

    /** The receiver holds what came with a message. */
    static void keep(Party* party, const Return& message) {
        std::istringstream owners(message.text());
        for (size_t i = 0; i < message.offsets.size(); i++) {
            const flat_binder_object object = message.object(i);
            int owner = 0;
            owners >> owner;
            const bool isNew = object.hdr.type == BINDER_TYPE_HANDLE && object.handle != 0 &&
                               party->held.try_emplace(object.handle, Party::Held{owner, 0}).second;
            if (isNew) party->client.write(Commands().count(BC_ACQUIRE, object.handle));
        }
    }

    Return readUntil(Party* party, Until until) {
        for (;;) {
            Return each = party->client.next();
            note(*party, each);
            const auto object = each.as<binder_ptr_cookie>();
            const bool oneway = (each.data().flags & TF_ONE_WAY) != 0;
            Commands answer;
            switch (each.command) {
                case BR_INCREFS:
                    answer.object(BC_INCREFS_DONE, object.ptr, object.cookie);
                    break;
                case BR_ACQUIRE:
                    answer.object(BC_ACQUIRE_DONE, object.ptr, object.cookie);
                    break;
                case BR_DEAD_BINDER:
                    answer.deadDone(each.as<uint64_t>());
                    break;
                case BR_TRANSACTION:
                    if (!oneway && until == Until::Call) return each;
                    if (oneway && each.data().code == kMark && until == Until::Mark) return each;
                    keep(party, each);
                    answer.freeBuffer(each);
                    break;
                case BR_REPLY:
                case BR_DEAD_REPLY:
                case BR_FAILED_REPLY:
                    if (until == Until::Answer) return each;
                    continue;
                default:
                    continue;
            }
            party->client.write(answer);
        }
    }

    void note(const Party& party, const Return& each) {
        mTranscript << party.number << " " << StepClient::name(each.command);
        const auto data = each.data();
        if (each.command == BR_TRANSACTION) {
            int sender = 0;
            for (const auto& member : mMembers) {
                if (member && member->client.pid() == data.sender_pid) sender = member->number;
            }
            mTranscript << " of " << sender << " at " << data.target.ptr << "/" << data.cookie
                        << " code " << data.code;
        }
        if (each.carriesBuffer()) {
            const size_t text = each.offsets.empty() ? data.data_size : each.offsets[0];
            mTranscript << " flags " << data.flags << " size " << data.data_size << " '"
                        << each.text().substr(0, text).c_str() << "'";
            for (size_t i = 0; i < each.offsets.size(); i++) {
                const flat_binder_object object = each.object(i);
                mTranscript << " " << object.hdr.type << ":" << object.binder << "/"
                            << object.cookie;
            }
        } else {
            for (const uint8_t byte : each.argument)
                mTranscript << " " << int{byte};
        }
        mTranscript << "\n";
    }

    const std::string mPath;
    const std::function<Stats()> mStats;
    std::mt19937 mRandom;
    const PeerClient::As mAs;
    Party mRegistry;
    std::array<std::unique_ptr<Party>, 4> mMembers;
    int mStarted = 0;
    uint64_t mLastCookie = 0;
    std::ostringstream mTranscript;
};

/** The step in which two transcripts part, as far as they agree, and the two lines. */
std::string firstDifference(const std::string& seen, const std::string& wanted) {
    std::istringstream ours(seen), theirs(wanted);
    std::string step, a, b;
    while (a == b && std::getline(ours, a)) {
        if (!std::getline(theirs, b)) b.clear();
        if (a == b) step = a.starts_with("step") ? a : step + "\n" + a;
    }
    return step + "\nseen:   " + a + "\nwanted: " + b;
}

std::string withoutCompletions(const std::string& transcript) {
    std::istringstream lines(transcript);
    std::string out;
    for (std::string line; std::getline(lines, line);) {
        if (!line.ends_with("BR_TRANSACTION_COMPLETE")) out += line + "\n";
    }
    return out;
}

constexpr int kSteps = 60;

class SessionTest : public DriverFixture {
protected:
    [[nodiscard]] std::string play(uint32_t seed, PeerClient::As as = PeerClient::As::Tester) {
        return Session(
                       path(), [this] { return stats(); }, seed, as)
                .play(kSteps);
    }
    static std::string playOn(const TestHub& hub, uint32_t seed) {
        return Session(
                       hub.path(), [&hub] { return hub.stats(); }, seed)
                .play(kSteps);
    }
};

/** What sessions may not be without. */
const char* const kKinds[] = {
        "BR_TRANSACTION of", "BR_REPLY",       "BR_DEAD_REPLY",
        "BR_FAILED_REPLY",   "BR_DEAD_BINDER", "BR_CLEAR_DEATH_NOTIFICATION_DONE",
        "BR_ACQUIRE",        "BR_RELEASE",     " code 2 flags 1 "};

TEST_P(SessionTest, aSessionHasTheSameTranscriptAsOnAHub) {
    std::string all;
    for (const uint32_t seed : {1u, 2u, 3u}) {
        SCOPED_TRACE(seed);
        const TestHub reference;
        const std::string wanted = playOn(reference, seed);
        const std::string seen = play(seed);
        EXPECT_TRUE(seen == wanted) << firstDifference(seen, wanted);
        all += wanted;
        awaitStat("processes", 0);
    }
    for (const char* kind : kKinds)
        EXPECT_NE(all.find(kind), std::string::npos) << kind << " is not part of it";
}

TEST_P(SessionTest, aSessionOfOrdinaryUsersHasTheSameTranscriptAsOneOfRoot) {
    if (onKernel() || geteuid() != 0) GTEST_SKIP() << "only a hub has two ways for one-way calls";
    constexpr uint32_t kSeed = 4;
    // Only who was context manager first may be it again.
    const TestHub reference;
    const std::string wanted = playOn(reference, kSeed);
    EXPECT_EQ(reference.stats().at("letters_taken"), 0u);
    const std::string seen = play(kSeed, PeerClient::As::Ordinary);
    // A letter's completion is its own driver's, and may be read before what waits in the hub.
    EXPECT_NE(seen, wanted) << "it no longer is: compare them as they are";
    const std::string ours = withoutCompletions(seen), theirs = withoutCompletions(wanted);
    EXPECT_TRUE(ours == theirs) << firstDifference(ours, theirs);
    EXPECT_GT(stats().at("letters_taken"), 50u);
}

ON_EACH_DRIVER(SessionTest);

}  // namespace
}  // namespace binderhost::tests

// SPDX-License-Identifier: Apache-2.0
//
// One-way calls that ask no hub, between real processes: whose they are, their order, their end.
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <memory>
#include <random>

#include "HubFixture.h"
#include "OwnLetters.h"
#include "PeerClient.h"
#include "embedded/Frame.h"

namespace binderhost::tests {
namespace {

constexpr uint64_t kPtr = 0x1000;
using As = PeerClient::As;

class LetterTest : public HubFixture {
protected:
    PeerClient mRegistry{path(), As::Ordinary};
    void SetUp() override { mRegistry.publish(); }

    /** A handle on a node of the registry's. */
    uint32_t join(PeerClient* client) {
        client->write(Commands().call(0, 1));
        const Return call = mRegistry.expect(BR_TRANSACTION);
        mRegistry.write(Commands().freeBuffer(call).reply(Payload().node(kPtr)));
        const Return reply = client->expectReply();
        const uint32_t handle = reply.object(0).handle;
        client->write(Commands().count(BC_ACQUIRE, handle).freeBuffer(reply));
        (void)mRegistry.expect(BR_TRANSACTION_COMPLETE);
        return handle;
    }
    static void send(PeerClient* client, uint32_t handle, uint32_t code,
                     const Payload& payload = {}) {
        client->write(Commands().oneway(handle, code, payload));
        (void)client->expect(BR_TRANSACTION_COMPLETE);
    }
    /** From now on its calls to the handle are letters, if they ever are. */
    void warmUp(PeerClient* client, uint32_t handle) {
        for (uint32_t code = 1000; code < 1002; code++) {
            send(client, handle, code);
            EXPECT_EQ(takeOne().data().code, code);
        }
    }
    Return takeOne() {
        const Return call = mRegistry.expect(BR_TRANSACTION);
        mRegistry.write(Commands().freeBuffer(call));
        return call;
    }
    [[nodiscard]] uint64_t lettersTaken() const { return stats().at("letters_taken"); }
};

TEST_F(LetterTest, aCallThatIsALetterLooksToItsReceiverLikeAnyOther) {
    PeerClient client(path(), As::Ordinary);
    const uint32_t handle = join(&client);
    warmUp(&client, handle);
    EXPECT_EQ(lettersTaken(), 0u);
    send(&client, handle, 7, "note");
    const Return call = takeOne();
    EXPECT_EQ(lettersTaken(), 1u);
    EXPECT_EQ(call.data().code, 7u);
    EXPECT_EQ(call.text(), "note");
    EXPECT_EQ(call.data().flags, uint32_t{TF_ONE_WAY});
    EXPECT_EQ(call.data().target.ptr, kPtr);
    EXPECT_EQ(call.data().sender_pid, 0);
    EXPECT_EQ(call.data().sender_euid, geteuid() == 0 ? PeerClient::kOrdinaryUid : geteuid());
}

TEST_F(LetterTest, onlyAProcessThatCanNeverBeSomebodyElseGetsAnOutbox) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can make all of these";
    struct Case {
        const char* name;
        int (*become)(Driver&, int64_t);
        uint64_t outboxes;
    };
    const Case kCases[] = {
            {"root", [](Driver&, int64_t) { return 0; }, 0},
            {"root as somebody else for a while",
             [](Driver&, int64_t) { return seteuid(PeerClient::kOrdinaryUid); }, 0},
            {"somebody who can go back to a saved uid",
             [](Driver&, int64_t) { return setresuid(65534, 65534, 65533); }, 0},
            {"somebody else for good",
             [](Driver&, int64_t) { return setresuid(65534, 65534, 65534); }, 1},
    };
    for (const Case& each : kCases) {
        SCOPED_TRACE(each.name);
        {
            PeerClient client(path());
            ASSERT_EQ(client.run(each.become), 0);
            warmUp(&client, join(&client));
            EXPECT_EQ(stats().at("outboxes"), each.outboxes);
        }
        awaitStat("processes", 1);
    }
}

TEST_F(LetterTest, anOutboxIsNotForAUidThatOnlyAThreadHas) {
    if (geteuid() != 0) GTEST_SKIP() << "only root has a uid to drop";
    PeerClient client(path());
    PeerClient thread(&client);
    // Past the C library, which would change all threads: a process that drops its uid between
    // asking and being looked at is the same to the hub.
    ASSERT_EQ(client.run([](Driver&, int64_t) {
        constexpr uid_t kUid = PeerClient::kOrdinaryUid;
        return static_cast<int>(syscall(SYS_setresuid, kUid, kUid, kUid));
    }),
              0);
    warmUp(&thread, join(&thread));
    EXPECT_EQ(stats().at("outboxes"), 0u);
}

TEST_F(LetterTest, lettersOfManySendersArriveInTheOrderOfTheirSending) {
    struct Sender {
        std::unique_ptr<PeerClient> client;
        uint32_t handle;
    };
    std::array<Sender, 4> senders;
    for (size_t i = 0; i < senders.size(); i++) {
        // The last asks the hub each time: its calls are in the same order.
        const As as = i + 1 < senders.size() ? As::Ordinary : As::Tester;
        senders[i].client = std::make_unique<PeerClient>(path(), as);
        senders[i].handle = join(senders[i].client.get());
        warmUp(senders[i].client.get(), senders[i].handle);
    }
    std::mt19937 random(7);
    for (int round = 0; round < 10; round++) {
        for (uint32_t code = 0; code < 100; code++) {
            const Sender& sender = senders.at(random() % senders.size());
            send(sender.client.get(), sender.handle, code);
        }
        for (uint32_t code = 0; code < 100; code++)
            ASSERT_EQ(takeOne().data().code, code);
    }
    EXPECT_GT(lettersTaken(), 500u);
}

TEST_F(LetterTest, twoThreadsOfASenderKeepTheOrderOfTheirCalls) {
    PeerClient first(path(), As::Ordinary);
    const uint32_t handle = join(&first);
    warmUp(&first, handle);
    PeerClient second(&first);
    for (uint32_t code = 0; code < 100; code++) {
        // Every fifth carries an object, which no letter can.
        Payload payload;
        if (code % 5 == 0) payload.handle(handle);
        send(code % 2 ? &first : &second, handle, code, payload);
    }
    for (uint32_t code = 0; code < 100; code++)
        ASSERT_EQ(takeOne().data().code, code);
    EXPECT_EQ(lettersTaken(), 80u);
}

TEST_F(LetterTest, noLetterOvertakesACallWhoseAnswerWasNotReadYet) {
    PeerClient client(path(), As::Ordinary);
    const uint32_t handle = join(&client);
    warmUp(&client, handle);
    ASSERT_EQ(kill(hubPid(), SIGSTOP), 0);
    client.write(Commands().oneway(handle, 1, Payload().handle(handle)));
    client.write(Commands().oneway(handle, 2));
    ASSERT_EQ(kill(hubPid(), SIGCONT), 0);
    for (uint32_t code = 1; code <= 2; code++)
        EXPECT_EQ(takeOne().data().code, code);
}

TEST_F(LetterTest, lettersOfASenderThatIsKilledAtOnceAreDelivered) {
    for (int round = 0; round < 20; round++) {
        {
            PeerClient mortal(path(), As::Ordinary);
            const uint32_t handle = join(&mortal);
            warmUp(&mortal, handle);
            for (uint32_t code = 0; code < 20; code++)
                send(&mortal, handle, code);
        }
        for (uint32_t code = 0; code < 20; code++)
            ASSERT_EQ(takeOne().data().code, code);
        awaitStat("processes", 1);
    }
    EXPECT_EQ(lettersTaken(), 400u);
}

TEST_F(LetterTest, aSenderLearnsOfADeadReceiverAndOfAFullOneAsItEverDid) {
    const auto countUntilFull = [this](As as) {
        PeerClient client(path(), as);
        const uint32_t handle = join(&client);
        warmUp(&client, handle);
        size_t count = 0;
        for (;; count++) {
            client.write(Commands().oneway(handle, 1, std::string(4000, 'x')));
            const Return answer = client.nextEvent();
            if (answer.command != BR_TRANSACTION_COMPLETE) {
                EXPECT_EQ(StepClient::name(answer.command), "BR_FAILED_REPLY");
                break;
            }
        }
        for (size_t i = 0; i < count; i++)
            (void)takeOne();
        return count;
    };
    const size_t wanted = countUntilFull(As::Tester);
    EXPECT_EQ(countUntilFull(As::Ordinary), wanted);
    EXPECT_GT(lettersTaken(), 0u);

    PeerClient client(path(), As::Ordinary);
    const uint32_t handle = join(&client);
    warmUp(&client, handle);
    send(&client, handle, 1);
    mRegistry.kill();
    awaitStat("processes", 1);
    client.write(Commands().oneway(handle, 2));
    (void)client.expect(BR_DEAD_REPLY);
}

TEST_F(LetterTest, manySendersAtOnceFillAReceiverLittleMoreThanOneCan) {
    constexpr size_t kText = 4000;
    constexpr uint64_t kSpace = frame::kBufferBytes / 2;
    std::vector<std::pair<std::unique_ptr<PeerClient>, uint32_t>> senders;
    for (int i = 0; i < 24; i++) {
        auto& [client, handle] =
                senders.emplace_back(std::make_unique<PeerClient>(path(), As::Ordinary), 0);
        handle = join(client.get());
        warmUp(client.get(), handle);
    }
    uint64_t bytes = 0;
    for (bool taken = true; taken;) {
        taken = false;
        for (auto& [client, handle] : senders) {
            client->write(Commands().oneway(handle, 1, std::string(kText, 'x')));
            if (client->nextEvent().command != BR_TRANSACTION_COMPLETE) continue;
            bytes += kText;
            taken = true;
        }
    }
    EXPECT_GT(lettersTaken(), 0u);
    EXPECT_GE(bytes, kSpace - kText);
    EXPECT_LE(bytes, kSpace + kSpace / 2);
}

/** Writes as much as was ever promised for the handle, whatever the room says now. */
int overdraw(Driver&, int64_t handle) {
    outbox::Letters* letters = findLetters();
    if (letters == nullptr) return -ENOENT;
    uint64_t at = letters->written.load();
    for (int i = 0; i < 4; i++) {
        outbox::Record record;
        record.dataSize = 3968;
        record.size = static_cast<uint32_t>(outbox::recordSize(record.dataSize));
        record.handle = static_cast<uint32_t>(handle);
        std::memcpy(letters->ring + at, &record, sizeof(record));
        at += record.size;
    }
    letters->written.store(at);
    return 0;
}

TEST_F(LetterTest, aPromiseThatIsTakenBackStaysTheReceiversToBear) {
    constexpr uint64_t kSpace = frame::kBufferBytes / 2;
    std::vector<std::pair<std::unique_ptr<PeerClient>, uint32_t>> senders;
    for (int i = 0; i < 30; i++) {
        auto& [client, handle] =
                senders.emplace_back(std::make_unique<PeerClient>(path(), As::Ordinary), 0);
        handle = join(client.get());
        warmUp(client.get(), handle);
        // The promise ends with the last strong count; the weak one keeps the handle.
        client->write(Commands().count(BC_INCREFS, handle).count(BC_RELEASE, handle));
        client->write(Commands().count(BC_ACQUIRE, handle));
        (void)stats();
    }
    for (auto& [client, handle] : senders) {
        EXPECT_EQ(client->run(&overdraw, handle), 0);
        client->kill();  // at whose end the hub looks into its letters
    }
    awaitStat("processes", 1);
    EXPECT_GT(lettersTaken(), 0u);
    EXPECT_LE(stats().at("buffer_bytes"), kSpace / 2 + outbox::kPromise);
}

TEST_F(LetterTest, aForkedChildCannotWriteItsParentsLetters) {
    PeerClient client(path(), As::Ordinary);
    warmUp(&client, join(&client));
    EXPECT_EQ(client.run([](Driver&, int64_t) {
        if (findLetters() == nullptr) return 1;
        const pid_t child = fork();
        if (child == 0) _exit(findLetters() == nullptr ? 0 : 2);
        int status = 0;
        return waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : 3;
    }),
              0);
}

TEST_F(LetterTest, whoeverSpoilsItsLettersIsCutOffAlone) {
    PeerClient bystander(path(), As::Ordinary);
    const uint32_t handle = join(&bystander);
    warmUp(&bystander, handle);
    {
        PeerClient vandal(path(), As::Ordinary);
        const uint32_t its = join(&vandal);
        warmUp(&vandal, its);
        ASSERT_EQ(vandal.run(&sendSpoiltLetter, its), 0);
        awaitStat("processes", 2);
    }
    send(&bystander, handle, 3);
    EXPECT_EQ(takeOne().data().code, 3u);
}

}  // namespace
}  // namespace binderhost::tests

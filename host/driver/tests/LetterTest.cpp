// SPDX-License-Identifier: Apache-2.0
//
// One-way calls that ask no hub, between real processes: whose they are, their order, their end.
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cinttypes>
#include <csignal>
#include <fstream>
#include <memory>
#include <random>
#include <vector>

#include "PeerClient.h"
#include "RawClient.h"
#include "TestHub.h"
#include "embedded/Frame.h"
#include "embedded/OutboxLayout.h"

namespace binderhost::tests {
namespace {

using As = PeerClient::As;

/** Where this process's letters are mapped; null when they are not. */
outbox::Letters* findLetters() {
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        uintptr_t start = 0;
        const bool named = line.find("memfd:binder-letters") != std::string::npos;
        if (named && std::sscanf(line.c_str(), "%" SCNxPTR, &start) == 1) {
            return reinterpret_cast<outbox::Letters*>(start);
        }
    }
    return nullptr;
}

/** One that is spoilt before the hub looks, and one more that makes it look. */
int sendSpoiltLetter(Driver& driver, int64_t handle) {
    outbox::Letters* letters = findLetters();
    if (letters == nullptr) return -ENOENT;
    Commands commands;
    commands.oneway(static_cast<uint32_t>(handle), 1);
    uint32_t room[16];
    for (const uint32_t rung : {1, 0}) {
        letters->rung.store(rung);
        if (const int status = exchangeOnce(driver, commands.bytes, room)) return status;
        std::memset(letters->ring, 0xff, outbox::kRingBytes);
    }
    return 0;
}

class LetterTest : public HubFixture {
protected:
    PeerClient mRegistry{path(), As::Ordinary};
    void SetUp() override { mRegistry.publish(); }

    /** A handle on a node of the registry's; from now on calls to it are letters, if ever. */
    uint32_t join(PeerClient* client) {
        const uint32_t handle = client->takeNode(&mRegistry);
        for (uint32_t code = 1000; code < 1002; code++) {
            client->post(handle, code);
            EXPECT_EQ(mRegistry.take().data().code, code);
        }
        return handle;
    }
    struct Sender {
        std::unique_ptr<PeerClient> client;
        uint32_t handle = 0;
    };
    std::vector<Sender> makeSenders(int count, As as = As::Ordinary) {
        std::vector<Sender> out;
        for (int i = 0; i < count; i++) {
            out.push_back({std::make_unique<PeerClient>(path(), as), 0});
            out.back().handle = join(out.back().client.get());
        }
        return out;
    }
    [[nodiscard]] uint64_t lettersTaken() const { return stats().at("letters_taken"); }
};

TEST_F(LetterTest, aCallThatIsALetterLooksToItsReceiverLikeAnyOther) {
    PeerClient client(path(), As::Ordinary);
    const uint32_t handle = join(&client);
    EXPECT_EQ(lettersTaken(), 0u);
    client.post(handle, 7, "note");
    const Return call = mRegistry.take();
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
    constexpr uid_t kUid = PeerClient::kOrdinaryUid;
    const struct {
        const char* name;
        PeerClient::Function become;
        uint64_t outboxes;
    } rows[] = {
            {"root", [](Driver&, int64_t) { return 0; }, 0},
            {"root as somebody else for a while", [](Driver&, int64_t) { return seteuid(kUid); },
             0},
            {"somebody who can go back to a saved uid",
             [](Driver&, int64_t) { return setresuid(kUid, kUid, kUid - 1); }, 0},
            // Past the C library, which would change all threads: a process that drops its uid
            // between asking and being looked at is the same to the hub.
            {"one whose other thread is somebody else",
             [](Driver&, int64_t) {
                 return static_cast<int>(syscall(SYS_setresuid, kUid, kUid, kUid));
             },
             0},
            {"somebody else for good", [](Driver&, int64_t) { return setresuid(kUid, kUid, kUid); },
             1},
    };
    for (const auto& each : rows) {
        SCOPED_TRACE(each.name);
        {
            PeerClient client(path());
            PeerClient thread(&client);
            ASSERT_EQ(client.run(each.become), 0);
            (void)join(&thread);
            EXPECT_EQ(stats().at("outboxes"), each.outboxes);
        }
        awaitStat("processes", 1);
    }
}

TEST_F(LetterTest, lettersOfManySendersArriveInTheOrderOfTheirSending) {
    std::vector<Sender> senders = makeSenders(3);
    // The last asks the hub each time: its calls are in the same order.
    senders.push_back(std::move(makeSenders(1, As::Tester)[0]));
    std::mt19937 random(7);
    for (int round = 0; round < 10; round++) {
        for (uint32_t code = 0; code < 100; code++) {
            const Sender& sender = senders.at(random() % senders.size());
            sender.client->post(sender.handle, code);
        }
        for (uint32_t code = 0; code < 100; code++)
            ASSERT_EQ(mRegistry.take().data().code, code);
    }
    EXPECT_GT(lettersTaken(), 500u);
}

TEST_F(LetterTest, twoThreadsOfASenderKeepTheOrderOfTheirCalls) {
    PeerClient first(path(), As::Ordinary);
    const uint32_t handle = join(&first);
    PeerClient second(&first);
    for (uint32_t code = 0; code < 100; code++) {
        // Every fifth carries an object, which no letter can.
        Payload payload;
        if (code % 5 == 0) payload.handle(handle);
        (code % 2 ? first : second).post(handle, code, payload);
    }
    for (uint32_t code = 0; code < 100; code++)
        ASSERT_EQ(mRegistry.take().data().code, code);
    EXPECT_EQ(lettersTaken(), 80u);
}

TEST_F(LetterTest, noLetterOvertakesACallWhoseAnswerWasNotReadYet) {
    PeerClient client(path(), As::Ordinary);
    const uint32_t handle = join(&client);
    ASSERT_EQ(kill(hubPid(), SIGSTOP), 0);
    client.write(Commands().oneway(handle, 1, Payload().handle(handle)));
    client.write(Commands().oneway(handle, 2));
    ASSERT_EQ(kill(hubPid(), SIGCONT), 0);
    for (uint32_t code = 1; code <= 2; code++)
        EXPECT_EQ(mRegistry.take().data().code, code);
}

TEST_F(LetterTest, lettersOfASenderThatIsKilledAtOnceAreDelivered) {
    for (int round = 0; round < 20; round++) {
        {
            PeerClient mortal(path(), As::Ordinary);
            const uint32_t handle = join(&mortal);
            for (uint32_t code = 0; code < 20; code++)
                mortal.post(handle, code);
        }
        for (uint32_t code = 0; code < 20; code++)
            ASSERT_EQ(mRegistry.take().data().code, code);
        awaitStat("processes", 1);
    }
    EXPECT_EQ(lettersTaken(), 400u);
}

TEST_F(LetterTest, aSenderLearnsOfADeadReceiverAndOfAFullOneAsItEverDid) {
    const auto countUntilFull = [this](As as) {
        PeerClient client(path(), as);
        const uint32_t handle = join(&client);
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
            (void)mRegistry.take();
        return count;
    };
    const size_t wanted = countUntilFull(As::Tester);
    EXPECT_EQ(countUntilFull(As::Ordinary), wanted);
    EXPECT_GT(lettersTaken(), 0u);

    PeerClient client(path(), As::Ordinary);
    const uint32_t handle = join(&client);
    client.post(handle, 1);
    mRegistry.kill();
    awaitStat("processes", 1);
    client.write(Commands().oneway(handle, 2));
    (void)client.expect(BR_DEAD_REPLY);
}

TEST_F(LetterTest, manySendersAtOnceFillAReceiverLittleMoreThanOneCan) {
    constexpr size_t kText = 4000;
    constexpr uint64_t kSpace = frame::kBufferBytes / 2;
    const std::vector<Sender> senders = makeSenders(24);
    uint64_t bytes = 0;
    for (bool taken = true; taken;) {
        taken = false;
        for (const auto& [client, handle] : senders) {
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
    std::vector<Sender> senders;
    for (int i = 0; i < 30; i++) {
        const auto& [client, handle] = senders.emplace_back(std::move(makeSenders(1)[0]));
        // The promise ends with the last strong count; the weak one keeps the handle.
        client->write(Commands().count(BC_INCREFS, handle).count(BC_RELEASE, handle));
        client->write(Commands().count(BC_ACQUIRE, handle));
        (void)stats();
    }
    for (const auto& [client, handle] : senders) {
        EXPECT_EQ(client->run(&overdraw, handle), 0);
        client->kill();  // at whose end the hub looks into its letters
    }
    awaitStat("processes", 1);
    EXPECT_GT(lettersTaken(), 0u);
    EXPECT_LE(stats().at("buffer_bytes"), kSpace / 2 + outbox::kPromise);
}

TEST_F(LetterTest, aForkedChildCannotWriteItsParentsLetters) {
    PeerClient client(path(), As::Ordinary);
    (void)join(&client);
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
    {
        PeerClient vandal(path(), As::Ordinary);
        const uint32_t its = join(&vandal);
        ASSERT_EQ(vandal.run(&sendSpoiltLetter, its), 0);
        awaitStat("processes", 2);
    }
    bystander.post(handle, 3);
    EXPECT_EQ(mRegistry.take().data().code, 3u);
}

}  // namespace
}  // namespace binderhost::tests

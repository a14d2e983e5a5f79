// SPDX-License-Identifier: Apache-2.0
//
// Messages: sizes, objects, descriptors; what is wrong fails that call and leaves no trace.
#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <functional>
#include <random>
#include <sstream>

#include "DriverFixture.h"
#include "embedded/Frame.h"

namespace binderhost::tests {
namespace {

using android::base::unique_fd;

class BufferTest : public PairFixture {
protected:
    /** A handle of the client's: handle 0 takes no descriptors. */
    uint32_t takeNode(uint32_t flags = FLAT_BINDER_FLAG_ACCEPTS_FDS) {
        flat_binder_object node{};
        node.hdr.type = BINDER_TYPE_BINDER;
        node.flags = flags;
        node.binder = kPtr;
        return mClient.takeNode(&mServer, Payload().add(node));
    }
};

std::string pattern(size_t size) {
    std::string out(size, '\0');
    for (size_t i = 0; i < size; i++)
        out[i] = static_cast<char>(i * 31 + i / 251);
    return out;
}

TEST_P(BufferTest, payloadsOfAllSizesArriveWholeBothWaysUpToTheSizeOfTheBuffer) {
    constexpr size_t kInline = frame::kInlineBytes, kMost = frame::kBufferBytes;
    for (const size_t size :
         std::initializer_list<size_t>{0, 1, 7, 4096, kInline - 1, kInline, kInline + 1, 300'000,
                                       kMost + 1, 1'050'000, 8'000'000, kMost, 7}) {
        SCOPED_TRACE(size);
        const std::string bytes = pattern(size);
        mClient.write(Commands().call(0, 1, bytes));
        if (size > kMost) {
            (void)mClient.expect(BR_FAILED_REPLY);
            continue;
        }
        EXPECT_EQ(mServer.serve(bytes).text(), bytes);
        const Return reply = mClient.expectReply();
        EXPECT_EQ(reply.text(), bytes);
        mClient.write(Commands().freeBuffer(reply));
    }
    expectStat("buffer_bytes", 0u);
}

TEST_P(BufferTest, aReplyThatCannotArriveFailsTheCallAndTheReplierIsDone) {
    for (const Payload& reply : {Payload(std::string(frame::kBufferBytes + 1, 'x')),
                                 Payload().descriptor(0)}) {  // which the caller takes none of
        mClient.write(Commands().call(0, 1));
        (void)mServer.serve(reply);
        (void)mClient.expect(BR_TRANSACTION_COMPLETE);
        (void)mClient.expect(BR_FAILED_REPLY);
        expectWorking();
    }
}

TEST_P(BufferTest, aBufferThatIsNotFreedKeepsItsRoomUntilItIs) {
    const std::string large(600 * 1024, 'x');
    mClient.write(Commands().call(0, 1, large));
    const Return call = mServer.expect(BR_TRANSACTION);
    mServer.write(Commands().reply());
    (void)mServer.expect(BR_TRANSACTION_COMPLETE);
    (void)mClient.expectReply();
    mClient.write(Commands().call(0, 1, large));
    (void)mClient.expect(BR_FAILED_REPLY);
    mServer.write(Commands().freeBuffer(call));
    awaitStat("buffers", 1);  // the empty reply
    mClient.write(Commands().call(0, 1, large));
    EXPECT_EQ(mServer.expect(BR_TRANSACTION).data().data_size, large.size());
}

/** Damaged messages; each is a node at offset 8 before the damage. */
struct Damage {
    const char* name;
    void (*apply)(Payload*, binder_transaction_data*);
};

void setType(Payload* payload, uint32_t type) {
    payload->bytes.replace(8, sizeof(type), reinterpret_cast<const char*>(&type), sizeof(type));
}

const Damage kDamages[] = {
        {"an unknown type", [](Payload* p, auto*) { setType(p, 0x12345678); }},
        {"a pointer object", [](Payload* p, auto*) { setType(p, BINDER_TYPE_PTR); }},
        {"a descriptor array", [](Payload* p, auto*) { setType(p, BINDER_TYPE_FDA); }},
        {"a handle that is not held", [](Payload* p, auto*) { setType(p, BINDER_TYPE_HANDLE); }},
        {"a weak one", [](Payload* p, auto*) { setType(p, BINDER_TYPE_WEAK_HANDLE); }},
        {"a descriptor that is none", [](Payload* p, auto*) { setType(p, BINDER_TYPE_FD); }},
        {"an odd offset", [](Payload* p, auto*) { p->offsets[0] = 5; }},
        {"an offset at the end", [](Payload* p, auto*) { p->offsets[0] = p->bytes.size(); }},
        {"an offset near the end", [](Payload* p, auto*) { p->offsets[0] = 12; }},
        {"an offset beyond", [](Payload* p, auto*) { p->offsets[0] = 1 << 20; }},
        {"an offset that wraps", [](Payload* p, auto*) { p->offsets[0] = ~uint64_t{0} - 7; }},
        {"the same object twice", [](Payload* p, auto*) { p->offsets.push_back(8); }},
        {"overlapping objects",
         [](Payload* p, auto*) {
             p->offsets.assign({8, 12});
         }},
        {"objects out of order",
         [](Payload* p, auto*) { std::swap(p->node(kPtr + 8).offsets[0], p->offsets[1]); }},
        {"a node with two cookies", [](Payload* p, auto*) { p->node(kPtr, /*cookie=*/2); }},
        {"a good node, then a bad handle", [](Payload* p, auto*) { p->handle(99); }},
};

TEST_P(BufferTest, aMessageWithAWrongWordFailsAndNothingOfItStays) {
    mClient.write(Commands().call(0, 1, "warm up"));
    (void)mServer.expect(BR_TRANSACTION);
    const auto before = stats();
    for (const bool large : {false, true}) {
        for (const Damage& damage : kDamages) {
            Payload payload(std::string(8, 'p'));
            payload.node(kPtr, /*cookie=*/1);
            binder_transaction_data data{};
            data.flags = TF_ONE_WAY;
            damage.apply(&payload, &data);
            if (large) payload.bytes.resize(100'000, 'z');
            PeerClient sender(path());
            sender.write(Commands().raw(data, payload));
            const Return answer = sender.nextEvent();
            EXPECT_EQ(answer.command, uint32_t{BR_FAILED_REPLY}) << damage.name << large;
        }
    }
    awaitStat("processes", 2);
    for (const char* name : {"nodes", "handles", "buffers", "buffer_bytes", "descriptors"}) {
        if (before.contains(name)) awaitStat(name, before.at(name));
    }
}

TEST_P(BufferTest, objectsInALargeMessageAreTranslatedToo) {
    Payload payload(pattern(200'000));
    payload.node(kPtr).node(kPtr + 8);
    payload.bytes += pattern(50'000);
    mClient.write(Commands().call(0, 1, payload));
    const Return call = mServer.expect(BR_TRANSACTION);
    EXPECT_EQ(call.text().substr(0, 200'000), pattern(200'000));
    EXPECT_EQ(call.text().substr(payload.bytes.size() - 50'000), pattern(50'000));
    EXPECT_EQ(call.object(0).hdr.type, uint32_t{BINDER_TYPE_HANDLE});
    EXPECT_EQ(call.object(0).handle, 1u);
    EXPECT_EQ(call.object(1).handle, 2u);
    mServer.write(Commands().reply(Payload(pattern(100'000)).handle(1)));
    EXPECT_EQ(mClient.expectReply().object(0).binder, kPtr);
}

TEST_P(BufferTest, descriptorsArriveCloseOnExecInCallsAndReplies) {
    const uint32_t handle = takeNode();
    for (const size_t filler : {size_t{0}, size_t{100'000}}) {
        int ends[2];
        ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
        const unique_fd out(ends[0]), in(ends[1]);
        Payload payload(std::string(filler, 'f'));
        mClient.write(Commands().call(handle, 1, payload.descriptor(in.get()), TF_ACCEPT_FDS));
        const Return call = mServer.expect(BR_TRANSACTION);
        const int got = static_cast<int>(call.object(0).handle);
        EXPECT_EQ(write(got, "!", 1), 1);
        char byte = 0;
        EXPECT_EQ(read(out.get(), &byte, 1), 1);
        mServer.write(Commands().freeBuffer(call).reply(Payload().descriptor(got)));
        (void)mServer.expect(BR_TRANSACTION_COMPLETE);
        const Return reply = mClient.expectReply();
        EXPECT_EQ(write(static_cast<int>(reply.object(0).handle), "?", 1), 1);
    }
    expectStat("descriptors", 0u);
}

TEST_P(BufferTest, nodesThatTakeNoDescriptorsGetNone) {
    for (const uint32_t handle : {takeNode(/*flags=*/0), uint32_t{0}}) {
        mClient.write(Commands().oneway(handle, 1, Payload().descriptor(STDERR_FILENO)));
        (void)mClient.expect(BR_FAILED_REPLY);
    }
    expectWorking();
}

TEST_P(BufferTest, asManyDescriptorsArriveAsASocketCarries) {
    const uint32_t handle = takeNode();
    for (const auto& [count, filler] : {std::pair<size_t, size_t>{253, 0}, {252, 100'000}}) {
        Payload payload(std::string(filler, 'f'));
        for (size_t i = 0; i < count; i++)
            payload.descriptor(STDERR_FILENO);
        mClient.post(handle, 1, payload);
        EXPECT_EQ(mServer.take().descriptors.size(), count);
    }
    expectStat("descriptors", 0);
    expectWorking();
}

TEST_P(BufferTest, oneBadDescriptorFailsItsOwnCallOnly) {
    const uint32_t handle = takeNode();
    Commands commands;
    commands.oneway(handle, 1, Payload().descriptor(STDERR_FILENO))
            .oneway(handle, 2, Payload().descriptor(987654))
            .oneway(handle, 3, "none");
    mClient.write(commands);
    EXPECT_EQ(mClient.next().command, uint32_t{BR_TRANSACTION_COMPLETE});
    EXPECT_EQ(mClient.next().command, uint32_t{BR_FAILED_REPLY});
    EXPECT_EQ(mClient.next().command, uint32_t{BR_TRANSACTION_COMPLETE});
    for (const uint32_t code : {1u, 3u}) {
        const Return call = mServer.take();
        EXPECT_EQ(call.data().code, code);
        EXPECT_EQ(call.descriptors.size(), code == 1 ? 1u : 0u);
    }
}

/** How many more the process may open. */
int leaveDescriptors(Driver&, int64_t count) {
    const unique_fd lowest(open("/dev/null", O_RDONLY | O_CLOEXEC));
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return -errno;
    limit.rlim_cur = static_cast<rlim_t>(lowest.get() + count);
    return setrlimit(RLIMIT_NOFILE, &limit) == 0 ? 0 : -errno;
}

TEST_P(BufferTest, aReceiverWithNoDescriptorLeftFailsTheCallAndLosesNone) {
    const uint32_t handle = takeNode();
    PeerClient other(path());
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const unique_fd out(ends[0]);
    unique_fd in(ends[1]);
    mClient.write(Commands().call(handle, 1, Payload().descriptor(in.get()).descriptor(in.get())));
    in.reset();
    expectStat("buffers", 1u);  // a hub has taken it
    other.post(0, 2, "after it");
    // Room for one of the two only.
    EXPECT_EQ(mServer.run(&leaveDescriptors, 1), 0);
    EXPECT_EQ(mServer.next().data().code, 2u) << "the call with descriptors is not shown";
    (void)mClient.expect(BR_TRANSACTION_COMPLETE);
    (void)mClient.expect(BR_FAILED_REPLY);
    char byte = 0;
    EXPECT_EQ(read(out.get(), &byte, 1), 0) << "some copy of the writing end is left";
    expectStat("buffers", 1u);
}

/** What becomes of random messages: 'F', or what arrived. */
std::string fateOfRandomMessages(const std::string& path, const std::function<Stats()>& stats,
                                 uint32_t seed) {
    std::mt19937 random(seed);
    const auto anyOf = [&random](std::initializer_list<uint64_t> values) {
        return *(values.begin() + random() % values.size());
    };
    PeerClient server(path), client(path);
    server.publish();
    const uint32_t target = client.takeNode(&server);
    std::ostringstream out;
    for (int i = 0; i < 300; i++) {
        Payload payload(std::string(random() % 160, 'r'));
        for (uint64_t count = random() % 4, at = 0; count > 0; count--, at += anyOf({24, 28, 8})) {
            flat_binder_object object{};
            object.hdr.type = static_cast<uint32_t>(
                    anyOf({BINDER_TYPE_BINDER, BINDER_TYPE_WEAK_BINDER, BINDER_TYPE_HANDLE,
                           BINDER_TYPE_WEAK_HANDLE, BINDER_TYPE_FD, random() | 1}));
            object.flags = static_cast<uint32_t>(random());
            object.binder = anyOf({0, 1, target, 77, STDERR_FILENO, ~0U});
            object.cookie = anyOf({0, 0, 0, 1});
            payload.offsets.push_back(at + anyOf({0, 0, 0, 4, 5}));
            const size_t room = payload.bytes.size() - std::min(at, payload.bytes.size());
            std::memcpy(payload.bytes.data() + payload.bytes.size() - room, &object,
                        std::min(room, sizeof(object)));
        }
        client.write(Commands().oneway(target, 1, payload));
        if (client.nextEvent().command != BR_TRANSACTION_COMPLETE) {
            out << " F";
            continue;
        }
        const Return call = server.take();
        out << " " << call.text().size();
        for (size_t at = 0; at < call.offsets.size(); at++) {
            const flat_binder_object object = call.object(at);
            out << ":" << object.hdr.type;
            if (object.hdr.type != BINDER_TYPE_FD) out << "/" << object.binder;
        }
        (void)stats();  // a hub has freed it
    }
    return out.str();
}

TEST_P(BufferTest, randomMessagesHaveTheSameFateAsOnAHub) {
    mServer.kill();
    mClient.kill();
    awaitStat("processes", 0);
    const TestHub reference;
    for (const uint32_t seed : {1u, 2u, 3u}) {
        const std::string wanted = fateOfRandomMessages(
                reference.path(), [&] { return reference.stats(); }, seed);
        EXPECT_EQ(fateOfRandomMessages(
                          path(), [this] { return stats(); }, seed),
                  wanted);
        awaitStat("processes", 0);
    }
}

ON_EACH_DRIVER(BufferTest);

}  // namespace
}  // namespace binderhost::tests

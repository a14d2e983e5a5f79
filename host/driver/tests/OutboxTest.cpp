// SPDX-License-Identifier: Apache-2.0
//
// Outboxes without processes: both ends of the shared memory in this one.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <random>
#include <string>

#include "embedded/Clock.h"
#include "embedded/Outbox.h"
#include "hub/Outboxes.h"

namespace binderhost::hub {
namespace {

using android::base::unique_fd;

constexpr uid_t kUid = 4711;
constexpr uint32_t kHandle = 5;

/** A process's outbox, with what a driver has of it and a bare view of the letters. */
struct Ends {
    Process process;
    std::unique_ptr<binderhost::Outbox> driver;
    SharedMemory<outbox::Letters> letters;

    explicit Ends(std::array<unique_fd, 2> descriptors = {})
          : process(Identity(1)),
            driver(open(&descriptors)),
            letters(descriptors[0].get(), kBoth) {}

    [[nodiscard]] bool post(uint32_t code, const std::string& text = {},
                            uint32_t handle = kHandle) const {
        binder_transaction_data call{};
        call.target.handle = handle;
        call.code = code;
        call.flags = TF_ONE_WAY;
        call.data_size = text.size();
        call.data.ptr.buffer = reinterpret_cast<uintptr_t>(text.data());
        EXPECT_TRUE(binderhost::Outbox::suits(call));
        return driver->post(call);
    }
    /** A record as no driver of ours writes it, to a handle with a promise. */
    void put(const outbox::Record& record, size_t at = 0) const {
        (void)process.outbox->promise(kHandle, /*more=*/true);
        std::memcpy(letters->ring + at, &record, sizeof(record));
        letters->written.store(at + record.size);
    }

private:
    static constexpr int kBoth = PROT_READ | PROT_WRITE;
    std::unique_ptr<binderhost::Outbox> open(std::array<unique_fd, 2>* descriptors) {
        process.outbox = Outbox::make(kUid, descriptors);
        std::vector<unique_fd> theirs;
        for (const unique_fd& each : *descriptors)
            theirs.emplace_back(dup(each.get()));
        theirs.emplace_back(memfd_create("bell", MFD_CLOEXEC));
        return binderhost::Outbox::open(std::move(theirs));
    }
};

struct Taken {
    std::vector<std::pair<uint32_t, std::string>> letters;
    std::vector<Process*> broken;
};

Taken takeAll(Outboxes* outboxes, uint64_t until) {
    Taken out;
    out.broken = outboxes->take(until, [&out](Process*, const Outbox::Letter& letter) {
        out.letters.emplace_back(letter.head.code,
                                 std::string(letter.data.begin(), letter.data.end()));
    });
    return out;
}

outbox::Record stamped(uint64_t stamp, uint32_t code) {
    outbox::Record record;
    record.size = sizeof(record);
    record.handle = kHandle;
    record.stamp = stamp;
    record.code = code;
    return record;
}

TEST(OutboxTest, tenRingfulsOfLettersOfAllSizesArriveWholeAndInOrder) {
    Ends ends;
    Outboxes outboxes;
    std::mt19937 random(1);
    uint64_t bytes = 0;
    uint32_t sent = 0, seen = 0;
    std::deque<std::string> wanted;
    while (bytes < 10 * outbox::kRingBytes) {
        (void)ends.process.outbox->promise(kHandle, /*more=*/true);
        for (;;) {
            std::string text(random() % (outbox::kMaxData + 1), static_cast<char>('a' + sent % 26));
            if (!ends.post(sent, text)) break;
            sent++;
            bytes += text.size();
            wanted.push_back(std::move(text));
        }
        outboxes.rung(&ends.process);
        const Taken taken = takeAll(&outboxes, monotonicNow());
        ASSERT_TRUE(taken.broken.empty());
        for (const auto& [code, text] : taken.letters) {
            ASSERT_EQ(code, seen++);
            ASSERT_EQ(text, wanted.front());
            wanted.pop_front();
        }
        ASSERT_EQ(seen, sent);
    }
}

TEST(OutboxTest, nothingIsPostedBeyondWhatWasPromisedOrWhatFits) {
    Ends ends;
    EXPECT_FALSE(ends.post(1)) << "nothing was promised";
    const std::string full(outbox::kMaxData, 'x');
    const uint64_t each = outbox::recordSize(full.size());
    (void)ends.process.outbox->promise(kHandle, /*more=*/true);
    for (uint64_t i = 0; i < outbox::kPromise / each; i++)
        EXPECT_TRUE(ends.post(1, full));
    EXPECT_FALSE(ends.post(1, full));
    EXPECT_FALSE(ends.post(1, full, kHandle + 1)) << "a promise is for one handle";

    (void)ends.process.outbox->promise(kHandle + 1, /*more=*/true);
    (void)ends.process.outbox->promise(kHandle + 1, /*more=*/false);
    EXPECT_FALSE(ends.post(1, {}, kHandle + 1)) << "the promise was taken back";

    uint64_t posted = outbox::kPromise / each;
    for (uint32_t handle = 100; handle < 200; handle++) {
        (void)ends.process.outbox->promise(handle, /*more=*/true);
        while (ends.post(1, full, handle))
            posted++;
    }
    EXPECT_EQ(posted, outbox::kRingBytes / each);
}

TEST(OutboxTest, lettersOfAllProcessesComeInTheOrderOfTheirStamps) {
    Ends a, b, c;
    constexpr size_t kSize = sizeof(outbox::Record);
    a.put(stamped(10, 1));
    a.put(stamped(40, 4), kSize);
    b.put(stamped(20, 2));
    b.put(stamped(60, 6), kSize);
    c.put(stamped(30, 3));
    Outboxes outboxes;
    for (Ends* each : {&c, &b, &a})
        outboxes.rung(&each->process);
    const auto codes = [&outboxes](uint64_t until) {
        std::vector<uint32_t> out;
        for (const auto& [code, text] : takeAll(&outboxes, until).letters)
            out.push_back(code);
        return out;
    };
    EXPECT_EQ(codes(40), (std::vector<uint32_t>{1, 2, 3, 4}));
    EXPECT_TRUE(outboxes.pending()) << "one is left";
    // What comes late but was stamped before goes before.
    c.put(stamped(50, 5), kSize);
    outboxes.rung(&c.process);
    EXPECT_EQ(codes(100), (std::vector<uint32_t>{5, 6}));
    EXPECT_FALSE(outboxes.pending());
}

TEST(OutboxTest, aLetterFromTheFutureIsTakenAllTheSame) {
    Ends ends;
    ends.put(stamped(~uint64_t{0}, 9));
    Outboxes outboxes;
    outboxes.rung(&ends.process);
    const uint64_t before = monotonicNow();
    EXPECT_TRUE(takeAll(&outboxes, before).letters.empty())
            << "it came after the look at the clock";
    EXPECT_TRUE(outboxes.pending());
    EXPECT_EQ(takeAll(&outboxes, monotonicNow()).letters.size(), 1u);
}

TEST(OutboxTest, whatIsWrittenDuringATurnWaitsForTheNextWhateverItsStamp) {
    Ends ends;
    Outboxes outboxes;
    ends.put(stamped(1, 1));
    uint64_t given = 0;
    const auto writeOn = [&](Process*, const Outbox::Letter&) {
        given++;
        if (given < 100) ends.put(stamped(1, 1), given * sizeof(outbox::Record));
    };
    for (uint64_t turn = 1; turn <= 2; turn++) {
        outboxes.rung(&ends.process);
        EXPECT_TRUE(outboxes.take(monotonicNow(), writeOn).empty());
        EXPECT_EQ(given, turn);
    }
}

TEST(OutboxTest, aRingThatCannotBeRightIsBrokenAndNothingOfItIsTaken) {
    using R = outbox::Record;
    constexpr uint64_t kSize = sizeof(R);
    const struct {
        const char* name;
        void (*change)(R*);
        uint64_t written = kSize;
    } rows[] = {
            {"no size", [](R* r) { r->size = 0; }},
            {"an odd size", [](R* r) { r->size = kSize + 1; }, kSize + 8},
            {"longer than what is written", [](R* r) { r->size = kSize + 8; }},
            {"shorter than its head", [](R* r) { r->size = 16; }},
            {"a size that wraps", [](R* r) { r->size = 0xfffffff8; }},
            {"data beyond its end", [](R* r) { r->dataSize = 8; }},
            {"data that wrap", [](R* r) { r->dataSize = 0xffffffff; }},
            {"too much data",
             [](R* r) {
                 r->dataSize = outbox::kMaxData + 8;
                 r->size = static_cast<uint32_t>(outbox::recordSize(r->dataSize));
             },
             outbox::recordSize(outbox::kMaxData + 8)},
            {"a handle beyond the table", [](R* r) { r->handle = outbox::kHandles; }},
            {"a filler beyond the end",
             [](R* r) {
                 r->handle = 0;
                 r->size = outbox::kRingBytes + 8;
             }},
            {"more than the ring holds", [](R*) {}, outbox::kRingBytes + 8},
            {"to a handle that nothing was promised for", [](R* r) { r->handle++; }},
            {"a filler that leads nowhere",
             [](R* r) {
                 r->handle = 0;
                 r->size = 8;
             },
             8},
            {"half a word", [](R*) {}, kSize + 4},
            {"less than was taken", [](R*) {}, ~uint64_t{7}},
    };
    for (const auto& each : rows) {
        SCOPED_TRACE(each.name);
        Ends ends;
        outbox::Record record = stamped(1, 1);
        each.change(&record);
        ends.put(record);
        ends.letters->written.store(each.written);
        Outboxes outboxes;
        outboxes.rung(&ends.process);
        const Taken taken = takeAll(&outboxes, monotonicNow());
        EXPECT_TRUE(taken.letters.empty());
        EXPECT_EQ(taken.broken, std::vector<Process*>{&ends.process});
        EXPECT_FALSE(outboxes.pending());
    }
}

TEST(OutboxTest, aForkedChildKeepsWhatItHasWhereItsParentsMemoryWas) {
    std::array<unique_fd, 2> descriptors;
    const auto outbox = Outbox::make(kUid, &descriptors);
    auto room = std::make_unique<SharedMemory<const outbox::Room>>(descriptors[1].get(), PROT_READ);
    auto* place = const_cast<outbox::Room*>(room->operator->());
    const pid_t child = fork();
    if (child == 0) {
        void* own = mmap(place, sizeof(*place), PROT_READ | PROT_WRITE,
                         MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, /*fd=*/-1,
                         /*offset=*/0);
        if (own != place) _exit(2);
        room.reset();
        const bool there = msync(own, sizeof(*place), MS_ASYNC) == 0;
        _exit(there ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST(OutboxTest, theRoomCannotBeWrittenByWhoeverGetsIt) {
    std::array<unique_fd, 2> descriptors;
    const auto outbox = Outbox::make(kUid, &descriptors);
    const SharedMemory<outbox::Room> room(descriptors[1].get(), PROT_READ | PROT_WRITE);
    EXPECT_FALSE(room.ok());
    for (const unique_fd& each : descriptors)
        EXPECT_NE(ftruncate(each.get(), 0), 0) << "a hub must not fall into a hole";
}

}  // namespace
}  // namespace binderhost::hub

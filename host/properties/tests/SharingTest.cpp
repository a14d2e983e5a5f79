// SPDX-License-Identifier: Apache-2.0
//
// Property store under many hands: threads, processes, and writers that are killed.
#include <gtest/gtest.h>
#include <properties/PropertyStore.h>
#include <sys/file.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "../../testing/Child.h"
#include "../StoreLayout.h"
#include "../StoreMapping.h"
#include "TempStore.h"

namespace hostproperties {

using android::base::unique_fd;
using hosttesting::Child;
using test::TempStore;

namespace {

/** A value of one repeated letter: torn ones show. */
std::string uniform(int i) {
    return std::string(PROP_VALUE_MAX - 1, static_cast<char>('a' + i % 26));
}

bool isUniform(const std::string& value) {
    return value.size() == PROP_VALUE_MAX - 1 &&
           std::all_of(value.begin(), value.end(), [&](char c) { return c == value[0]; });
}

/** Threads that make a check over and over. */
class Readers {
public:
    explicit Readers(const std::function<bool()>& check) {
        for (int i = 0; i < kThreads; ++i) {
            mThreads.emplace_back([this, check] {
                do {
                    if (!check()) ++mFailures;
                } while (!mDone);
            });
        }
    }
    ~Readers() { (void)stop(); }
    Readers(const Readers&) = delete;
    Readers& operator=(const Readers&) = delete;

    /** How often the check failed. */
    [[nodiscard]] int stop() {
        mDone = true;
        for (std::thread& thread : mThreads)
            thread.join();
        mThreads.clear();
        return mFailures;
    }

private:
    static constexpr int kThreads = 2;
    std::atomic<bool> mDone = false;
    std::atomic<int> mFailures = 0;
    std::vector<std::thread> mThreads;
};

std::unique_ptr<StoreMapping> mapForWriting(const TempStore& temp) {
    Status status;
    return StoreMapping::map(unique_fd(open(temp.path().c_str(), O_RDWR | O_CLOEXEC)),
                             StoreMapping::Access::kWrite, &status);
}

}  // namespace

TEST(Sharing, ReadersAlwaysSeeAWholeValue) {
    const TempStore temp;
    PropertyStore writer(temp.place());
    ASSERT_TRUE(writer.set("debug.foo", uniform(0)).ok());
    const PropertyStore store(temp.place());
    Readers readers([&] {
        const auto value = store.get("debug.foo");
        return value && isUniform(*value);
    });
    for (int i = 0; i < 5000; ++i)
        ASSERT_TRUE(writer.set("debug.foo", uniform(i)).ok());
    EXPECT_EQ(readers.stop(), 0);
}

TEST(Sharing, WriterWithoutPauseTearsNoValueEither) {
    const TempStore temp;
    PropertyStore store(temp.place());
    ASSERT_TRUE(store.set("debug.foo", uniform(0)).ok());
    const auto writing = mapForWriting(temp);
    ASSERT_NE(writing, nullptr);
    // No time to copy a value is left between two changes: a reader may give up, empty-handed.
    Readers readers([&] { return isUniform(store.get("debug.foo").value_or(uniform(0))); });
    for (int i = 0; i < 50000; ++i)
        ASSERT_TRUE(writing->write("debug.foo", uniform(i)).ok());
    EXPECT_EQ(readers.stop(), 0);
}

TEST(Sharing, NamesOfSeveralThreadsAllArrive) {
    const TempStore temp;
    PropertyStore store(temp.place());
    constexpr int kThreads = 4;
    constexpr int kNames = 50;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kNames; ++i) {
                const std::string name = "n" + std::to_string(t) + "." + std::to_string(i);
                EXPECT_TRUE(store.set(name, name).ok());
                EXPECT_EQ(store.get(name), name);
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    int count = 0;
    store.forEach([&](const std::string& name, const std::string& value) {
        EXPECT_EQ(name, value);
        ++count;
    });
    EXPECT_EQ(count, kThreads * kNames);
}

TEST(Sharing, StoreMadeByManyProcessesAtOnceIsOneStore) {
    const TempStore temp;
    constexpr int kProcesses = 8;
    std::vector<std::unique_ptr<Child>> children;
    for (int i = 0; i < kProcesses; ++i) {
        children.push_back(std::make_unique<Child>([&temp, i] {
            return PropertyStore(temp.place()).set("n" + std::to_string(i), "1").error;
        }));
    }
    for (const auto& child : children)
        EXPECT_EQ(child->wait(), 0);
    const PropertyStore store(temp.place());
    for (int i = 0; i < kProcesses; ++i)
        EXPECT_EQ(store.get("n" + std::to_string(i)), "1");
}

TEST(Sharing, KilledWriterHarmsNobody) {
    const TempStore temp;
    PropertyStore store(temp.place());
    for (int round = 0; round < 50; ++round) {
        ASSERT_TRUE(store.set("debug.foo", uniform(0)).ok());
        Child writer([&temp] {
            PropertyStore own(temp.place());
            for (int i = 0; own.set("debug.foo", uniform(i)).ok(); ++i)
                continue;
            return 1;
        });
        // It is at work, somewhere in its cycle, once a value of its own is seen.
        while (store.get("debug.foo") == uniform(0))
            std::this_thread::yield();
        kill(writer.pid(), SIGKILL);
        EXPECT_EQ(writer.wait(), -SIGKILL) << "the writer failed to set a property";
        const auto value = store.get("debug.foo");
        ASSERT_TRUE(value && isUniform(*value));
        ASSERT_TRUE(store.set("debug.foo", "mine").ok());
        ASSERT_EQ(store.get("debug.foo"), "mine");
    }
}

TEST(Sharing, HalfWrittenEntryAndValueAreInvisibleAndWrittenOver) {
    const TempStore temp;
    PropertyStore store(temp.place());
    ASSERT_TRUE(store.set("debug.foo", "old").ok());
    {
        // What a writer leaves that is killed before its last store.
        const auto writing = mapForWriting(temp);
        ASSERT_NE(writing, nullptr);
        auto& layout = const_cast<StoreLayout&>(writing->layout());
        layout.entries[0].values[1].store(ValueText::pack("half"));
        layout.entries[1].name.store(NameText::pack("debug.half"));
        layout.entries[1].changes.store(7);
    }
    EXPECT_EQ(store.get("debug.foo"), "old");
    EXPECT_EQ(store.get("debug.half"), std::nullopt);
    EXPECT_TRUE(store.set("debug.foo", "new").ok());
    EXPECT_TRUE(store.set("debug.bar", "bar").ok());
    EXPECT_EQ(store.get("debug.foo"), "new");
    EXPECT_EQ(store.get("debug.bar"), "bar");
    EXPECT_EQ(store.get("debug.half"), std::nullopt);
}

TEST(Sharing, ReaderDoesNotWaitForALockedStore) {
    const TempStore temp;
    PropertyStore store(temp.place());
    ASSERT_TRUE(store.set("debug.foo", "1").ok());
    const unique_fd locked(open(temp.path().c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_EQ(flock(locked.get(), LOCK_EX), 0);
    EXPECT_EQ(PropertyStore(temp.place()).get("debug.foo"), "1");
}

}  // namespace hostproperties

// SPDX-License-Identifier: Apache-2.0
//
// Reference counts order threads: what a holder wrote before letting go, the destructor sees.
//
// In the thread sanitizer's build this fails unless the counts are announced to it.
#include <gtest/gtest.h>
#include <utils/RefBase.h>
#include <utils/StrongPointer.h>

#include <array>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace android;

constexpr int kHolders = 4;
constexpr int kRounds = 200;

class Shared : public RefBase {
public:
    explicit Shared(int* sum) : mSum(sum) {}
    void write(int holder) { mWritten[size_t(holder)] = 1; }

protected:
    ~Shared() override {
        for (const int value : mWritten)
            *mSum += value;
    }

private:
    int* const mSum;
    std::array<int, kHolders> mWritten{};
};

TEST(ReferenceCountTest, DestructorSeesWhatEveryHolderWrote) {
    for (int round = 0; round < kRounds; round++) {
        int sum = 0;
        std::vector<std::thread> threads;
        {
            const sp<Shared> shared = new Shared(&sum);
            for (int holder = 0; holder < kHolders; holder++) {
                threads.emplace_back([holder, held = shared]() mutable {
                    held->write(holder);
                    held.clear();
                });
            }
        }
        for (std::thread& thread : threads)
            thread.join();
        ASSERT_EQ(sum, kHolders);
    }
}

TEST(ReferenceCountTest, PromotedReferenceSeesWhatTheLastHolderWrote) {
    for (int round = 0; round < kRounds; round++) {
        int sum = 0;
        sp<Shared> shared = new Shared(&sum);
        const wp<Shared> weak = shared;
        std::thread other([weak] {
            if (const sp<Shared> held = weak.promote(); held != nullptr) held->write(1);
        });
        shared->write(0);
        shared.clear();
        other.join();
        ASSERT_GE(sum, 1);
    }
}

}  // namespace

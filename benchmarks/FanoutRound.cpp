// SPDX-License-Identifier: Apache-2.0
#include "FanoutRound.h"

#include <linux/futex.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <new>

namespace {

constexpr uint32_t kParts = 2;
constexpr time_t kDeadlineSeconds = 30;

int64_t now() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

}  // namespace

FanoutRound* FanoutRound::map() {
    void* memory = mmap(nullptr, sizeof(FanoutRound), PROT_READ | PROT_WRITE,
                        MAP_SHARED | MAP_ANONYMOUS, /*fd=*/-1, /*offset=*/0);
    if (memory == MAP_FAILED) {
        perror("mmap");
        exit(1);
    }
    return new (memory) FanoutRound();
}

void FanoutRound::prepare(uint32_t listeners) {
    mListenersLeft = listeners;
    mPartsLeft = kParts;
}

void FanoutRound::begin() {
    mBegin = now();
}

void FanoutRound::sent() {
    mSent = now();
    finishPart();
}

void FanoutRound::received() {
    if (mListenersLeft.fetch_sub(1) != 1) return;
    mReceived = now();
    finishPart();
}

void FanoutRound::finishPart() {
    if (mPartsLeft.fetch_sub(1) != 1) return;
    syscall(SYS_futex, &mPartsLeft, FUTEX_WAKE, 1, nullptr, nullptr, 0);
}

bool FanoutRound::wait() {
    const timespec deadline{kDeadlineSeconds, 0};
    for (uint32_t left; (left = mPartsLeft.load()) != 0;) {
        const long status =
                syscall(SYS_futex, &mPartsLeft, FUTEX_WAIT, left, &deadline, nullptr, 0);
        if (status != 0 && errno == ETIMEDOUT) return false;
    }
    mEnd = now();
    return true;
}

double FanoutRound::total() const {
    return double(mEnd - mBegin) / 1e9;
}

double FanoutRound::reached() const {
    return double(mReceived - mBegin) / 1e9;
}

double FanoutRound::held() const {
    return double(mSent - mBegin) / 1e9;
}

// SPDX-License-Identifier: Apache-2.0
#include "ForkGuard.h"

#include <android-base/thread_annotations.h>
#include <pthread.h>

#include <mutex>
#include <set>

namespace binderhost {
namespace {

// Guards the set; held across a fork so that the child finds it whole.
std::mutex gLock;

std::set<android::base::unique_fd*>& descriptors() REQUIRES(gLock);
// The three handlers share the lock across functions, which the analysis cannot follow.
void beforeFork() NO_THREAD_SAFETY_ANALYSIS;
void afterForkInParent() NO_THREAD_SAFETY_ANALYSIS;
void afterForkInChild() NO_THREAD_SAFETY_ANALYSIS;

std::set<android::base::unique_fd*>& descriptors() {
    // Never destroyed: threads may still leave while the process ends.
    static auto* all = new std::set<android::base::unique_fd*>();
    return *all;
}

void beforeFork() {
    gLock.lock();
}

void afterForkInParent() {
    gLock.unlock();
}

void afterForkInChild() {
    for (auto* descriptor : descriptors())
        descriptor->reset();
    gLock.unlock();
}

}  // namespace

ForkGuard::ForkGuard(android::base::unique_fd* descriptor) : mDescriptor(descriptor) {
    static const int kInstalled = pthread_atfork(beforeFork, afterForkInParent, afterForkInChild);
    const std::lock_guard lock(gLock);
    if (kInstalled == 0) descriptors().insert(descriptor);
}

ForkGuard::~ForkGuard() {
    const std::lock_guard lock(gLock);
    descriptors().erase(mDescriptor);
}

}  // namespace binderhost

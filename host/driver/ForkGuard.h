// SPDX-License-Identifier: Apache-2.0
//
// ForkGuard: descriptors that a forked child must not keep: sockets to the hub and the bell of the
// letters, or the binder device.
//
// Problem: close-on-exec does nothing for a child that only forks; its copies would keep the parent
// alive to the hub or the kernel past its end. Registered descriptors are closed in the child by a
// fork handler. (A child made past the C library's fork escapes this; the hub therefore also
// watches the process itself.)
#pragma once

#include <android-base/unique_fd.h>

namespace binderhost {

/** Registers a descriptor for as long as the guard lives; it must outlive the guard. */
class ForkGuard {
public:
    explicit ForkGuard(android::base::unique_fd* descriptor);
    ~ForkGuard();
    ForkGuard(const ForkGuard&) = delete;
    ForkGuard& operator=(const ForkGuard&) = delete;

private:
    android::base::unique_fd* mDescriptor;
};

}  // namespace binderhost

// SPDX-License-Identifier: Apache-2.0
#include "RawBinder.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace {

/** As large as the runtime's, so that the kernel does the same for both. */
constexpr size_t kBufferSize = 1024 * 1024 - 2 * 4096;
/** Commands of a thousand calls and more. */
constexpr size_t kMostQueued = 128 * 1024;

binder_transaction_data describe(const void* data, size_t size) {
    binder_transaction_data transaction{};
    transaction.code = 1;
    transaction.data_size = size;
    transaction.data.ptr.buffer = reinterpret_cast<uintptr_t>(data);
    return transaction;
}

}  // namespace

RawBinder::RawBinder(const char* device)
      : mDevice(open(device, O_RDWR | O_CLOEXEC)), mOut(kMostQueued) {
    if (mDevice < 0) fail(device);
    mBuffer = mmap(nullptr, kBufferSize, PROT_READ, MAP_PRIVATE | MAP_NORESERVE, mDevice,
                   /*offset=*/0);
    if (mBuffer == MAP_FAILED) fail("mmap of a binder device");
}

RawBinder::~RawBinder() {
    munmap(mBuffer, kBufferSize);
    close(mDevice);
}

void RawBinder::becomeContextManager() {
    int32_t unused = 0;
    if (ioctl(mDevice, BINDER_SET_CONTEXT_MGR, &unused) != 0) fail("BINDER_SET_CONTEXT_MGR");
}

void RawBinder::transact(uint32_t handle, uint32_t flags, const void* data, size_t size) {
    binder_transaction_data transaction = describe(data, size);
    transaction.target.handle = handle;
    transaction.flags = flags | TF_ACCEPT_FDS;
    put(BC_TRANSACTION, transaction);
}

void RawBinder::reply(const void* data, size_t size) {
    put(BC_REPLY, describe(data, size));
}

void RawBinder::sendObject(uint32_t handle, const flat_binder_object& object) {
    static constexpr binder_size_t kAtStart = 0;
    binder_transaction_data transaction = describe(&object, sizeof(object));
    transaction.target.handle = handle;
    transaction.flags = TF_ONE_WAY | TF_ACCEPT_FDS;
    transaction.offsets_size = sizeof(kAtStart);
    transaction.data.ptr.offsets = reinterpret_cast<uintptr_t>(&kAtStart);
    put(BC_TRANSACTION, transaction);
}

void RawBinder::append(const void* bytes, size_t size) {
    if (size > mOut.size() - mOutSize) {
        fprintf(stderr, "too many commands at once\n");
        exit(1);
    }
    std::memcpy(mOut.data() + mOutSize, bytes, size);
    mOutSize += size;
}

void RawBinder::fail(const char* what) {
    perror(what);
    exit(1);
}

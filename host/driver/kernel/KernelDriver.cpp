// SPDX-License-Identifier: Apache-2.0
#include "kernel/KernelDriver.h"

#include <android-base/file.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>
#include <utility>

#include "OwnPid.h"

namespace binderhost {

using android::base::unique_fd;

namespace {

std::string unopened(const std::string& path, int status) {
    std::string reason = path + ": " + std::strerror(status);
    if (status == ENOENT || status == ENXIO || status == ENODEV) {
        return reason + ": is the kernel's binder module loaded (modprobe binder_linux)?";
    }
    if (status == EACCES || status == EPERM) {
        return reason + ": uid " + std::to_string(geteuid()) + " may not open this binder device";
    }
    return reason;
}

/** Empty when the device speaks this header's version of the protocol. */
std::string wrongVersion(const std::string& path, int device) {
    binder_version version{};
    if (ioctl(device, BINDER_VERSION, &version) != 0) return path + " is no binder device";
    if (version.protocol_version == BINDER_CURRENT_PROTOCOL_VERSION) return "";
    return path + " speaks version " + std::to_string(version.protocol_version) +
           " of the binder protocol, this program speaks " +
           std::to_string(BINDER_CURRENT_PROTOCOL_VERSION);
}

/**
 * Whether the kernel can say in which security context a process calls. Where it cannot, a context
 * manager that asks for contexts is called by nobody, since each call to it fails. Of the usual
 * security modules only SELinux answers; its file system is known where it is at work.
 */
bool givesSecurityContexts() {
    std::string fileSystems;
    return android::base::ReadFileToString("/proc/filesystems", &fileSystems) &&
           fileSystems.find("selinuxfs") != std::string::npos;
}

}  // namespace

std::unique_ptr<Driver> KernelDriver::open(const std::string& path, std::string* error) {
    unique_fd device(TEMP_FAILURE_RETRY(::open(path.c_str(), O_RDWR | O_CLOEXEC)));
    if (!device.ok()) {
        *error = unopened(path, errno);
        return nullptr;
    }
    *error = wrongVersion(path, device.get());
    if (!error->empty()) return nullptr;
    void* buffer = mmap(nullptr, kBufferSize, PROT_READ, MAP_PRIVATE | MAP_NORESERVE, device.get(),
                        /*offset=*/0);
    if (buffer == MAP_FAILED) {
        *error = path + ": no memory for its buffer: " + std::strerror(errno);
        return nullptr;
    }
    return std::unique_ptr<Driver>(new KernelDriver(path, std::move(device), buffer));
}

KernelDriver::KernelDriver(std::string path, unique_fd device, void* buffer)
      : mPath(std::move(path)), mPid(ownPid()), mDevice(std::move(device)), mBuffer(buffer) {}

KernelDriver::~KernelDriver() {
    munmap(mBuffer, kBufferSize);
}

int KernelDriver::writeRead(binder_write_read* bwr) {
    return control(BINDER_WRITE_READ, bwr);
}

int KernelDriver::becomeContextManager() {
    // Growing, since the kernel logs each refusal.
    constexpr std::chrono::milliseconds kLongestPause(512);
    flat_binder_object self{};
    self.flags = givesSecurityContexts() ? uint32_t{FLAT_BINDER_FLAG_TXN_SECURITY_CTX} : 0;
    int status = control(BINDER_SET_CONTEXT_MGR_EXT, &self);
    for (std::chrono::milliseconds pause(1); status == -EBUSY && pause <= kLongestPause;
         pause *= 2) {
        std::this_thread::sleep_for(pause);
        status = control(BINDER_SET_CONTEXT_MGR_EXT, &self);
    }
    return status;
}

int KernelDriver::setMaxThreads(uint32_t count) {
    return control(BINDER_SET_MAX_THREADS, &count);
}

int KernelDriver::enableOnewaySpamDetection(bool enable) {
    uint32_t value = enable ? 1 : 0;
    const int status = control(BINDER_ENABLE_ONEWAY_SPAM_DETECTION, &value);
    return status == -EINVAL ? -ENOTTY : status;
}

void KernelDriver::exitThread() {
    // The kernel cannot refuse it; without a device there is no thread to leave.
    (void)control(BINDER_THREAD_EXIT, nullptr);
}

std::string KernelDriver::describe() const {
    return mPath;
}

int KernelDriver::control(unsigned long request, void* argument) const {
    if (!mDevice.ok() || ownPid() != mPid) return -ECONNREFUSED;
    return ioctl(mDevice.get(), request, argument) == 0 ? 0 : -errno;
}

}  // namespace binderhost

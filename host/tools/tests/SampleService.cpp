// SPDX-License-Identifier: Apache-2.0
//
// Sample service: a process that tools are tried on.
//
//      sample_service NAME...      tells descriptor 3 when it serves; ends when it is killed
//
// Its dump prints the arguments it was given, one a line, unless the first says otherwise:
//      big N     N mebibytes of "x"
//      die       "begun", then the process ends
//      refuse    PERMISSION_DENIED
// Call 1 answers with the contents of the request, call 2 writes "written" to a descriptor.
#include <android-base/file.h>
#include <android-base/parseint.h>
#include <android-base/unique_fd.h>
#include <binder/Binder.h>
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>
#include <utils/String8.h>

using android::BBinder;
using android::Parcel;
using android::sp;
using android::status_t;
using android::String16;
using android::String8;
using android::base::WriteStringToFd;

namespace {

constexpr int kReadyFd = 3;
constexpr size_t kMebibyte = 1024 * 1024;

class SampleService : public BBinder {
public:
    const String16& getInterfaceDescriptor() const override { return mDescriptor; }

    status_t dump(int fd, const android::Vector<String16>& args) override {
        const std::string first = args.isEmpty() ? "" : String8(args[0]).string();
        if (first == "refuse") return android::PERMISSION_DENIED;
        if (first == "big") return dumpMuch(fd, args);
        if (first == "die") {
            static_cast<void>(WriteStringToFd("begun\n", fd));
            _exit(1);
        }
        for (const String16& argument : args) {
            if (!WriteStringToFd(std::string(String8(argument)) + "\n", fd)) return -errno;
        }
        return android::OK;
    }

protected:
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override {
        if (code > LAST_CALL_TRANSACTION) return BBinder::onTransact(code, data, reply, flags);
        if (!data.enforceInterface(mDescriptor)) return android::PERMISSION_DENIED;
        if (code == 1) return reply->appendFrom(&data, data.dataPosition(), data.dataAvail());
        if (code != 2) return android::UNKNOWN_TRANSACTION;
        android::base::unique_fd file;
        const status_t status = data.readUniqueFileDescriptor(&file);
        if (status != android::OK) return status;
        return WriteStringToFd("written", file) ? android::OK : -errno;
    }

private:
    static status_t dumpMuch(int fd, const android::Vector<String16>& args) {
        size_t count = 0;
        if (args.size() != 2 || !android::base::ParseUint(String8(args[1]).string(), &count)) {
            return android::BAD_VALUE;
        }
        const std::string mebibyte(kMebibyte, 'x');
        for (size_t i = 0; i < count; i++) {
            if (!WriteStringToFd(mebibyte, fd)) return -errno;
        }
        return android::OK;
    }

    const String16 mDescriptor{"test.ISample"};
};

}  // namespace

int main(int argc, char** argv) {
    signal(SIGPIPE, SIG_IGN);
    android::ProcessState::self()->startThreadPool();
    for (int i = 1; i < argc; i++) {
        const status_t status = android::defaultServiceManager()->addService(
                String16(argv[i]), sp<SampleService>(new SampleService));
        if (status != android::OK) {
            fprintf(stderr, "sample_service: %s: status %d\n", argv[i], status);
            return EXIT_FAILURE;
        }
    }
    if (write(kReadyFd, "r", 1) != 1) return EXIT_FAILURE;
    close(kReadyFd);
    android::IPCThreadState::self()->joinThreadPool();
    return EXIT_FAILURE;
}

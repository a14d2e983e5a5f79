// SPDX-License-Identifier: Apache-2.0
//
// Service tool.
#include "ServiceTool.h"

#include <binder/Parcel.h>
#include <utils/String8.h>

#include <optional>

#include "ParcelTable.h"
#include "common/CallWithDeadline.h"
#include "common/StatusText.h"

namespace tools {

using android::IBinder;
using android::IServiceManager;
using android::Parcel;
using android::sp;
using android::status_t;
using android::String16;
using android::String8;

namespace {

constexpr int kOk = 0;
constexpr int kFailure = 1;
constexpr int kUsageError = 2;

constexpr std::chrono::seconds kListPatience{2};

constexpr const char* kUsage =
        "usage: service list\n"
        "       service check NAME\n"
        "       service call NAME CODE [VALUE]...\n"
        "\n"
        "Lists the services that run, says whether one does, or calls one and prints its reply.\n"
        "CODE is the number of the method, from 1. A VALUE is one of:\n"
        "\n"
        "  i32 N    an integer of 32 bits         i64 N  of 64 bits\n"
        "  f N      a number of single precision  d N    of double precision\n"
        "  s16 STR  a string                      null   a binder that is null\n"
        "  fd PATH  a descriptor of that file\n"
        "\n"
        "The environment variable BINDER_DRIVER names the binder device or the hub's socket.\n"
        "Exit status: 0; 1 when a service is missing or fails; 2 for a wrong command line.\n";

String16 wide(const std::string& text) {
    return String16(text.data(), text.size());
}

}  // namespace

ServiceTool::ServiceTool(sp<IServiceManager> serviceManager, std::chrono::milliseconds patience,
                         std::ostream& out, std::ostream& err)
      : mServiceManager(std::move(serviceManager)), mPatience(patience), mOut(out), mErr(err) {}

int ServiceTool::list() {
    const android::Vector<String16> names = mServiceManager->listServices();
    mOut << "Found " << names.size() << " services:\n";
    int exitStatus = kOk;
    for (size_t i = 0; i < names.size(); i++) {
        const sp<IBinder> service = mServiceManager->checkService(names[i]);
        const auto ask = [service] {
            return service == nullptr ? String16() : service->getInterfaceDescriptor();
        };
        const std::optional<String16> descriptor = callWithDeadline<String16>(ask, mPatience);
        mOut << i << '\t' << String8(names[i]) << ": [" << String8(descriptor.value_or(String16()))
             << "]\n";
        if (descriptor) continue;
        mErr << "service: " << String8(names[i]) << " does not answer\n";
        exitStatus = kFailure;
    }
    return exitStatus;
}

int ServiceTool::check(const std::string& name) {
    const bool found = mServiceManager->checkService(wide(name)) != nullptr;
    mOut << "Service " << name << (found ? ": found\n" : ": not found\n");
    return kOk;
}

int ServiceTool::call(const std::string& name, const CallArguments& arguments) {
    const sp<IBinder> service = find(name);
    if (service == nullptr) return kFailure;
    Parcel data;
    Parcel reply;
    std::string error;
    status_t status = data.writeInterfaceToken(service->getInterfaceDescriptor());
    if (status == android::OK) {
        if (!writeCallArguments(arguments, &data, &error)) {
            mErr << "service: " << error << '\n';
            return kFailure;
        }
        status = service->transact(arguments.code, data, &reply);
    }
    if (status != android::OK) {
        mErr << "service: call " << arguments.code << " of " << name
             << " failed: " << statusText(status) << '\n';
        return kFailure;
    }
    mOut << "Result: " << parcelTable(reply.data(), reply.dataSize()) << '\n';
    return kOk;
}

sp<IBinder> ServiceTool::find(const std::string& name) {
    sp<IBinder> service = mServiceManager->checkService(wide(name));
    if (service == nullptr) mErr << "service: Service " << name << " does not exist\n";
    return service;
}

int serviceMain(const std::vector<std::string>& arguments, const Connect& connect,
                std::ostream& out, std::ostream& err) {
    const auto usageError = [&err](const std::string& message) {
        err << "service: " << message << '\n' << kUsage;
        return kUsageError;
    };
    if (arguments.empty()) return usageError("what to do?");
    const std::string& command = arguments[0];
    if (command == "--help" || command == "-h") {
        out << kUsage;
        return kOk;
    }
    const bool callsOne = command == "call";
    if (command != "list" && command != "check" && !callsOne) {
        return usageError("unknown command '" + command + "'");
    }
    if (command != "list" && arguments.size() < 2) return usageError(command + " wants a name");
    const size_t wordCount = command == "list" ? 1 : 2;
    if (!callsOne && arguments.size() > wordCount) {
        return usageError("unknown argument '" + arguments[wordCount] + "'");
    }
    std::optional<CallArguments> callArguments;
    if (callsOne) {
        std::string error;
        callArguments = parseCallArguments({arguments.begin() + 2, arguments.end()}, &error);
        if (!callArguments) return usageError(error);
    }

    const sp<IServiceManager> serviceManager = connect(err);
    if (serviceManager == nullptr) return kFailure;
    ServiceTool tool(serviceManager, kListPatience, out, err);
    if (command == "list") return tool.list();
    return callsOne ? tool.call(arguments[1], *callArguments) : tool.check(arguments[1]);
}

}  // namespace tools

// SPDX-License-Identifier: Apache-2.0
//
// Dumpsys.
#include "Dumpsys.h"

#include <android-base/stringprintf.h>
#include <errno.h>
#include <string.h>
#include <time.h>
#include <utils/String8.h>

#include "common/StatusText.h"

namespace tools {

using android::IBinder;
using android::IServiceManager;
using android::sp;
using android::status_t;
using android::String16;
using android::String8;
using android::base::StringPrintf;
using Action = DumpsysOptions::Action;
using End = PipedDumpResult::End;

namespace {

constexpr int kOk = 0;
constexpr int kFailure = 1;
constexpr int kUsageError = 2;

std::string narrow(const String16& text) {
    return String8(text).string();
}

std::string localTime() {
    const time_t now = time(nullptr);
    tm local{};
    char text[sizeof("2024-01-01 00:00:00")] = "";
    if (localtime_r(&now, &local) != nullptr) {
        strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S", &local);
    }
    return text;
}

PipedDumpResult dump(const sp<IBinder>& service, const DumpsysOptions& options, Output& output) {
    if (!options.pid) {
        const auto say = [service, arguments = options.arguments](int fd) {
            return service->dump(fd, arguments);
        };
        return runPipedDump(say, options.timeout, output);
    }
    const auto sayPid = [service](int fd) -> status_t {
        pid_t pid = 0;
        const status_t status = service->getDebugPid(&pid);
        if (status != android::OK) return status;
        return dprintf(fd, "%d\n", pid) < 0 ? -errno : android::OK;
    };
    return runPipedDump(sayPid, options.timeout, output);
}

}  // namespace

Dumpsys::Dumpsys(sp<IServiceManager> serviceManager, Output& output, std::ostream& err)
      : mServiceManager(std::move(serviceManager)), mOutput(output), mErr(err) {}

int Dumpsys::run(const DumpsysOptions& options) {
    bool printed = false;
    switch (options.action) {
        case Action::Help:
            printed = mOutput.write(kDumpsysUsage);
            break;
        case Action::List:
            printed = printNames(listServices(), {});
            break;
        case Action::One:
            printed = printOne(options);
            break;
        case Action::All:
            printed = printAll(options);
            break;
    }
    return printed ? kOk : kFailure;
}

bool Dumpsys::printNames(const std::vector<String16>& names, const std::set<std::string>& skipped) {
    std::string text = "Currently running services:\n";
    for (const String16& name : names) {
        text += "  " + narrow(name);
        text += skipped.contains(narrow(name)) ? " (skipped)\n" : "\n";
    }
    return mOutput.write(text);
}

bool Dumpsys::printOne(const DumpsysOptions& options) {
    const sp<IBinder> service = find(options.service);
    return service != nullptr && report(options.service, dump(service, options, mOutput), options);
}

bool Dumpsys::printAll(const DumpsysOptions& options) {
    const std::vector<String16> names = listServices();
    bool printed = printNames(names, options.skipped);
    for (const String16& wideName : names) {
        if (mOutput.error() != 0) return false;
        const std::string name = narrow(wideName);
        if (options.skipped.contains(name)) continue;
        const sp<IBinder> service = find(name);
        printed &= service != nullptr && printUnderHeading(name, service, options);
    }
    return printed;
}

bool Dumpsys::printUnderHeading(const std::string& name, const sp<IBinder>& service,
                                const DumpsysOptions& options) {
    const std::string rule(79, '-');
    if (!mOutput.write(rule + "\nDUMP OF SERVICE " + name + ":\n")) return false;
    const PipedDumpResult result = dump(service, options, mOutput);
    const bool printed = report(name, result, options);
    const double seconds = std::chrono::duration<double>(result.elapsed).count();
    return mOutput.write(
                   StringPrintf("--------- %.3fs was the duration of dumpsys %s, ending at: %s\n",
                                seconds, name.c_str(), localTime().c_str())) &&
           printed;
}

bool Dumpsys::report(const std::string& name, const PipedDumpResult& result,
                     const DumpsysOptions& options) {
    switch (result.end) {
        case End::Complete:
            if (result.status == android::OK) return true;
            mErr << "Error with service '" << name << "' while "
                 << (options.pid ? "getting its pid" : "dumping") << ": "
                 << statusText(result.status) << '\n';
            return false;
        case End::TimedOut:
            // In the dump's own place, so that a file with many of them shows which is cut short.
            static_cast<void>(mOutput.write(
                    StringPrintf("\n*** SERVICE '%s' DUMP TIMEOUT (%lldms) EXPIRED ***\n\n",
                                 name.c_str(), static_cast<long long>(options.timeout.count()))));
            return false;
        case End::OutputFailed:
            return false;
        case End::NotStarted:
            mErr << "dumpsys: cannot ask service '" << name << "': " << statusText(result.status)
                 << '\n';
            return false;
    }
    return false;
}

sp<IBinder> Dumpsys::find(const std::string& name) {
    sp<IBinder> service = mServiceManager->checkService(String16(name.data(), name.size()));
    if (service == nullptr) mErr << "Can't find service: " << name << '\n';
    return service;
}

std::vector<String16> Dumpsys::listServices() {
    const android::Vector<String16> names = mServiceManager->listServices();
    return {names.begin(), names.end()};
}

int dumpsysMain(const std::vector<std::string>& arguments, const Connect& connect, int outFd,
                std::ostream& err) {
    std::string error;
    const std::optional<DumpsysOptions> options = parseDumpsysOptions(arguments, &error);
    if (!options) {
        err << "dumpsys: " << error << '\n' << kDumpsysUsage;
        return kUsageError;
    }
    sp<IServiceManager> serviceManager;
    if (options->action != Action::Help) {
        serviceManager = connect(err);
        if (serviceManager == nullptr) return kFailure;
    }
    Output output(outFd);
    const int status = Dumpsys(serviceManager, output, err).run(*options);
    // A reader that has seen enough, as "head" has, is no news to anybody.
    if (output.error() != 0 && output.error() != EPIPE) {
        err << "dumpsys: cannot write the output: " << strerror(output.error()) << '\n';
    }
    return status;
}

}  // namespace tools

// SPDX-License-Identifier: Apache-2.0
//
// Focus service: the answer to dumpsys.
#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <json/value.h>
#include <sys/mman.h>
#include <unistd.h>
#include <utils/Errors.h>

#include <cerrno>
#include <cstdio>
#include <string>

#include "Utf8.h"
#include "VrFocusService.h"
#include "VrFocusServiceAccess.h"

namespace NQS::OS {

using android::String16;
using android::Vector;
using android::base::unique_fd;

namespace {

void printDumpHelp(int fd) {
    dprintf(fd, "Usage: \n");
    dprintf(fd, "  dumpsys vrfocus [-a]\tPrints human readable state\n");
    dprintf(fd, "  dumpsys vrfocus json\tPrints state in json format\n");
}

/** Failures are dropped: a reader that has gone is nobody's concern here. */
void handOver(const unique_fd& report, int fd) {
    std::string text;
    lseek(report.get(), /*offset=*/0, SEEK_SET);
    if (android::base::ReadFdToString(report, &text)) android::base::WriteStringToFd(text, fd);
}

}  // namespace

android::status_t VrFocusService::dump(int fd, const Vector<String16>& args) {
    if (!checkCallingPermission(CallerPermission::Dump)) return android::PERMISSION_DENIED;
    // Written to memory first. The report is made with this lock and the policy's held, so a
    // caller that leaves its pipe full would stop every notification and every app's state.
    const unique_fd report(memfd_create("vrfocus-dump", MFD_CLOEXEC));
    if (!report.ok()) return -errno;
    writeReport(report.get(), args);
    handOver(report, fd);
    return android::OK;
}

void VrFocusService::writeReport(int fd, const Vector<String16>& args) {
    if (args.size() > 1) {
        dprintf(fd, "Error: unexpected number of arguments.\n");
        printDumpHelp(fd);
        return;
    }
    const std::string argument = args.empty() ? "-a" : toUtf8(args[0]);
    if (argument != "json" && argument != "-a") {
        dprintf(fd, "Error: unexpected argument: %s\n", argument.c_str());
        printDumpHelp(fd);
        return;
    }
    std::lock_guard lock(mListeners.mutex);
    if (argument == "json") {
        dumpJsonLocked(fd);
    } else {
        dumpTextLocked(fd, args);
    }
}

void VrFocusService::dumpTextLocked(int fd, const Vector<String16>& args) {
    dprintf(fd, "=== VrFocusService ===\n");
    dprintf(fd, "\n=== Clients ===\n");
    for (const auto& [type, listeners] : mListeners.focus) {
        dprintf(fd, " Type: %d Num: %d PIDs:\n", static_cast<int>(type),
                static_cast<int>(listeners.size()));
        for (const auto& [pid, listener] : listeners)
            dprintf(fd, "  %d\n", pid);
    }
    dprintf(fd, "\n=== Current State ===\n");
    mPolicy->dump(fd, args);
}

void VrFocusService::dumpJsonLocked(int fd) {
    Json::Value json(Json::objectValue);
    for (const auto& [type, listeners] : mListeners.focus) {
        Json::Value entry(Json::objectValue);
        entry["type"] = static_cast<int>(type);
        entry["size"] = static_cast<int>(listeners.size());
        entry["listeners"] = Json::Value(Json::arrayValue);
        for (const auto& [pid, listener] : listeners)
            entry["listeners"].append(pid);
        json["types"].append(entry);
    }
    json["focusPolicy"] = mPolicy->dumpJson();
    dprintf(fd, "%s\n", json.toStyledString().c_str());
}

}  // namespace NQS::OS

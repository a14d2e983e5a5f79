// SPDX-License-Identifier: Apache-2.0
// The control side of a simulated app.
#include "app/AppControl.h"

#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <binder/IServiceManager.h>
#include <sys/mman.h>
#include <unistd.h>
#include <utils/String16.h>
#include <utils/String8.h>
#include <utils/Vector.h>

#include <vector>

#include "world/Notice.h"

namespace sim {

using android::String16;
using android::String8;
using android::binder::Status;
using velmar::internal::ClientStatus;
using velmar::internal::ImmersiveApp;
using velmar::internal::IVrFocusService;

namespace {

const char* const kServiceName = "vrfocus";

std::string utf8(const String16& text) {
    return String8(text).c_str();
}

Json::Value errorOf(const std::string& text) {
    Json::Value value(Json::objectValue);
    value["error"] = text;
    return value;
}

Status askFocus(IVrFocusService& service, const Json::Value& request, Json::Value* out,
                std::string* error) {
    const auto type = intMember(request, "type");
    std::vector<int32_t> pids;
    for (const Json::Value& pid : request["pids"]) {
        if (pid.isInt()) pids.push_back(pid.asInt());
    }
    if (!type || !request["pids"].isArray() || pids.size() != request["pids"].size()) {
        *error = "getClientFocusStatus wants type and pids";
        return Status::ok();
    }
    std::vector<ClientStatus> statuses;
    Status status = service.getClientFocusStatus(*type, pids, &statuses);
    (*out)["statuses"] = Json::arrayValue;
    for (const ClientStatus& verdict : statuses) {
        Json::Value& row = (*out)["statuses"].append(Json::objectValue);
        row["pid"] = verdict.pid;
        row["hasFocus"] = verdict.hasFocus;
    }
    return status;
}

Status askImmersiveApp(IVrFocusService& service, Json::Value* out) {
    ImmersiveApp app;
    Status status = service.getImmersiveApp(&app);
    if (!status.isOk()) return status;
    (*out)["app"] = toJson(app);
    return status;
}

Status askForegroundApps(IVrFocusService& service, Json::Value* out) {
    std::vector<String16> names;
    Status status = service.getForegroundApps(&names);
    (*out)["names"] = Json::arrayValue;
    for (const String16& name : names)
        (*out)["names"].append(utf8(name));
    return status;
}

/** The dump goes to memory: a pipe would have to be read meanwhile. */
Status askDump(IVrFocusService& service, Json::Value* out, std::string* error) {
    const android::base::unique_fd report(memfd_create("sim-app-dump", MFD_CLOEXEC));
    android::Vector<String16> arguments;
    arguments.add(String16("json"));
    const auto status = android::IInterface::asBinder(&service)->dump(report.get(), arguments);
    if (status != android::OK) return Status::fromStatusT(status);
    std::string text;
    lseek(report.get(), /*offset=*/0, SEEK_SET);
    if (!android::base::ReadFdToString(report, &text)) *error = "the dump cannot be read";
    (*out)["dump"] = text;
    return Status::ok();
}

}  // namespace

Json::Value AppControl::answer(const Json::Value& request) {
    Json::Value answer = perform(request);
    answer["id"] = request["id"];
    return answer;
}

Json::Value AppControl::perform(const Json::Value& request) {
    const std::string op = stringMember(request, "op").value_or("");
    if (auto answer = performAlone(op, request)) return *answer;
    Json::Value answer(Json::objectValue);
    std::string error;
    find(/*wait=*/op == "connect");
    Status status = mService == nullptr ? Status::fromStatusT(android::NAME_NOT_FOUND)
                                        : ask(op, request, &answer, &error);
    if (!error.empty()) return errorOf(error);
    answer["exception"] = status.exceptionCode();
    if (status.transactionError() != android::OK) {
        answer["transport"] = status.transactionError();
        if (status.transactionError() == android::DEAD_OBJECT) mService = nullptr;
    }
    return answer;
}

std::optional<Json::Value> AppControl::performAlone(const std::string& op,
                                                    const Json::Value& request) {
    const std::string name = stringMember(request, "name").value_or("");
    if (op == "heard") return mListeners.log().take();
    if (op == "rename") {
        if (!mName.set(name)) return errorOf("there is no room for that name");
    } else if (op == "become") {
        if (name.empty()) return errorOf("become wants a name");
        mSuccessor = {name, {}};
        if (const auto uid = intMember(request, "uid")) mSuccessor->uid = *uid;
        mIsToEnd = true;
    } else if (op == "stop") {
        mIsToEnd = true;
    } else {
        return {};
    }
    return Json::objectValue;
}

void AppControl::find(bool wait) {
    const String16 name(kServiceName);
    if (!wait) {
        if (mService != nullptr) return;
        const auto manager = android::defaultServiceManager();
        mService = android::interface_cast<IVrFocusService>(manager->checkService(name));
        return;
    }
    // One that has just died may be handed out until the service manager has been told.
    do {
        mService = android::waitForService<IVrFocusService>(name);
    } while (mService != nullptr &&
             android::IInterface::asBinder(mService)->pingBinder() != android::OK);
}

Status AppControl::ask(const std::string& op, const Json::Value& request, Json::Value* out,
                       std::string* error) {
    if (op == "connect") return Status::ok();
    if (op == "getClientFocusStatus") return askFocus(*mService, request, out, error);
    if (op == "getImmersiveApp") return askImmersiveApp(*mService, out);
    if (op == "getForegroundApps") return askForegroundApps(*mService, out);
    if (op == "dump") return askDump(*mService, out, error);
    if (op == "getTopActivity") {
        String16 package;
        Status status = mService->getTopActivity(&package);
        (*out)["package"] = utf8(package);
        return status;
    }
    if (op == "setAppState") {
        const auto pid = intMember(request, "pid");
        const auto state = intMember(request, "state");
        if (pid && state) return mService->setAppState(*pid, *state);
    } else if (op == "grant" || op == "revoke") {
        const auto display = intMember(request, "display");
        if (display && op == "grant") return mService->grantTrackingServiceAccess(*display);
        if (display) return mService->revokeTrackingServiceAccess(*display);
    } else if (op.find("listen") != std::string::npos) {
        return listen(op, request, out, error);
    }
    *error = "no operation '" + op + "' with these arguments";
    return Status::ok();
}

Status AppControl::listen(const std::string& op, const Json::Value& request, Json::Value* out,
                          std::string* error) {
    bool result = false;
    Status status;
    const auto type = intMember(request, "type");
    if (op == "listenTop") {
        status = mService->registerVrTopActivityListener(mListeners.topActivity(), &result);
    } else if (op == "unlistenTop") {
        status = mService->unregisterVrTopActivityListener(&result);
    } else if (op == "listenFocus" && type) {
        status = mService->registerVrFocusListener(mListeners.focus(*type), *type, &result);
    } else if (op == "unlistenFocus" && type) {
        status = mService->unregisterVrFocusListener(*type, &result);
    } else {
        *error = "no operation '" + op + "' with these arguments";
    }
    (*out)["result"] = result;
    return status;
}

}  // namespace sim

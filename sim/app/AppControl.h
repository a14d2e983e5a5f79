// SPDX-License-Identifier: Apache-2.0
//
// The control side of a simulated app: what the controller has it ask of the focus service.
//
// Operations, each a line {"id": N, "op": ...} that is answered by a line with the same id:
//
//      connect               -                          waits until the focus service is published
//      setAppState           {"pid": P, "state": S}     -
//      getClientFocusStatus  {"type": T, "pids": [..]}  {"statuses": [{"pid", "hasFocus"}]}
//      getImmersiveApp       -                          {"app": {"package", "pid", "uid", "top"}}
//      getTopActivity        -                          {"package": text}
//      getForegroundApps     -                          {"names": [..]}
//      grant, revoke         {"display": D}             -
//      listenFocus           {"type": T}                {"result": bool}    registers a listener
//      unlistenFocus         {"type": T}                {"result": bool}
//      listenTop, unlistenTop  -                        {"result": bool}
//      heard                 -                          what the listeners heard: see AppListeners
//
// Every answer holds "exception", the code of the binder status (0: fine), and for -129 also
// "transport", the transport's error: -2 while no focus service is published. A line that asks for
// something else is answered by {"error": text}.
#pragma once

#include <binder/Status.h>
#include <json/value.h>
#include <velmar/internal/IVrFocusService.h>

#include <string>

#include "app/AppListeners.h"

namespace sim {

class AppControl {
public:
    /** The answer to one line; the id is carried over. */
    [[nodiscard]] Json::Value answer(const Json::Value& request);

private:
    [[nodiscard]] Json::Value perform(const Json::Value& request);
    void find(bool wait);
    [[nodiscard]] android::binder::Status ask(const std::string& op, const Json::Value& request,
                                              Json::Value* out, std::string* error);

    [[nodiscard]] android::binder::Status listen(const std::string& op, const Json::Value& request,
                                                 Json::Value* out, std::string* error);

    AppListeners mListeners;
    android::sp<velmar::internal::IVrFocusService> mService;  // null: to be looked up
};

}  // namespace sim

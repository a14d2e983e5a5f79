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
//      dump                  -                          {"dump": text, of JSON}
//      listenFocus           {"type": T}                {"result": bool}    registers a listener
//      unlistenFocus         {"type": T}                {"result": bool}
//      listenTop, unlistenTop  -                        {"result": bool}
//      rename                {"name": N}                -                   of its command line
//      stop                  -                          - and then the process ends
//      become                {"name": N, "uid": U}      - and then it begins anew, as Rebirth.h
//                                                       says; uid absent: the same
//      heard                 -                          what the listeners heard: see AppListeners
//
// Every answer holds "exception", the code of the binder status (0: fine), and for -129 also
// "transport", the transport's error: -2 while no focus service is published. A line that asks for
// something else is answered by {"error": text}.
#pragma once

#include <binder/Status.h>
#include <json/value.h>
#include <velmar/internal/IVrFocusService.h>

#include <optional>
#include <string>

#include "app/AppListeners.h"
#include "app/OwnName.h"

namespace sim {

class AppControl {
public:
    /** The name outlives this object. */
    explicit AppControl(OwnName& name) : mName(name) {}

    /** The answer to one line; the id is carried over. */
    [[nodiscard]] Json::Value answer(const Json::Value& request);

    /** What is to come in the place of this process. */
    struct Successor {
        std::string name;
        std::optional<uid_t> uid;
    };

    /** Whether the process is to end now, or to begin anew. */
    [[nodiscard]] bool isToEnd() const { return mIsToEnd; }
    [[nodiscard]] const std::optional<Successor>& successor() const { return mSuccessor; }

private:
    /** What only this process is asked; absent for other operations. */
    [[nodiscard]] std::optional<Json::Value> performAlone(const std::string& op,
                                                          const Json::Value& request);
    [[nodiscard]] Json::Value perform(const Json::Value& request);
    void find(bool wait);
    [[nodiscard]] android::binder::Status ask(const std::string& op, const Json::Value& request,
                                              Json::Value* out, std::string* error);

    [[nodiscard]] android::binder::Status listen(const std::string& op, const Json::Value& request,
                                                 Json::Value* out, std::string* error);

    OwnName& mName;
    AppListeners mListeners;
    bool mIsToEnd = false;
    std::optional<Successor> mSuccessor;
    android::sp<velmar::internal::IVrFocusService> mService;  // null: to be looked up
};

}  // namespace sim

// SPDX-License-Identifier: Apache-2.0
//
// The listeners that a simulated app registers with the focus service: one object per focus type
// and one for the top activity, so that the death of the app takes each of them back by itself.
//
// What they hear goes to one log, in an entry each:
//
//      {"focus": TYPE}
//      {"top": PACKAGE, "app": {"package", "pid", "uid", "top"}}    ids 0: no immersive app
#pragma once

#include <velmar/internal/IVrFocusListener.h>
#include <velmar/internal/IVrTopActivityListener.h>

#include <map>
#include <memory>

#include "process/HeardLog.h"

namespace sim {

class AppListeners {
public:
    /** The listener for a focus type: the same object at every call. Any type is accepted. */
    [[nodiscard]] android::sp<velmar::internal::IVrFocusListener> focus(int type);
    [[nodiscard]] android::sp<velmar::internal::IVrTopActivityListener> topActivity();

    [[nodiscard]] HeardLog& log() { return *mLog; }

private:
    // Shared with the listeners, which others may keep longer than this object.
    const std::shared_ptr<HeardLog> mLog = std::make_shared<HeardLog>();
    std::map<int, android::sp<velmar::internal::IVrFocusListener>> mFocus;
    android::sp<velmar::internal::IVrTopActivityListener> mTopActivity;
};

/** An immersive app as the app's answers and logs show it. */
[[nodiscard]] Json::Value toJson(const velmar::internal::ImmersiveApp& app);

}  // namespace sim

// SPDX-License-Identifier: Apache-2.0
//
// Temp sink: a sink of one test's own, named in the environment, and what stands in it.
#pragma once

#include <android-base/file.h>
#include <dorn/TelemetryManager.h>
#include <stdlib.h>

#include <string>
#include <string_view>
#include <vector>

#include "../EventStream.h"

namespace hosttelemetry::test {

class TempSink {
public:
    TempSink() { setenv("HOST_TELEMETRY", path().c_str(), /*overwrite=*/1); }
    ~TempSink() { unsetenv("HOST_TELEMETRY"); }
    TempSink(const TempSink&) = delete;
    TempSink& operator=(const TempSink&) = delete;

    [[nodiscard]] std::string folder() const { return mFolder.path; }
    [[nodiscard]] std::string path() const { return folder() + "/telemetry"; }

    struct Contents {
        std::vector<Event> events;
        size_t damaged = 0;
    };

    /** An unfinished last line counts as damaged; a missing file is empty. */
    [[nodiscard]] Contents read() const {
        Contents contents;
        EventStream stream([&](const Event& event) { contents.events.push_back(event); });
        std::string text;
        android::base::ReadFileToString(path(), &text);
        stream.feed(text);
        stream.startAnew();
        contents.damaged = stream.damaged();
        return contents;
    }

    /** The events' bytes alone, in order. */
    [[nodiscard]] std::vector<std::string> bytes() const {
        std::vector<std::string> all;
        for (const Event& event : read().events)
            all.push_back(event.bytes);
        return all;
    }

private:
    TemporaryDir mFolder;
};

[[nodiscard]] inline int32_t report(int32_t id, std::string_view bytes) {
    return TelemetryManager_reportPlatformEvent(id, reinterpret_cast<const uint8_t*>(bytes.data()),
                                                bytes.size());
}

}  // namespace hosttelemetry::test

// SPDX-License-Identifier: Apache-2.0
//
// What happens on a headset while nobody tells it what to do.
#pragma once

#include <functional>
#include <vector>

namespace sim::scenario {

struct News {
    /** One of these is readable when there is some. They may differ from time to time. */
    std::function<std::vector<int>()> fds;
    /** Has it told. SessionStopped as for commands; what cannot be done is told, too. */
    std::function<void()> tell;
};

}  // namespace sim::scenario

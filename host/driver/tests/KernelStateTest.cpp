// SPDX-License-Identifier: Apache-2.0
//
// What the module's debug file says, and what is read from it.
#include "KernelState.h"

#include <gtest/gtest.h>

namespace binderhost::tests {
namespace {

TEST(KernelStateTest, everyLineIsCountedByItsFirstWord) {
    const char* text =
            "binder state:\n"
            "proc 102\ncontext binder\n"
            "  thread 102: l 12 need_return 0 tr 0\n  thread 104: l 00 need_return 0 tr 0\n"
            "  node 18: u00005571c94a2360 c00005571c94a2278 hs 1 hw 1 ls 0 lw 0 is 1 iw 1 tr 1 "
            "proc 100\n"
            "  ref 4: desc 0 node 1 s 1 w 0 d 0000000000000000\n"
            "  buffer 22: 00000000bb7cae2a size 32:0:0 delivered\n"
            "proc 100\ncontext binder\n"
            "  ref 19: desc 1 node 18 s 1 w 0 d 00000000aea8a8ee\n";
    using Figures = std::map<std::string, uint64_t>;
    EXPECT_EQ(parseKernelState(text), (Figures{{"processes", 2},
                                               {"threads", 2},
                                               {"nodes", 1},
                                               {"handles", 2},
                                               {"buffers", 1},
                                               {"death_links", 1}}));
    EXPECT_EQ(parseKernelState("binder state:\n").at("processes"), 0u);
}

}  // namespace
}  // namespace binderhost::tests

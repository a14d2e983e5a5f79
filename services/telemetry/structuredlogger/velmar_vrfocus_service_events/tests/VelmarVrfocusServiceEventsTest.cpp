// SPDX-License-Identifier: Apache-2.0
//
// Focus events: the message's bytes, and the builder.
#include <gtest/gtest.h>
#include <velmar_vrfocus_service_events/VelmarVrfocusServiceEventsBuilder.h>

#include <functional>
#include <type_traits>
#include <utility>

#include "WireBytes.h"

namespace com::velmar::os::statsdstructuredlogger {

using Event = events::VelmarVrfocusServiceEvents;
using Builder = VelmarVrfocusServiceEventsBuilder;

namespace {

std::string serialised(const Event& event) {
    return event.SerializeAsString();
}

/** A chain that does not begin at an rvalue must not compile. */
template <typename B>
constexpr bool kHasSetters = requires(B builder) {
    static_cast<B>(builder).setFocusEvent(std::string());
    static_cast<B>(builder).setCurrentTopActivity(std::string());
    static_cast<B>(builder).setPackageName(std::string());
    static_cast<B>(builder).setIsTopActivity(true);
};
template <typename B>
constexpr bool kHasAnySetter = requires(B builder) {
    static_cast<B>(builder).setFocusEvent(std::string());
}
|| requires(B builder) {
    static_cast<B>(builder).setCurrentTopActivity(std::string());
}
|| requires(B builder) {
    static_cast<B>(builder).setPackageName(std::string());
}
|| requires(B builder) {
    static_cast<B>(builder).setIsTopActivity(true);
};

}  // namespace

TEST(FocusEvent, EachFieldIsWrittenExactlyWhenItWasSet) {
    struct Row {
        const char* name;
        std::function<void(Event&)> set;
        const char* bytes;
        const char* decoded;
    };
    static_assert(std::is_base_of_v<google::protobuf::MessageLite, Event>);
    const Row rows[] = {
            {"nothing", [](Event&) {}, "", ""},
            {"event", [](Event& e) { e.set_focus_event("ev"); }, "0a 02 6576", "1: \"ev\"\n"},
            {"empty event", [](Event& e) { e.set_focus_event(""); }, "0a 00", "1: \"\"\n"},
            {"package", [](Event& e) { e.set_package_name("a.b"); }, "12 03 612e62",
             "2: \"a.b\"\n"},
            {"pid", [](Event& e) { e.set_pid(4321); }, "18 e121", "3: 4321\n"},
            {"pid 0", [](Event& e) { e.set_pid(0); }, "18 00", "3: 0\n"},
            {"negative pid", [](Event& e) { e.set_pid(-1); }, "18 ffffffffffffffffff01",
             "3: 18446744073709551615\n"},
            {"least pid", [](Event& e) { e.set_pid(int32_t{-2147483647 - 1}); },
             "18 80808080f8ffffffff01", "3: 18446744071562067968\n"},
            {"uid", [](Event& e) { e.set_uid(10042); }, "20 ba4e", "4: 10042\n"},
            {"negative uid", [](Event& e) { e.set_uid(-2); }, "20 feffffffffffffffff01",
             "4: 18446744073709551614\n"},
            {"on top", [](Event& e) { e.set_is_top_activity(true); }, "28 01", "5: 1\n"},
            {"not on top", [](Event& e) { e.set_is_top_activity(false); }, "28 00", "5: 0\n"},
            {"empty top activity", [](Event& e) { e.set_current_top_activity(""); }, "32 00",
             "6: \"\"\n"},
            {"not UTF-8", [](Event& e) { e.set_current_top_activity("\xff"); }, "32 01 ff",
             "6: \"\\377\"\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Event event;
        row.set(event);
        EXPECT_EQ(hexOf(serialised(event)), hexOf(bytesOf(row.bytes)));
        EXPECT_EQ(event.ByteSizeLong(), bytesOf(row.bytes).size());
        EXPECT_EQ(decodeRaw(serialised(event)), row.decoded);
    }
}

TEST(FocusEventBuilder, SettersNeedAnRvalueAndChain) {
    static_assert(kHasSetters<Builder&&>);
    static_assert(!kHasAnySetter<Builder&>);
    static_assert(!kHasAnySetter<const Builder&>);
    static_assert(!std::is_copy_constructible_v<Builder>);
    static_assert(
            std::is_same_v<decltype(std::declval<Builder>().setIsTopActivity(true)), Builder&&>);

    const auto event = Builder()
                               .setCurrentTopActivity("t")
                               .setIsTopActivity(false)
                               .setPackageName("p")
                               .setFocusEvent("e")
                               .release();
    EXPECT_EQ(hexOf(serialised(*event)), hexOf(bytesOf("0a0165 120170 2800 320174")));
}

}  // namespace com::velmar::os::statsdstructuredlogger

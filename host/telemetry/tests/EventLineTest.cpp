// SPDX-License-Identifier: Apache-2.0
//
// Event lines and streams of them: what is written is read, and nothing else is.
#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "../EventStream.h"

namespace hosttelemetry {

namespace {

void feedInPieces(EventStream& stream, std::string_view text, size_t size) {
    for (size_t i = 0; i < text.size(); i += size)
        stream.feed(text.substr(i, size));
}

}  // namespace

TEST(EventLine, IsReadAsItWasWritten) {
    std::string everyByte;
    for (int i = 0; i < 256; ++i)
        everyByte += static_cast<char>(i);
    const Event events[] = {
            {.timeUs = 0, .id = 0, .bytes = ""},
            {.timeUs = 1'700'000'000'042'000, .id = 120828, .bytes = everyByte},
            {.timeUs = -1, .id = -7, .bytes = "@\n"},
            {.timeUs = std::numeric_limits<int64_t>::min(),
             .id = std::numeric_limits<int32_t>::max(),
             .bytes = std::string(kMaxEventBytes, '\xff')},
    };
    for (const Event& event : events) {
        std::string line = formatEventLine(event.timeUs, event.id, event.bytes);
        EXPECT_LE(line.size(), kMaxLineBytes);
        EXPECT_EQ(line.find(kLineEnd), line.size() - 1) << "one line each";
        EXPECT_EQ(line.rfind(kLineStart), 0U);
        line.pop_back();
        EXPECT_EQ(parseEventLine(line), event);
    }
}

TEST(EventLine, HasTheFormThatItsHeaderSays) {
    EXPECT_EQ(formatEventLine(1'700'000'000'042'000, 120828, {"\n\x02hi", 4}),
              "@1700000000042000 120828 4 0a026869\n");
}

TEST(EventLine, AnythingElseIsNoEvent) {
    for (const char* line : {"",
                             "@",
                             "@1",
                             "@1 2",
                             "@1 2 ",
                             "@1 2 0",
                             "1 2 0 ",
                             "@1 2 1 ",
                             "@1 2 1 0",
                             "@1 2 1 000",
                             "@1 2 1 0g",
                             "@1 2 1 0A",
                             "@1 2 -1 ",
                             "@1 2 0 00",
                             "@ 1 2 0 ",
                             "@1  2 0 ",
                             "@1 2 0  ",
                             "@99999999999999999999 2 0 ",
                             "@1 2147483648 0 ",
                             "@1 2 18446744073709551616 ",
                             "@1 2 9223372036854775808 ",
                             "@1 2 1048577 ",
                             "@0x1 2 0 ",
                             "@1 2 1 00\r"}) {
        EXPECT_FALSE(parseEventLine(line)) << line;
    }
}

TEST(EventStream, PiecesOfAnySizeGiveTheSameEvents) {
    const std::string text =
            "@1 7 2 6162\n"
            "@2 7 0 \n"
            "rubbish\n"
            "@3 7 1 6"
            "@4 7 1 63\n"
            "\n";
    for (size_t size = 1; size <= text.size(); ++size) {
        std::vector<std::string> bytes;
        EventStream stream([&](const Event& event) { bytes.push_back(event.bytes); });
        feedInPieces(stream, text, size);
        EXPECT_EQ(bytes, (std::vector<std::string>{"ab", "", "c"})) << size;
        EXPECT_EQ(stream.damaged(), 2U) << size;
        EXPECT_FALSE(stream.isInsideLine());
    }
}

TEST(EventStream, AStumpCostsNothingOfWhatFollows) {
    const std::string whole = "@10 7 3 616263\n";
    for (size_t cut = 1; cut < whole.size(); ++cut) {
        size_t events = 0;
        EventStream stream([&](const Event& event) {
            ++events;
            EXPECT_EQ(event, (Event{.timeUs = 11, .id = 8, .bytes = "x"}));
        });
        stream.feed(whole.substr(0, cut));
        EXPECT_TRUE(stream.isInsideLine());
        stream.feed("@11 8 1 78\n");
        EXPECT_EQ(events, 1U) << cut;
        EXPECT_EQ(stream.damaged(), 1U) << cut;
    }
}

TEST(EventStream, ALineWithoutAnEndIsNotKept) {
    size_t events = 0;
    EventStream stream([&](const Event&) { ++events; });
    stream.feed("@1 7 1000 ");
    const std::string zeros(65536, '0');
    for (size_t fed = 0; fed <= 2 * kMaxLineBytes; fed += zeros.size())
        stream.feed(zeros);
    stream.feed("@1 7 0 \n");
    EXPECT_EQ(events, 1U);
    EXPECT_EQ(stream.damaged(), 1U);
}

TEST(EventStream, ANewBeginningDoesNotContinueTheLine) {
    std::vector<std::string> bytes;
    EventStream stream([&](const Event& event) { bytes.push_back(event.bytes); });
    stream.feed("@1 7 2 61");
    stream.startAnew();
    stream.feed("62\n@1 7 1 63\n");
    EXPECT_EQ(bytes, std::vector<std::string>{"c"});
    EXPECT_EQ(stream.damaged(), 2U);
}

}  // namespace hosttelemetry

// SPDX-License-Identifier: Apache-2.0
//
// Telemetry tool, as transcripts. Event 7 has a description, a SampleEvent; others have none.
#include <android-base/file.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>

#include "../../testing/ToolTranscript.h"
#include "../tool/TelemetryTool.h"
#include "TempSink.h"

namespace hosttelemetry {

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

using Arguments = std::vector<std::string>;

class TelemetryTool : public hosttesting::ToolTranscript {
protected:
    TelemetryTool() {
        setenv("TZ", "Asia/Kathmandu", /*overwrite=*/1);
        tzset();
    }
    ~TelemetryTool() override {
        unsetenv("TZ");
        tzset();
    }

    void call(const Arguments& arguments) {
        transcribe(
                [&](auto& out, auto& err) { return telemetry(arguments, mEnvironment, out, err); });
    }
    void write(const std::string& text) {
        if (!android::base::WriteStringToFile(text, mSink.path())) abort();
    }
    /** A sink of one SampleEvent, told by its bytes in hexadecimal. */
    void writeSample(const std::string& hex) {
        write("@1700000000042000 7 " + std::to_string(hex.size() / 2) + " " + hex + "\n");
    }

    const test::TempSink mSink;
    ToolEnvironment mEnvironment{.sink = mSink.path(), .schemas = SAMPLE_SCHEMAS};
};

}  // namespace

TEST_F(TelemetryTool, PrintsEachEventAsALineOfTextOrJson) {
    write("@1700000000042999 7 6 0a0268691005\n@-1 8 1 ff\n@1700000000999999 8 0 \n");
    call({});
    expectPrinted(
            "2023-11-15 03:58:20.042 7 SampleEvent text=\"hi\" number=5\n"
            "1970-01-01 05:29:59.999 8 bytes=ff\n"
            "2023-11-15 03:58:20.999 8 bytes=\n");
    call({"--json"});
    expectPrinted(
            "{\"time_us\":1700000000042999,\"id\":7,\"event\":\"SampleEvent\","
            "\"fields\":{\"text\":\"hi\",\"number\":5}}\n"
            "{\"time_us\":-1,\"id\":8,\"bytes\":\"ff\"}\n"
            "{\"time_us\":1700000000999999,\"id\":8,\"bytes\":\"\"}\n");
}

TEST_F(TelemetryTool, ShowsEveryKindOfFieldByItsName) {
    struct Row {
        const char* bytes;
        const char* shown;
    };
    const Row rows[] = {
            {"", ""},
            {"0a00", "\"text\":\"\""},
            {"10ffffffffffffffffff01", "\"number\":-1"},
            {"1801", "\"flag\":true"},
            {"1800", "\"flag\":false"},
            {"220200ff", "\"data\":\"00ff\""},
            {"2802", "\"colour\":\"BLUE\""},
            {"2809", "\"5\":9"},
            {"3209 0a0161 1204 0a0262ff",
             "\"inner\":{\"inner\":[{\"text\":\"b\\ufffd\"}],"
             "\"text\":\"a\"}"},
            {"3805 3806", "\"counts\":[5,6]"},
            {"40ffffffffffffffffff01", "\"large\":18446744073709551615"},
            {"49 000000000000e03f", "\"ratio\":0.5"},
            {"55 0000803e", "\"small_ratio\":0.25"},
            {"58ffffffff0f", "\"unsigned_number\":4294967295"},
            {"60ffffffffffffffffff01", "\"signed_number\":-1"},
            {"6a0161 6a0162", "\"texts\":[\"a\",\"b\"]"},
            {"7002 7000", "\"colours\":[\"BLUE\",\"RED\"]"},
            {"7801", "\"flags\":[true]"},
            {"9a0602ab00 8006 05", "\"96\":5,\"99\":\"ab00\""},
            {"8006 05 8006 06", "\"96\":[5,6]"},
            {"1005 0a0161", "\"text\":\"a\",\"number\":5"},
            {"0a05 e282ac 220a", "\"text\":\"\\u20ac\\\"\\n\""},
    };
    for (const Row& row : rows) {
        std::string hex = row.bytes;
        std::erase(hex, ' ');
        writeSample(hex);
        call({"--json"});
        expectPrinted(std::string("{\"time_us\":1700000000042000,\"id\":7,\"event\":"
                                  "\"SampleEvent\",\"fields\":{") +
                      row.shown + "}}\n");
    }
}

TEST_F(TelemetryTool, BytesThatAreNoSuchMessageAreShownAsBytes) {
    writeSample("0a05");
    call({"--json"});
    expectPrinted("{\"time_us\":1700000000042000,\"id\":7,\"bytes\":\"0a05\"}\n");
}

TEST_F(TelemetryTool, WithoutDescriptionsEventsAreShownAsBytes) {
    writeSample("0a0161");
    mEnvironment.schemas = mSink.folder() + "/none";
    call({});
    expectPrinted("2023-11-15 03:58:20.042 7 bytes=0a0161\n");
}

TEST_F(TelemetryTool, ADescriptionThatIsNoneIsToldOfOnce) {
    struct Row {
        const char* contents;
        const char* problem;
    };
    const Row rows[] = {
            {"", "no descriptor set"},
            {"rubbish", "no descriptor set"},
            // A file that asks for another, and one without a message.
            {"\x0a\x06\x0a\x01\x61\x1a\x01\x62", "b"},
            {"\x0a\x03\x0a\x01\x61", "describes no message"},
    };
    write("@0 7 0 \n@0 7 0 \n");
    mEnvironment.schemas = mSink.folder();
    for (const Row& row : rows) {
        ASSERT_TRUE(android::base::WriteStringToFile(row.contents, mSink.folder() + "/7.desc"));
        call({"--json"});
        EXPECT_EQ(mStatus, 0);
        EXPECT_EQ(mOut,
                  "{\"time_us\":0,\"id\":7,\"bytes\":\"\"}\n{\"time_us\":0,\"id\":7,"
                  "\"bytes\":\"\"}\n");
        EXPECT_THAT(mErr, AllOf(StartsWith("telemetry: " + mSink.folder() + "/7.desc: "),
                                HasSubstr(row.problem)));
        EXPECT_EQ(std::count(mErr.begin(), mErr.end(), '\n'), 1) << mErr;
    }
}

TEST_F(TelemetryTool, WhatIsNoEventIsSkippedAndCounted) {
    write("@0 8 1 6@0 8 0 \nrubbish\n@0 8 2 61");
    call({"--json"});
    EXPECT_EQ(mStatus, 0);
    EXPECT_EQ(mOut, "{\"time_us\":0,\"id\":8,\"bytes\":\"\"}\n");
    EXPECT_EQ(mErr, "telemetry: " + mSink.path() + ": skipped what is no event (3 places)\n");
}

TEST_F(TelemetryTool, TheFileIsTheOneNamedElseTheEnvironments) {
    write("@0 8 0 \n");
    mEnvironment.sink = "/no/such";
    call({mSink.path(), "--json"});
    expectPrinted("{\"time_us\":0,\"id\":8,\"bytes\":\"\"}\n");
    call({"--json"});
    expectFailed(1, "telemetry: /no/such: No such file or directory\n");
    mEnvironment.sink.clear();
    call({"--json"});
    expectFailed(2, StartsWith("telemetry: no file is named, and HOST_TELEMETRY is not set\n"
                               "usage: telemetry "));
}

TEST_F(TelemetryTool, AFileThatIsNoSinkFailsWithoutWaiting) {
    const std::string pipe = mSink.folder() + "/pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const std::string& path : {pipe, mSink.folder(), std::string("/dev/null")}) {
        for (const char* option : {"--json", "--follow"}) {
            call({option, path});
            expectFailed(1, "telemetry: " + path + ": not a regular file\n");
        }
    }
}

TEST_F(TelemetryTool, WrongWordsAreNamedWithTheUsageAndStatusTwo) {
    write("@0 8 0 \n");
    const struct {
        Arguments arguments;
        std::string mistake;
    } rows[] = {{{"-x"}, "unknown option '-x'"},
                {{"--jso"}, "unknown option '--jso'"},
                {{""}, "unknown option ''"},
                {{"-"}, "unknown option '-'"},
                {{"a", "b"}, "more than one file: 'b'"},
                {{"--help", "a"}, "unknown option '--help'"},
                {{"--"}, "unknown option '--'"},
                {{"--json=1"}, "unknown option '--json=1'"}};
    for (const auto& row : rows) {
        call(row.arguments);
        expectFailed(2, StartsWith("telemetry: " + row.mistake +
                                   "\nusage: telemetry [--follow] [--json] [FILE]\n"));
    }
    call({"--help"});
    expectPrinted(StartsWith("usage: telemetry "));
}

TEST_F(TelemetryTool, TheProgramTellsThatItsOutputIsFull) {
    write("@0 8 0 \n");
    const std::string command = PROGRAMS "/telemetry " + mSink.path() + " 2>&1 >/dev/full";
    FILE* const pipe = popen(command.c_str(), "re");
    ASSERT_NE(pipe, nullptr);
    std::string told;
    EXPECT_TRUE(android::base::ReadFdToString(fileno(pipe), &told));
    EXPECT_EQ(WEXITSTATUS(pclose(pipe)), 1);
    EXPECT_THAT(told, HasSubstr("telemetry: cannot write the output\n"));
}

}  // namespace hosttelemetry

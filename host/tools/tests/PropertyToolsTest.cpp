// SPDX-License-Identifier: Apache-2.0
//
// Property tools, as transcripts.
#include "../PropertyTools.h"

#include <android-base/file.h>
#include <stdio.h>
#include <sys/wait.h>

#include "../../testing/ToolTranscript.h"

namespace tools {

using hostproperties::PropertyStore;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

using Arguments = std::vector<std::string>;

class PropertyTools : public hosttesting::ToolTranscript {
protected:
    void callGetprop(const Arguments& arguments) {
        transcribe([&](auto& out, auto& err) { return getprop(arguments, mStore, out, err); });
    }
    void callSetprop(const Arguments& arguments) {
        transcribe([&](auto& out, auto& err) { return setprop(arguments, mStore, out, err); });
    }

    /** Runs a built program on this test's store; its output, errors included. */
    int run(const std::string& command, std::string* output) {
        FILE* pipe = popen(("HOST_PROPERTIES=" + path() + " " PROGRAMS "/" + command).c_str(), "r");
        if (!pipe) abort();
        if (!android::base::ReadFdToString(fileno(pipe), output)) abort();
        return WEXITSTATUS(pclose(pipe));
    }

    [[nodiscard]] std::string path() const { return std::string(mFolder.path) + "/properties"; }

private:
    TemporaryDir mFolder;
    PropertyStore mStore{{.path = path(), .privateFolder = {}}};
};

}  // namespace

TEST_F(PropertyTools, ValueIsPrintedElseTheDefaultElseAnEmptyLine) {
    callSetprop({"debug.foo", "some text"});
    expectPrinted("");
    callGetprop({"debug.foo"});
    expectPrinted("some text\n");
    callGetprop({"debug.foo", "default"});
    expectPrinted("some text\n");
    callGetprop({"debug.bar", "default"});
    expectPrinted("default\n");
    callGetprop({"debug.bar"});
    expectPrinted("\n");
    callSetprop({"debug.foo", ""});
    expectPrinted("");
    callGetprop({"debug.foo", "default"});
    expectPrinted("default\n");
}

TEST_F(PropertyTools, AllAreListedInOrderOfTheirNames) {
    callGetprop({});
    expectPrinted("");
    callSetprop({"b", "2"});
    callSetprop({"c", ""});
    callSetprop({"a", "1"});
    callGetprop({});
    expectPrinted("[a]: [1]\n[b]: [2]\n[c]: []\n");
}

TEST_F(PropertyTools, RefusedChangeSaysWhy) {
    callSetprop({"ro.foo", "1"});
    expectPrinted("");
    callSetprop({"ro.foo", "2"});
    expectFailed(1, StartsWith("setprop: ro.foo: "));
    callSetprop({"bad name", "2"});
    expectFailed(1, StartsWith("setprop: bad name \"bad name\": "));
}

TEST_F(PropertyTools, WrongCommandLinesAreNamedWithTheUsage) {
    const struct {
        Arguments arguments;
        std::string mistake;
    } getpropRows[] = {{{"a", "b", "c"}, "too many arguments: 3"},
                       {{"--all"}, "unknown option '--all'"},
                       {{"--help", "a"}, "unknown option '--help'"}},
      setpropRows[] = {{{}, "a name and a value are missing"},
                       {{"a"}, "a value is missing"},
                       {{"a", "b", "c"}, "too many arguments: 3"},
                       {{"--force"}, "unknown option '--force'"},
                       {{"--force", "a"}, "unknown option '--force'"}};
    for (const auto& row : getpropRows) {
        callGetprop(row.arguments);
        expectFailed(2, StartsWith("getprop: " + row.mistake + "\nusage: getprop"));
    }
    for (const auto& row : setpropRows) {
        callSetprop(row.arguments);
        expectFailed(2, StartsWith("setprop: " + row.mistake + "\nusage: setprop"));
    }
}

TEST_F(PropertyTools, HelpIsPrintedOnDemand) {
    std::string output;
    EXPECT_EQ(run("getprop --help", &output), 0);
    EXPECT_THAT(output, StartsWith("usage: getprop"));
    EXPECT_EQ(run("setprop --help", &output), 0);
    EXPECT_THAT(output, StartsWith("usage: setprop"));
}

TEST_F(PropertyTools, ProgramsShareTheStoreThatTheEnvironmentNames) {
    std::string output;
    EXPECT_EQ(run("setprop debug.foo 1 2>&1", &output), 0);
    EXPECT_EQ(output, "");
    EXPECT_EQ(run("getprop 2>&1", &output), 0);
    EXPECT_EQ(output, "[debug.foo]: [1]\n");
    EXPECT_EQ(run("setprop debug.foo 2>&1", &output), 2);
    EXPECT_THAT(output, HasSubstr("usage: setprop"));
    EXPECT_EQ(run("getprop > /dev/full", &output), 1);
}

}  // namespace tools

// SPDX-License-Identifier: Apache-2.0
// Scenarios are read whole: good lines are what they mean, bad ones are told where they stand.
#include <android-base/file.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>

#include "scenario/Help.h"
#include "scenario/Script.h"

namespace sim::scenario {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::vector<std::string> mistakesIn(const std::string& text) {
    std::vector<std::string> found;
    for (const Mistake& mistake : Script::fromText("", text).mistakes) {
        found.push_back(std::to_string(mistake.place.line) + ":" +
                        std::to_string(mistake.place.column) + " " + mistake.message);
    }
    return found;
}

/** The form that took a line, and its words as "PLACE=word" in the order of the places' names. */
std::string meaningOf(const Command& command) {
    std::string text = command.form == nullptr ? "block of " + std::to_string(command.body.size()) +
                                                         " x" + std::to_string(command.repeats)
                                               : command.form->pattern.verb();
    for (const auto& [place, words] : command.arguments.words()) {
        if (command.form == nullptr) continue;
        for (const Word& word : words)
            text += " " + place + "=" + word.text;
    }
    return text + (command.quietly ? " quietly" : "") + (command.isWait ? " (wait)" : "");
}

TEST(ScenarioScriptTest, goodLinesAreWhatTheyMean) {
    const struct {
        std::string line;
        std::string meaning;
    } rows[] = {
            {"start new", "start NAME=new"},
            {"start new uid=10061 permissions=dump,read-focus",
             "start NAME=new permissions=dump,read-focus uid=10061"},
            {"start uid=10061 new", "start NAME=new uid=10061"},
            {"front game", "front APP=game"},
            {"front game display=2", "front APP=game display=2"},
            {"quietly front game", "front APP=game quietly"},
            {"report game 7 status=illegal-argument",
             "report APP=game STATE=7 status=illegal-argument"},
            {"ask game focus head game shell", "ask APP=game KNOWN=game KNOWN=shell TYPE=head"},
            {"ask game focus input", "ask APP=game TYPE=input"},
            {"listen game top", "listen APP=game"},
            {"listen game head", "listen APP=game TYPE=head"},
            {"window none", "window OWNER=none"},
            {"notice died pid:17", "notice died WHOSE=pid:17"},
            {"kill hub", "kill TARGET=hub"},
            {"expect focus game both", "expect focus FOCUS=both KNOWN=game"},
            {"expect dump a[pid:game].b[*].# pid:game",
             "expect dump PATH=a[pid:game].b[*].# VALUE=pid:game"},
            {"expect dump a com.rapid:vr", "expect dump PATH=a VALUE=com.rapid:vr"},
            {"expect focus game both within=0.5", "expect focus FOCUS=both KNOWN=game within=0.5"},
            {"wait until focus game both", "expect focus FOCUS=both KNOWN=game (wait)"},
            {"expect no log \"a b\"", "expect no log TEXT=a b"},
            {"slow daemon off", "slow TARGET=daemon"},
            {"slow daemon 5", "slow MILLISECONDS=5 TARGET=daemon"},
    };
    for (const auto& row : rows) {
        const Script script =
                Script::fromText("", "start game\nstart shell\ndisplay add 2\n" + row.line);
        EXPECT_THAT(script.mistakes, IsEmpty()) << row.line << script.mistakes.front().message;
        ASSERT_EQ(script.commands.size(), 4u) << row.line;
        EXPECT_EQ(meaningOf(script.commands[3]), row.meaning);
        EXPECT_EQ(script.commands[3].text, row.line);
        EXPECT_EQ(script.commands[3].place.line, 4);
    }
}

TEST(ScenarioScriptTest, badLinesAreToldWithColumnAndMessage) {
    const struct {
        std::string line;
        std::string mistake;
    } rows[] = {
            {"strat game", "1 there is no command 'strat'; did you mean 'start'?"},
            {"xyzzy", "1 there is no command 'xyzzy'"},
            {"  uid=3", "3 there is no command '3'"},
            {"front", "6 here APP (an app that runs) is missing"},
            {"front game game", "12 'game' is too much here"},
            {"front nobody", "7 no app 'nobody' was started"},
            {"front activity", "7 'activity' is no app"},
            {"front game speed=3", "12 there is no option 'speed' here"},
            {"front game display=1 display=2", "22 'display' is given twice"},
            {"front game display=x", "12 'x' is no whole number"},
            {"front game display=1x", "12 '1x' is no whole number"},
            {"front game display=99999999999",
             "12 99999999999 is out of range: -2147483648 to 2147483647"},
            {"start game", "7 'game' runs already"},
            {"start none", "7 'none' is taken and cannot name an app"},
            {"start daemon", "7 'daemon' is taken and cannot name an app"},
            {"start observer", "7 'observer' is taken and cannot name an app"},
            {"start binderhub", "7 'binderhub' is taken and cannot name an app"},
            {"start telemetry", "7 'telemetry' is taken and cannot name an app"},
            {"start pid:3", "7 'pid:3' is read as a number and cannot name an app"},
            {"native uid:x uid=1", "8 'uid:x' is read as a number and cannot name an app"},
            {"start 3", "7 '3' is read as a number and cannot name an app"},
            {"start -x", "7 '-x' cannot start with '-'"},
            {"start a,b", "7 'a,b' is no name: letters, digits and _.:/- only"},
            {"start \"\"", "7 an empty name"},
            {"start " + std::string(201, 'a'), "7 a name of 201 bytes; 200 at most"},
            {"start b uid=-1", "9 -1 is out of range: 0 to 2147483647"},
            {"start b uid=2147483648", "9 2147483648 is out of range: 0 to 2147483647"},
            {"start b uid=", "9 '' is no whole number"},
            {"start b permissions=fly",
             "9 'fly' is no permission: background-head, background-input, dump, grant-tracking or "
             "read-focus, or a full name with dots"},
            {"start b packages=", "9 an empty list"},
            {"native b", "9 here uid= (a user id) is missing"},
            {"panel game up", "12 expected on or off, got 'up'"},
            {"listen game feet", "13 expected 'top' or TYPE (kind of focus), got 'feet'"},
            {"kill nobody",
             "6 'nobody' is neither an app that runs nor a system process: VelmarWindowManager, "
             "activity, daemon, display, helper, hub, package_native, permission, servicemanager, "
             "vrfocus, vrfocushelper or windowmanager"},
            {"ask game focus feet", "16 'feet' is no kind of focus: head or input, or a number"},
            {"display", "8 here 'add' or 'remove' is missing"},
            {"display up 2", "9 expected 'add' or 'remove', got 'up'"},
            {"dump xml", "6 'xml' is too much here"},
            {"repeat 0", "8 0 is out of range: 1 to 1000000"},
            {"repeat", "7 here COUNT (a count) is missing"},
            {"end", "1 'end' without 'repeat'"},
            {"end x", "5 'end' takes no more words"},
            {"quietly", "8 what should be done quietly?"},
            {"quietly title x", "9 this cannot be done quietly"},
            {"wait until no log x", "6 waiting wants something that will be"},
            {"wait", "1 there is no command 'wait'"},
            {"expect focus game some", "19 expected both, head, input, none or gone, got 'some'"},
            {"expect focus game both within=-1", "24 '-1' is no number of seconds"},
            {"expect focus game both within=soon", "24 'soon' is no number of seconds"},
            {"expect dump a[0 1", "13 no ']' ends this '['"},
            {"expect dump a..b 1", "13 an empty name in the path"},
            {"expect dump a[-1] 1", "13 in brackets: a number, * or pid:APP"},
            {"expect dump a[pid:nobody] 1", "13 no app 'nobody' was started"},
            {"expect dump a \"[1, pid:nobody]\"", "15 no app 'nobody' was started"},
            {"expect no log \"x", "15 this quote is not closed"},
            {"title \"x", "7 this quote is not closed"},
            {"title \xC3\xBC\x01", "8 a control character"},
            {"fault activity error getNoTasks security times=2",
             "22 'activity' has no method 'getNoTasks', only registerProcessObserver, "
             "unregisterProcessObserver, hasForegroundPanelService, hasActivityOnPrimaryDisplay, "
             "getDisplaysWithTopActivities, getTopActivityOnPrimaryDisplay"},
            {"fault activity error all any",
             "26 'any' is no error: dead, illegal-argument, null-pointer or security, or a number"},
            {"fault activity error all -10", "26 -10 is out of range: -9 to -1"},
            {"fault helper random all 1",
             "21 the calls of 'vrfocushelper' are one-way: they have no reply"},
            {"fault permission notices drop", "7 'permission' sends no notices"},
            {"fault activity notices reorder", "24 two notices at least have an order"},
    };
    for (const auto& row : rows) {
        const auto mistakes = mistakesIn("start game\n" + row.line);
        ASSERT_EQ(mistakes.size(), 1u) << row.line;
        EXPECT_EQ(mistakes[0], "2:" + row.mistake) << row.line;
    }
}

TEST(ScenarioScriptTest, theUsageOfTheNearestCommandComesWithAMistake) {
    const struct {
        std::string line;
        std::string usage;
    } rows[] = {{"front", "front APP [display=DISPLAY]"},
                {"display remove x", "display remove DISPLAY"},
                {"expect foreground", "expect foreground OWNER..."},
                {"xyzzy", ""}};
    for (const auto& row : rows) {
        const Script script = Script::fromText("", row.line);
        ASSERT_EQ(script.mistakes.size(), 1u);
        EXPECT_EQ(script.mistakes[0].usage, row.usage) << row.line;
    }
}

TEST(ScenarioScriptTest, namesAreFollowedFromLineToLine) {
    const struct {
        std::string text;
        std::vector<std::string> mistakes;
    } rows[] = {
            {"front game\nstart game", {"1:7 no app 'game' was started"}},
            {"start game\ncrash game\nfront game", {"3:7 'game' has ended by then"}},
            {"start game\ncrash game\nstart game\nfront game", {}},
            {"start game\ncrash game\nexpect focus game gone", {}},
            {"start a reusable=yes\nreuse a b uid=10099\nfront b", {}},
            {"start a reusable=yes\nreuse a b uid=10099\nfront a", {"3:7 'a' has ended by then"}},
            {"start a\nkill a\nkill a",
             {"3:6 'a' is neither an app that runs nor a system process: VelmarWindowManager, "
              "activity, daemon, display, helper, hub, package_native, permission, servicemanager, "
              "vrfocus, vrfocushelper or windowmanager"}},
            {"start a uid=10061\nreuse a b uid=10099",
             {"2:7 'a' was started without reusable=yes: its pid keeps its uid"}},
            {"start a\nreuse a b uid=1000\nfront b",
             {"2:7 'a' was started without reusable=yes: its pid keeps its uid"}},
            {"install a uid=10061\nstart a\nreuse a b uid=10061\nreuse b c uid=10062",
             {"4:7 'b' was started without reusable=yes: its pid keeps its uid"}},
            {"start a uid=10061 reusable=yes\nreuse a b uid=10099\nreuse b c uid=10100", {}},
            {"native a uid=1041\nrepeat 2\nreuse a b uid=1041\nreuse b a uid=1041\nend", {}},
            {"allow com.x dump\nstart a process=com.x:y\nallow com.x dump",
             {"1:7 package 'com.x' is not installed by then"}},
            {"start a process=com.x:y\ninstall com.x uid=1\ninstall com.y uid=2\ninstall com.y "
             "uid=3",
             {"2:9 package 'com.x' is installed already",
              "4:9 package 'com.y' is installed already"}},
            {"native a uid=1\ndeny a dump", {"2:6 package 'a' is not installed by then"}},
            {"start a packages=b,c\ninstall d uid=1\nallow a dump\nallow c dump\nallow d dump",
             {"3:7 package 'a' is not installed by then"}},
            {"start a process=com.x\ncrash a\nstart a\nallow com.x dump", {}},
            {"start a\nrandom 1 9\nallow com.x dump\nfront a display=7", {}},
            {"instal com.x uid=1\nallow com.x dump",
             {"1:1 there is no command 'instal'; did you mean 'install'?"}},
            {"start a\nfront a display=2\ndisplay add 2\nfront a display=2\nback a display=3",
             {"2:9 there is no display 2 by then", "5:8 there is no display 3 by then"}},
            {"display remove 2\ndisplay remove 0\ndisplay add 0",
             {"1:16 there is no display 2 by then", "2:16 the main display stays",
              "3:13 there is a display 0 already"}},
            {"repeat 2\ndisplay add 2\nend",
             {"3:1 when this is repeated: line 2: there is a display 2 already"}},
            {"repeat 2\nquietly display add 2\ndisplay remove 2\nend", {}},
            {"start game uid=x\nfront game", {"1:12 'x' is no whole number"}},
            {"native game\nfront game", {"1:12 here uid= (a user id) is missing"}},
            {"repeat 2\nstart game\nend",
             {"3:1 when this is repeated: line 2: 'game' runs already"}},
            {"repeat 2\nrepeat 1\nstart game\nend\nend",
             {"5:1 when this is repeated: line 3: 'game' runs already"}},
            {"repeat 1\nstart game\nend\nfront game", {}},
            {"\xEF\xBB\xBFstart a\nfront a", {}},
            {"\xEF\xBB\xBF\nstart", {"2:6 here NAME (a new app's name) is missing"}},
            {"\xEF\xBB\xBFstart", {"1:6 here NAME (a new app's name) is missing"}},
            {"repeat 0\nrepeat 2\nsettle\nend\nend\nend",
             {"1:8 0 is out of range: 1 to 1000000", "6:1 'end' without 'repeat'"}},
            {"repeat 2\nquietly repeat 2\nsettle\nend\nend", {"2:9 this cannot be done quietly"}},
            {"repeat 2\nrepeat \"2\nend\nend\nend",
             {"2:8 this quote is not closed", "5:1 'end' without 'repeat'"}},
            {"repet 2\nend\nend",
             {"1:1 there is no command 'repet'; did you mean 'repeat'?",
              "3:1 'end' without 'repeat'"}},
            {"repeat x\nrepeat 2\nstart a\nend\nend",
             {"1:8 'x' is no whole number", "4:1 when this is repeated: line 3: 'a' runs already"}},
            {"repeat x\nstart a\nend\nfront a", {"1:8 'x' is no whole number"}},
            {"repeat 2\nstart game\ncrash game\nend", {}},
            {"start game\nrepeat 2\ncrash game\nend",
             {"4:1 when this is repeated: line 3: 'game' has ended by then"}},
            {"repeat 2\nrepeat 3\nsettle\n",
             {"1:1 this 'repeat' has no 'end'", "2:1 this 'repeat' has no 'end'"}},
            {"random 1 5\nfront anybody", {}},
    };
    for (const auto& row : rows)
        EXPECT_EQ(mistakesIn(row.text), row.mistakes) << row.text;
}

TEST(ScenarioScriptTest, blocksHoldTheirCommands) {
    const Script script =
            Script::fromText("", "repeat 3\n  settle\n  repeat 2\n title x\nend\nend");
    EXPECT_THAT(script.mistakes, IsEmpty());
    ASSERT_EQ(script.commands.size(), 1u);
    EXPECT_EQ(meaningOf(script.commands[0]), "block of 2 x3");
    EXPECT_EQ(meaningOf(script.commands[0].body[1]), "block of 1 x2");
    std::string deep;
    for (int depth = 0; depth < 9; ++depth)
        deep += "repeat 2\n";
    EXPECT_THAT(mistakesIn(deep).front(), HasSubstr("9:1 blocks within blocks: eight at most"));
}

TEST(ScenarioScriptTest, twentyMistakesAreToldAtMostAndHowManyMoreThereAre) {
    const struct {
        int lines;
        std::string more;
    } rows[] = {{20, ""},
                {21, "x: 1 more mistake"},
                {50, "x: 30 more mistakes"},
                {999, "x: 979 more mistakes"},
                {5000, "x: at least 980 more mistakes"}};
    for (const auto& row : rows) {
        std::string text;
        for (int line = 0; line < row.lines; ++line)
            text += "nonsense\n";
        const Script script = Script::fromText("x", text);
        EXPECT_EQ(script.mistakes.size(), 20u);
        EXPECT_EQ(script.textOfMore(), row.more);
    }
}

TEST(ScenarioScriptTest, filesThatAreNoScenariosAreToldByName) {
    TemporaryDir folder;
    const std::string path = std::string(folder.path) + "/x.scenario";
    const auto mistakesOf = [](const std::string& file) {
        std::vector<std::string> texts;
        for (const Mistake& mistake : Script::fromFile(file).mistakes)
            texts.push_back(mistake.text());
        return texts;
    };
    EXPECT_THAT(mistakesOf(path), ElementsAre(path + ": No such file or directory"));
    EXPECT_THAT(mistakesOf(folder.path),
                ElementsAre(std::string(folder.path) + ": a folder, not a scenario"));
    std::ofstream(path).flush();
    EXPECT_THAT(mistakesOf(path), IsEmpty()) << "an empty file is a short scenario";
    std::ofstream(path) << "settle\r\nfront";
    EXPECT_THAT(mistakesOf(path),
                ElementsAre(path + ":2:6: here APP (an app that runs) is missing\n    front\n" +
                            "         ^\n    usage: front APP [display=DISPLAY]"));
    EXPECT_THAT(mistakesOf("/dev/zero"), ElementsAre("/dev/zero: larger than 16 MiB"));
    std::filesystem::resize_file(path, (16 << 20) + 1);
    EXPECT_THAT(mistakesOf(path), ElementsAre(path + ": larger than 16 MiB"));
}

TEST(ScenarioScriptTest, garbageGivesMistakesAndNothingElse) {
    std::mt19937 random(20261121);
    std::string garbage(1 << 20, '\0');
    for (char& byte : garbage)
        byte = static_cast<char>(random());
    EXPECT_EQ(mistakesIn(garbage).size(), Script::kMostMistakes);
    for (const std::string& line : mistakesIn(std::string(1 << 20, 'x')))
        EXPECT_EQ(line, "1:1 this line is longer than 4096 bytes");
}

TEST(ScenarioScriptTest, aMegabyteOfGoodLinesIsRead) {
    std::string text = "start game\n";
    size_t lines = 1;
    for (; text.size() < (1 << 20); ++lines)
        text += "expect focus game both within=3 # a line as there are many\n";
    const Script script = Script::fromText("", text);
    EXPECT_THAT(script.mistakes, IsEmpty());
    EXPECT_EQ(script.commands.size(), lines);
}

TEST(ScenarioScriptTest, everyExampleCanBePlayedWhereItsNamesRun) {
    for (const FormGroup& group : formGroups()) {
        for (const Form& form : group.forms) {
            if (form.pattern.verb() == "repeat") continue;
            std::string text;
            for (const char* name : {"game", "shell", "browser", "audio"}) {
                const bool isStarted = form.example.starts_with("start " + std::string(name)) ||
                                       form.example.starts_with("native " + std::string(name));
                if (!isStarted) text += "start " + std::string(name) + " reusable=yes\n";
            }
            if (form.pattern.verb() == "display remove") text += "display add 2\n";
            if (form.usage.find("PACKAGE PERMISSION") != std::string::npos)
                text += "install com.orbit.racer uid=10061\n";
            const Script script = Script::fromText("example", text + form.example);
            for (const Mistake& mistake : script.mistakes)
                ADD_FAILURE() << mistake.text();
            if (!script.mistakes.empty()) continue;
            EXPECT_EQ(script.commands.back().form, &form);
        }
    }
}

}  // namespace
}  // namespace sim::scenario

// SPDX-License-Identifier: Apache-2.0
// The pages of documentation say what the tables of the language and the scenarios say.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>

#include "scenario/Help.h"
#include "scenario/Script.h"

namespace sim::scenario {
namespace {

namespace fs = std::filesystem;

const fs::path kRoot = SOURCE_ROOT;

std::string textOf(const fs::path& path) {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

std::string page() {
    return textOf(kRoot / "docs/scenarios.md");
}

/** What stands between two comments of a page. */
std::string between(const std::string& text, const std::string& start, const std::string& end) {
    const size_t from = text.find(start);
    const size_t to = text.find(end);
    if (from == std::string::npos || to == std::string::npos) return "";
    return text.substr(from + start.size(), to - from - start.size());
}

/** All commands as the page shows them. */
std::string commandTables() {
    std::string text = "\n";
    for (const FormGroup* group : helpGroups()) {
        text += "\n### " + group->title +
                "\n\n| Command | What it does | Example |\n| --- | --- | --- |\n";
        for (const Form& form : group->forms)
            text += "| `" + form.usage + "` | " + form.help + " | `" + form.example + "` |\n";
    }
    return text + "\n";
}

TEST(ScenarioPageTest, everyCommandIsThereAsTheLanguageHasIt) {
    const std::string due = commandTables();
    EXPECT_EQ(between(page(), "<!-- all commands -->", "<!-- end of all commands -->"), due)
            << "put this between the two comments of docs/scenarios.md:\n"
            << due;
}

/** All scenarios that ship, with their first comment. */
std::string scenarioTable() {
    std::set<fs::path> files;
    for (const auto& entry : fs::directory_iterator(kRoot / "scenarios")) {
        if (entry.path().extension() == ".scenario") files.insert(entry.path());
    }
    std::string table = "\n\n| Scenario | What it shows |\n| --- | --- |\n";
    for (const fs::path& path : files) {
        std::string about;
        std::istringstream lines(textOf(path));
        for (std::string line; std::getline(lines, line) && line.starts_with("# ");)
            about += line.substr(1);
        const std::string name = path.stem();
        table += "| [" + name + "](" + name + ".scenario) |" + about + " |\n";
    }
    return table + "\n";
}

TEST(ScenarioPageTest, everyScenarioThatShipsIsInTheTableWithItsFirstComment) {
    const std::string due = scenarioTable();
    EXPECT_EQ(between(textOf(kRoot / "scenarios/README.md"), "<!-- all scenarios -->",
                      "<!-- end of all scenarios -->"),
              due)
            << "put this between the two comments of scenarios/README.md:\n"
            << due;
}

TEST(ScenarioPageTest, itsScenariosCanBePlayed) {
    const std::string text = page();
    const std::regex block("```scenario\n([^`]*)```");
    size_t count = 0;
    for (std::sregex_iterator found(text.begin(), text.end(), block), end; found != end; ++found) {
        ++count;
        const Script script = Script::fromText("page", (*found)[1].str());
        for (const Mistake& mistake : script.mistakes)
            ADD_FAILURE() << mistake.text();
        EXPECT_GT(script.commands.size(), 0u);
    }
    EXPECT_GE(count, 2u);
}

}  // namespace
}  // namespace sim::scenario

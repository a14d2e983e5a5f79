// SPDX-License-Identifier: Apache-2.0
// Lines are cut into words, and what is no text is told with its column.
#include <gtest/gtest.h>

#include "scenario/Words.h"

namespace sim::scenario {
namespace {

using namespace std::string_literals;

/** The words, as "COLUMN:text", options as "COLUMN:key=text", with '|' between. */
std::string wordsOf(std::string_view line) {
    const auto split = splitLine(line);
    const auto* words = std::get_if<std::vector<Word>>(&split);
    if (words == nullptr) return "a mistake: " + std::get<Mistake>(split).message;
    std::string text;
    for (const Word& word : *words) {
        text += (text.empty() ? "" : "|") + std::to_string(word.column) + ":" +
                (word.key.empty() ? "" : word.key + "=") + word.text;
    }
    return text;
}

TEST(ScenarioWordsTest, linesAreCutIntoWordsWithTheirColumns) {
    const struct {
        std::string line;
        std::string words;
    } rows[] = {
            {"", ""},
            {" \t ", ""},
            {"# a comment", ""},
            {"front game", "1:front|7:game"},
            {"\tfront  game \r", "2:front|9:game"},
            {"front game # on top", "1:front|7:game"},
            {"front ga#me", "1:front|7:ga#me"},
            {"start game uid=10061", "1:start|7:game|12:uid=10061"},
            {"start game uid=", "1:start|7:game|12:uid="},
            {"a=b=c", "1:a=b=c"},
            {"property debug.x A=b", "1:property|10:debug.x|18:A=b"},
            {"title \"two words\" on", "1:title|7:two words|19:on"},
            {"title \"\"", "1:title|7:"},
            {R"(title "a \"b\" \\ \n")", "1:title|7:a \"b\" \\ \n"},
            {"title a\" b\"c", "1:title|7:a bc"},
            {"title \"uid=3\"", "1:title|7:uid=3"},
            {"title key=\"a b\"", "1:title|7:key=a b"},
            {"title \"# not a comment\"", "1:title|7:# not a comment"},
            {"title Grüße aus x", "1:title|7:Grüße|13:aus|17:x"},
            {"title \xF0\x9F\x98\x80 x", "1:title|7:\xF0\x9F\x98\x80|9:x"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(wordsOf(row.line), row.words) << row.line;
}

TEST(ScenarioWordsTest, whatIsNoTextIsToldWithItsColumn) {
    const struct {
        std::string line;
        int column;
        std::string message;
    } rows[] = {
            {"title \"open", 7, "this quote is not closed"},
            {"title a\"", 8, "this quote is not closed"},
            {R"(title "a\t")", 9, R"(after \ comes ", \ or n)"},
            {"title \"a\\", 9, R"(after \ comes ", \ or n)"},
            {"title \x01", 7, "a control character"},
            {"title \x7F", 7, "a control character"},
            {"a\0b"s, 2, "a control character"},
            {"title ü\x1B", 8, "a control character"},
            {"title \xFF", 7, "this is not UTF-8 text"},
            {"title \x80", 7, "this is not UTF-8 text"},
            {"title \xC0\xAF", 7, "this is not UTF-8 text"},
            {"title \xC3", 7, "this is not UTF-8 text"},
            {"title \xC3(", 7, "this is not UTF-8 text"},
            {"title \xE0\x9F\xBF", 7, "this is not UTF-8 text"},
            {"title \xED\xA0\x80", 7, "this is not UTF-8 text"},
            {"title \xF0\x8F\xBF\xBF", 7, "this is not UTF-8 text"},
            {"title \xF4\x90\x80\x80", 7, "this is not UTF-8 text"},
            {"title \xF8\x88\x80\x80\x80", 7, "this is not UTF-8 text"},
            {std::string(4097, 'x'), 1, "this line is longer than 4096 bytes"},
    };
    for (const auto& row : rows) {
        const auto split = splitLine(row.line);
        const auto* mistake = std::get_if<Mistake>(&split);
        ASSERT_NE(mistake, nullptr) << row.line;
        EXPECT_EQ(mistake->message, row.message) << row.line;
        EXPECT_EQ(mistake->place.column, row.column) << row.line;
    }
    EXPECT_EQ(wordsOf(std::string(4096, 'x')), "1:" + std::string(4096, 'x'));
}

TEST(ScenarioWordsTest, aWordIsQuotedWhereItMustBeAndReadsAsItself) {
    const struct {
        std::string word;
        std::string written;
    } rows[] = {{"game", "game"},
                {"", "\"\""},
                {"a b", "\"a b\""},
                {"#1", "\"#1\""},
                {"a#1", "a#1"},
                {"a=b", "\"a=b\""},
                {"say \"x\"", R"("say \"x\"")"},
                {"a\\b", R"("a\\b")"},
                {"a\nb", R"("a\nb")"},
                {"Grüße", "Grüße"}};
    for (const auto& row : rows) {
        EXPECT_EQ(quoted(row.word), row.written);
        EXPECT_EQ(wordsOf(quoted(row.word)), "1:" + row.word);
    }
}

TEST(ScenarioWordsTest, aMistakeShowsItsLineWithACaretAndTheUsage) {
    const struct {
        Mistake mistake;
        std::string text;
    } rows[] = {
            {{{"a.scenario", 3, 7}, "no app", "front game", ""},
             "a.scenario:3:7: no app\n    front game\n          ^"},
            {{{"a.scenario", 3, 2}, "no app", "\tfront", "front APP"},
             "a.scenario:3:2: no app\n    \tfront\n    \t^\n    usage: front APP"},
            {{{"a", 1, 3}, "x", "ü ü", ""}, "a:1:3: x\n    ü ü\n      ^"},
            {{{"a", 1, 9}, "too long to be shown", std::string(201, 'x'), ""},
             "a:1:9: too long to be shown"},
            {{{"a", 0, 1}, "no such file", "", ""}, "a: no such file"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.mistake.text(), row.text);
}

}  // namespace
}  // namespace sim::scenario

// SPDX-License-Identifier: Apache-2.0
// A line of a scenario, cut into words.
#include "scenario/Words.h"

#include <algorithm>
#include <optional>

namespace sim::scenario {
namespace {

/** Bytes of the UTF-8 character at the start of text; 0: it is none. */
size_t characterLength(std::string_view text) {
    const auto byte = [&](size_t index) { return static_cast<unsigned char>(text[index]); };
    const unsigned char first = byte(0);
    if (first < 0x80) return 1;
    const size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || text.size() < length) return 0;
    for (size_t index = 1; index < length; ++index) {
        if ((byte(index) & 0xC0) != 0x80) return 0;
    }
    const bool overlong = (first == 0xE0 && byte(1) < 0xA0) || (first == 0xF0 && byte(1) < 0x90);
    const bool outside = (first == 0xED && byte(1) > 0x9F) || (first == 0xF4 && byte(1) > 0x8F);
    return overlong || outside ? 0 : length;
}

Mistake mistakeAt(int column, std::string message) {
    return {{"", 0, column}, std::move(message), ""};
}

/** Goes through a line character by character. */
class Splitter {
public:
    explicit Splitter(std::string_view line) : mRest(line) {}

    std::variant<std::vector<Word>, Mistake> split() {
        while (!mMistake) {
            while (!mRest.empty() && (mRest[0] == ' ' || mRest[0] == '\t'))
                step(1);
            if (mRest.empty() || mRest[0] == '#') break;
            takeWord();
        }
        if (mMistake) return *mMistake;
        return std::move(mWords);
    }

private:
    void step(size_t bytes) {
        mRest.remove_prefix(bytes);
        ++mColumn;
    }

    void fail(int column, const std::string& message) {
        if (!mMistake) mMistake = mistakeAt(column, message);
    }

    void takeWord() {
        Word word;
        word.column = mColumn;
        bool plain = true;  // no quote so far: what stands before a '=' can be a key
        while (!mMistake && !mRest.empty() && mRest[0] != ' ' && mRest[0] != '\t') {
            if (mRest[0] == '"') {
                plain = false;
                takeQuoted(&word.text);
            } else if (mRest[0] == '=' && plain && word.key.empty() && isKey(word.text)) {
                word.key.swap(word.text);
                plain = false;
                step(1);
            } else {
                takeCharacter(&word.text);
            }
        }
        if (!mMistake) mWords.push_back(std::move(word));
    }

    static bool isKey(const std::string& text) {
        return !text.empty() && std::all_of(text.begin(), text.end(),
                                            [](char each) { return each >= 'a' && each <= 'z'; });
    }

    void takeCharacter(std::string* text) {
        const size_t length = characterLength(mRest);
        if (length == 0) return fail(mColumn, "this is not UTF-8 text");
        const unsigned char byte = static_cast<unsigned char>(mRest[0]);
        if ((byte < 0x20 && byte != '\t') || byte == 0x7F) {
            return fail(mColumn, "a control character");
        }
        text->append(mRest.substr(0, length));
        step(length);
    }

    void takeQuoted(std::string* text) {
        const int start = mColumn;
        step(1);
        while (!mMistake && !mRest.empty() && mRest[0] != '"') {
            if (mRest[0] == '\\') {
                takeEscape(text);
            } else {
                takeCharacter(text);
            }
        }
        if (mRest.empty()) return fail(start, "this quote is not closed");
        if (!mMistake) step(1);
    }

    void takeEscape(std::string* text) {
        const char next = mRest.size() < 2 ? '\0' : mRest[1];
        if (next != '"' && next != '\\' && next != 'n') {
            return fail(mColumn, "after \\ comes \", \\ or n");
        }
        text->push_back(next == 'n' ? '\n' : next);
        step(1);
        step(1);
    }

    std::string_view mRest;
    int mColumn = 1;
    std::vector<Word> mWords;
    std::optional<Mistake> mMistake;
};

}  // namespace

std::string Place::text() const {
    if (line == 0) return file.empty() ? std::to_string(column) : file;
    return file + ":" + std::to_string(line) + ":" + std::to_string(column);
}

std::string Mistake::text() const {
    return place.text() + ": " + textWithoutPlace();
}

std::string Mistake::textWithoutPlace() const {
    constexpr size_t kShown = 200;  // of a line that is longer, no more would help
    std::string text = message;
    const std::string below = usage.empty() ? "" : "\n    usage: " + usage;
    if (line.empty() || line.size() > kShown) return text + below;
    text += "\n    " + line + "\n    ";
    int column = 1;
    for (const char byte : line) {
        if (column == place.column) break;
        const auto bits = static_cast<unsigned char>(byte);
        if ((bits & 0xC0) == 0x80) continue;
        text += byte == '\t' ? '\t' : ' ';
        ++column;
    }
    return text + "^" + below;
}

std::string_view withoutByteOrderMark(std::string_view text) {
    constexpr std::string_view kMark = "\xEF\xBB\xBF";
    return text.starts_with(kMark) ? text.substr(kMark.size()) : text;
}

std::string_view trimmed(std::string_view line) {
    const size_t first = line.find_first_not_of(" \t\r");
    if (first == std::string_view::npos) return {};
    return line.substr(first, line.find_last_not_of(" \t\r") - first + 1);
}

std::variant<std::vector<Word>, Mistake> splitLine(std::string_view line) {
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (line.size() > kLongestLine) {
        return mistakeAt(1, "this line is longer than " + std::to_string(kLongestLine) + " bytes");
    }
    return Splitter(line).split();
}

std::string quoted(const std::string& word) {
    const bool plain = !word.empty() && word[0] != '#' &&
                       word.find_first_of(" \t\n\"\\=") == std::string::npos;
    if (plain) return word;
    std::string text = "\"";
    for (const char each : word) {
        if (each == '"' || each == '\\') text += '\\';
        text += each == '\n' ? std::string("\\n") : std::string(1, each);
    }
    return text + "\"";
}

}  // namespace sim::scenario

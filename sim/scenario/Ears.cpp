// SPDX-License-Identifier: Apache-2.0
// What listeners and the focus helper have heard.
#include "scenario/Ears.h"

#include "scenario/Vocabulary.h"

namespace sim::scenario {
namespace {

std::string wordOf(const Json::Value& entry) {
    if (entry.isMember("focus")) return wordFor(focusTypeNames(), entry["focus"].asInt());
    if (entry.isMember("app")) {
        return "top:" + entry["top"].asString() + ":" + entry["app"]["package"].asString();
    }
    if (entry.isMember("fields")) {
        const Json::Value& fields = entry["fields"];
        return "top:" + fields["current_top_activity"].asString() + ":" +
               fields["package_name"].asString();
    }
    if (entry.isMember("topActivity")) return "top:" + entry["topActivity"].asString();
    if (entry.isMember("immersiveApp")) return "immersive:" + entry["immersiveApp"].asString();
    return "focus:" + entry["focusType"].asString();
}

}  // namespace

std::vector<std::string> Ears::take(const std::string& who, const Json::Value& answer) {
    std::vector<std::string> words;
    const unsigned dropped = answer["dropped"].asUInt();
    if (dropped > 0) words.push_back("(" + std::to_string(dropped) + " lost)");
    for (const Json::Value& entry : answer["heard"])
        words.push_back(wordOf(entry));
    for (const std::string& word : words)
        mEars[who][queueOf(who, word)].heard.push_back(word);
    return words;
}

std::vector<std::string> Ears::fresh(const std::string& who) const {
    std::vector<std::string> words;
    const auto found = mEars.find(who);
    if (found == mEars.end()) return words;
    for (const auto& [kind, queue] : found->second) {
        const auto first = queue.heard.begin() + static_cast<std::ptrdiff_t>(queue.passed);
        words.insert(words.end(), first, queue.heard.end());
    }
    return words;
}

bool Ears::passIfHeard(const std::string& who, const std::vector<std::string>& due, bool exactly) {
    std::map<std::string, std::vector<std::string>> dueByKind;
    for (const std::string& word : due)
        dueByKind[queueOf(who, word)].push_back(word);
    std::map<Queue*, size_t> ends;
    for (const auto& [kind, words] : dueByKind) {
        Queue& queue = mEars[who][kind];
        const auto end = endOf(queue, words, exactly);
        if (!end) return false;
        ends[&queue] = *end;
    }
    for (const auto& [queue, end] : ends)
        queue->passed = end;
    return true;
}

std::optional<size_t> Ears::endOf(const Queue& queue, const std::vector<std::string>& due,
                                  bool exactly) {
    size_t next = queue.passed;
    for (const std::string& word : due) {
        while (!exactly && next < queue.heard.size() && !fits(queue.heard[next], word))
            ++next;
        if (next == queue.heard.size() || !fits(queue.heard[next], word)) return {};
        ++next;
    }
    if (exactly && next != queue.heard.size()) return {};
    return next;
}

std::string Ears::queueOf(const std::string& who, const std::string& word) {
    if (who == kHelper || who == kTelemetry) return "";
    return word.substr(0, word.find(':'));
}

bool Ears::fits(const std::string& heard, const std::string& expected) {
    return heard == expected || heard.starts_with(expected + ":");
}

}  // namespace sim::scenario

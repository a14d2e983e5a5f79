// SPDX-License-Identifier: Apache-2.0
// What the daemon's dumps must show at one moment.
#include "session/DumpFacts.h"

#include <json/reader.h>

#include <memory>

#include "process/LineChannel.h"

namespace sim {
namespace {

std::vector<std::string> sections(const DumpFacts& facts) {
    std::vector<std::string> sections{"=== VrFocusService ===\n\n=== Clients ===\n"};
    for (const auto& [type, pids] : facts.listeners) {
        std::string text = " Type: " + std::to_string(type) +
                           " Num: " + std::to_string(pids.size()) + " PIDs:\n";
        for (const int pid : pids)
            text += "  " + std::to_string(pid) + "\n";
        sections.back() += text;
    }
    sections.back() += "\n=== Current State ===\n";
    sections.push_back("\n = Top Activity =\n  " + facts.told.top + "\n");
    std::string immersive = "\n = Immersive App =\n";
    if (facts.told.pid != 0) {
        immersive += "  Package: " + facts.told.immersive +
                     " UID: " + std::to_string(facts.told.uid) +
                     ", PID: " + std::to_string(facts.told.pid) + "\n";
    }
    sections.push_back(immersive + "\n = Last ");
    return sections;
}

void compare(const char* key, const Json::Value& expected, const Json::Value& got,
             std::vector<std::string>* lines) {
    if (expected == got) return;
    lines->push_back(std::string(key) + ": expected " + toLine(expected) + ", got " + toLine(got));
}

}  // namespace

std::vector<std::string> missingInText(const DumpFacts& facts, const std::string& text) {
    std::vector<std::string> missing;
    for (const std::string& section : sections(facts)) {
        if (text.find(section) == std::string::npos) missing.push_back(section);
    }
    return missing;
}

std::vector<std::string> wrongInJson(const DumpFacts& facts, const std::string& text) {
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value dump;
    std::string problem;
    if (!reader->parse(text.data(), text.data() + text.size(), &dump, &problem)) return {problem};

    Json::Value types(Json::arrayValue);
    for (const auto& [type, pids] : facts.listeners) {
        Json::Value& row = types.append(Json::objectValue);
        row["type"] = type;
        row["size"] = static_cast<int>(pids.size());
        row["listeners"] = Json::arrayValue;
        for (const int pid : pids)
            row["listeners"].append(pid);
    }
    std::vector<std::string> wrong;
    compare("types", types, dump["types"], &wrong);
    const Json::Value& policy = dump["focusPolicy"];
    if (!policy.isObject()) {
        wrong.push_back("focusPolicy: no object");
        return wrong;
    }
    compare("topActivityPackage", facts.told.top, policy["topActivityPackage"], &wrong);
    compare("immersiveApp", facts.told.immersive, policy["immersiveApp"], &wrong);
    return wrong;
}

}  // namespace sim

// SPDX-License-Identifier: Apache-2.0
// What the daemon answers at one moment, and what it should.
#include "session/Answers.h"

#include <set>

namespace sim {
namespace {

std::string textOf(const std::map<std::string, Verdict>& focus, const std::string& name,
                   bool Verdict::*type) {
    const auto found = focus.find(name);
    if (found == focus.end()) return "unknown";
    return found->second.*type ? "yes" : "no";
}

std::string orNone(const std::string& name) {
    return name.empty() ? "none" : name;
}

void compare(const std::string& what, const std::string& expected, const std::string& got,
             std::vector<std::string>* lines) {
    if (expected != got) lines->push_back(what + ": expected " + expected + ", got " + got);
}

}  // namespace

std::vector<std::string> differences(const Answers& expected, const Answers& got) {
    std::vector<std::string> lines;
    std::set<std::string> names;
    for (const auto& [name, verdict] : expected.focus)
        names.insert(name);
    for (const auto& [name, verdict] : got.focus)
        names.insert(name);
    for (const std::string& name : names) {
        for (const auto& [what, type] :
             {std::pair("head", &Verdict::head), {"input", &Verdict::input}}) {
            compare(std::string(what) + " of " + name, textOf(expected.focus, name, type),
                    textOf(got.focus, name, type), &lines);
        }
    }
    compare("immersive app", orNone(expected.immersive), orNone(got.immersive), &lines);
    compare("top activity", orNone(expected.top), orNone(got.top), &lines);
    compare("problem", orNone(expected.problem), orNone(got.problem), &lines);
    return lines;
}

}  // namespace sim

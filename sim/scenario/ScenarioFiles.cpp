// SPDX-License-Identifier: Apache-2.0
// Scenarios as a person names them.
#include "scenario/ScenarioFiles.h"

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <tuple>
#include <vector>

#include "scenario/Vocabulary.h"

namespace sim::scenario {
namespace {

namespace fs = std::filesystem;

const fs::path kFolder = "scenarios";
const char* const kEnding = ".scenario";
constexpr size_t kNamed = 3;
constexpr size_t kTellingWord = 4;  // letters of a word that is no "the" or "a"

bool isThere(const fs::path& path) {
    std::error_code ignored;
    return fs::exists(path, ignored) && !fs::is_directory(path, ignored);
}

/** How many telling words of what was meant stand in a name. */
size_t sharedWords(const std::string& meant, const std::string& name) {
    size_t shared = 0;
    std::istringstream words(meant);
    for (std::string word; std::getline(words, word, '-');) {
        if (word.size() >= kTellingWord && name.find(word) != std::string::npos) ++shared;
    }
    return shared;
}

std::vector<std::string> nearestTo(const std::string& meant) {
    std::vector<std::string> names;
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator(kFolder, ignored)) {
        if (entry.path().extension() == kEnding) names.push_back(entry.path().stem());
    }
    const auto rank = [&](const std::string& name) {
        return std::tuple(-static_cast<long>(sharedWords(meant, name)),
                          distanceBetween(meant, name), name);
    };
    std::sort(names.begin(), names.end(), [&](const std::string& left, const std::string& right) {
        return rank(left) < rank(right);
    });
    names.resize(std::min(names.size(), kNamed));
    return names;
}

}  // namespace

FoundScenario findScenario(const std::string& name) {
    for (const fs::path& path : {fs::path(name), kFolder / name}) {
        for (const char* ending : {"", kEnding}) {
            if (isThere(path.string() + ending)) return {path.string() + ending, ""};
        }
    }
    const fs::path meant = fs::path(name).filename();
    const std::vector<std::string> nearest =
            nearestTo(meant.extension() == kEnding ? meant.stem() : meant);
    std::string complaint = "there is no scenario '" + name + "'";
    if (!nearest.empty()) complaint += "; did you mean " + joined(nearest) + "?";
    return {name, complaint};
}

}  // namespace sim::scenario

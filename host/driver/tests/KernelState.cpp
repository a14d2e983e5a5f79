// SPDX-License-Identifier: Apache-2.0
#include "KernelState.h"

#include <android-base/file.h>

#include <sstream>
#include <stdexcept>

namespace binderhost::tests {
namespace {

const char* const kState = "/sys/kernel/debug/binder/state";

/** A reference's line ends in "d" and the address of its death link, of zeros when it has none. */
bool hasDeathLink(const std::string& line) {
    const size_t link = line.rfind(" d ");
    return link != std::string::npos && line.find_first_not_of('0', link + 3) != std::string::npos;
}

}  // namespace

std::map<std::string, uint64_t> parseKernelState(const std::string& text) {
    static const std::map<std::string, std::string> kFigures{{"proc", "processes"},
                                                             {"thread", "threads"},
                                                             {"node", "nodes"},
                                                             {"ref", "handles"},
                                                             {"buffer", "buffers"}};
    std::map<std::string, uint64_t> state{{"death_links", 0}};
    for (const auto& [word, figure] : kFigures)
        state[figure] = 0;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string word;
        words >> word;
        const auto figure = kFigures.find(word);
        if (figure == kFigures.end()) continue;
        ++state[figure->second];
        if (word == "ref" && hasDeathLink(line)) ++state["death_links"];
    }
    return state;
}

std::map<std::string, uint64_t> kernelState() {
    std::string text;
    if (!android::base::ReadFileToString(kState, &text)) {
        throw std::runtime_error(std::string(kState) + " cannot be read");
    }
    return parseKernelState(text);
}

}  // namespace binderhost::tests

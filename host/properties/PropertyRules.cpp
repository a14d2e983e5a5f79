// SPDX-License-Identifier: Apache-2.0
//
// Property rules, by ASCII alone: the locale must not decide what a name is.
#include "PropertyRules.h"

#include <sys/system_properties.h>

#include <algorithm>

namespace hostproperties {

namespace {

bool isNameCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::string_view("_-@:.").find(c) != std::string_view::npos;
}

bool isControlCharacter(char c) {
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7f;
}

}  // namespace

std::string whyNoName(std::string_view name) {
    if (name.empty()) return "it is empty";
    if (name.size() >= PROP_NAME_MAX) {
        return "it is longer than " + std::to_string(PROP_NAME_MAX - 1) + " bytes";
    }
    if (!std::all_of(name.begin(), name.end(), isNameCharacter)) {
        return "it has characters other than letters, digits and \"_-@:.\"";
    }
    if (name.front() == '.' || name.back() == '.' || name.find("..") != name.npos) {
        return "a dot begins, ends or is doubled in it";
    }
    return {};
}

std::string whyNoValue(std::string_view value) {
    if (value.size() >= PROP_VALUE_MAX) {
        return "it is longer than " + std::to_string(PROP_VALUE_MAX - 1) + " bytes";
    }
    if (std::any_of(value.begin(), value.end(), isControlCharacter)) {
        return "it has control characters";
    }
    return {};
}

bool isReadOnly(std::string_view name) {
    return name.starts_with("ro.");
}

}  // namespace hostproperties

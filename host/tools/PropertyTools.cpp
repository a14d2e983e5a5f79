// SPDX-License-Identifier: Apache-2.0
//
// Property tools, from words to the store.
#include "PropertyTools.h"

#include <map>

namespace tools {

using hostproperties::PropertyStore;
using hostproperties::Status;

namespace {

constexpr int kOk = 0;
constexpr int kFailure = 1;
constexpr int kUsageError = 2;

constexpr const char* kGetpropUsage =
        "usage: getprop [NAME [DEFAULT]]\n"
        "\n"
        "Prints a property's value, or DEFAULT when it is unset or empty; without NAME, all\n"
        "properties. They stand in the file that HOST_PROPERTIES names, else in the folder of\n"
        "the host's runtime files.\n";

constexpr const char* kSetpropUsage =
        "usage: setprop NAME VALUE\n"
        "\n"
        "Gives a property a value, at once for all running processes. Names that begin with\n"
        "\"ro.\" can be set once. The store is the file that HOST_PROPERTIES names, else one in\n"
        "the folder of the host's runtime files.\n";

bool asksForHelp(const std::vector<std::string>& arguments) {
    return arguments.size() == 1 && arguments[0] == "--help";
}

/** A first word that looks like an option is a mistake: no name begins with two dashes here. */
bool hasUnknownOption(const std::vector<std::string>& arguments) {
    return !arguments.empty() && arguments[0].starts_with("--");
}

/** What is wrong with a command line that a tool does not take. */
std::string mistake(const std::vector<std::string>& arguments) {
    if (hasUnknownOption(arguments)) return "unknown option '" + arguments[0] + "'";
    if (arguments.empty()) return "a name and a value are missing";
    if (arguments.size() == 1) return "a value is missing";
    return "too many arguments: " + std::to_string(arguments.size());
}

int usageError(const char* tool, const std::vector<std::string>& arguments, const char* usage,
               std::ostream& err) {
    err << tool << ": " << mistake(arguments) << '\n' << usage;
    return kUsageError;
}

void listAll(const PropertyStore& store, std::ostream& out) {
    std::map<std::string, std::string> sorted;
    store.forEach([&](const std::string& name, const std::string& value) { sorted[name] = value; });
    for (const auto& [name, value] : sorted)
        out << '[' << name << "]: [" << value << "]\n";
}

}  // namespace

int getprop(const std::vector<std::string>& arguments, const PropertyStore& store,
            std::ostream& out, std::ostream& err) {
    if (asksForHelp(arguments)) {
        out << kGetpropUsage;
        return kOk;
    }
    if (arguments.size() > 2 || hasUnknownOption(arguments)) {
        return usageError("getprop", arguments, kGetpropUsage, err);
    }
    if (arguments.empty()) {
        listAll(store, out);
        return kOk;
    }
    std::string value = store.get(arguments[0]).value_or("");
    if (value.empty() && arguments.size() == 2) value = arguments[1];
    out << value << '\n';
    return kOk;
}

int setprop(const std::vector<std::string>& arguments, PropertyStore& store, std::ostream& out,
            std::ostream& err) {
    if (asksForHelp(arguments)) {
        out << kSetpropUsage;
        return kOk;
    }
    if (arguments.size() != 2 || hasUnknownOption(arguments)) {
        return usageError("setprop", arguments, kSetpropUsage, err);
    }
    const Status status = store.set(arguments[0], arguments[1]);
    if (status.ok()) return kOk;
    err << "setprop: " << status.message << '\n';
    return kFailure;
}

}  // namespace tools

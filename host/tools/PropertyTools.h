// SPDX-License-Identifier: Apache-2.0
//
// Property tools: getprop and setprop, over any store.
//
//      getprop                 all properties, "[name]: [value]" a line, in order of the names
//      getprop NAME [DEFAULT]  one value; the default, else nothing, when it is unset or empty
//      setprop NAME VALUE
//
// Exit status: 0; 1 when a change fails, with the reason on `err`; 2 for a command line that is
// none, with the usage on `err`.
#pragma once

#include <properties/PropertyStore.h>

#include <ostream>
#include <string>
#include <vector>

namespace tools {

[[nodiscard]] int getprop(const std::vector<std::string>& arguments,
                          const hostproperties::PropertyStore& store, std::ostream& out,
                          std::ostream& err);

[[nodiscard]] int setprop(const std::vector<std::string>& arguments,
                          hostproperties::PropertyStore& store, std::ostream& out,
                          std::ostream& err);

}  // namespace tools

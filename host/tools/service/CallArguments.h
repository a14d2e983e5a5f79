// SPDX-License-Identifier: Apache-2.0
//
// Call arguments: a request's contents, from words such as "i32 5 s16 text null".
#pragma once

#include <binder/Parcel.h>

#include <optional>
#include <string>
#include <vector>

namespace tools {

/** What stands behind "service call NAME". Values wait as words until they can be written. */
struct CallArguments {
    struct Value {
        std::string type;
        /** Empty for a type that has none. */
        std::string text;
    };

    uint32_t code = 0;
    std::vector<Value> values;
};

/**
 * The words behind the name: the code, then the values. Every value is checked. Empty for words
 * that are none, with what is wrong with them in `error`.
 */
[[nodiscard]] std::optional<CallArguments> parseCallArguments(const std::vector<std::string>& words,
                                                              std::string* error);

/**
 * Appends the values to a parcel, which then owns the descriptors of the files that were opened.
 * False, with the reason in `error`, when a file cannot be opened or the parcel takes no more.
 */
[[nodiscard]] bool writeCallArguments(const CallArguments& arguments, android::Parcel* parcel,
                                      std::string* error);

}  // namespace tools

// SPDX-License-Identifier: Apache-2.0
//
// Message fields: a protocol buffer message of any type as names and JSON values.
#pragma once

#include <google/protobuf/message.h>
#include <json/value.h>

#include <string>
#include <utility>
#include <vector>

namespace hosttelemetry {

/**
 * The present fields in order of their numbers, under the names of the .proto file, then the
 * unknown ones under their numbers. Numbers stay numbers, bytes are hexadecimal, a repeated field
 * is an array; a message inside is an object, an unknown group is not shown.
 */
[[nodiscard]] std::vector<std::pair<std::string, Json::Value>> fieldsOf(
        const google::protobuf::Message& message);

}  // namespace hosttelemetry

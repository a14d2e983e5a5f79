// SPDX-License-Identifier: Apache-2.0
//
// What can be called of each simulated service: names of methods and their transaction codes.
//
// Binder-free, so that a controller can check a name before any process runs.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

struct ServiceMethod {
    const char* name;
    uint32_t code;
    bool isRegistration = false;  // keeps an observer of the caller
    bool isOneWay = false;        // has no reply
};

/** The methods of a service, in the order of their codes; empty for a name that is no service. */
[[nodiscard]] const std::vector<ServiceMethod>& methodsOf(const std::string& service);

/** Null when the service has no such method. */
[[nodiscard]] const ServiceMethod* findMethod(const std::string& service, std::string_view name);

}  // namespace sim

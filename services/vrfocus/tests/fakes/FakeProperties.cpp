// SPDX-License-Identifier: Apache-2.0
//
// Fake properties, and the property library's one function that the daemon calls.
#include "FakeProperties.h"

#include <cstdint>
#include <utility>

namespace NQS::OS {

FakeProperties& FakeProperties::instance() {
    static FakeProperties properties;
    return properties;
}

void FakeProperties::clear() {
    const std::lock_guard<std::mutex> lock(mMutex);
    mValues.clear();
    mReads.clear();
}

void FakeProperties::set(const std::string& name, bool value) {
    const std::lock_guard<std::mutex> lock(mMutex);
    mValues[name] = value;
}

bool FakeProperties::get(const std::string& name, bool defaultValue) {
    const std::lock_guard<std::mutex> lock(mMutex);
    mReads.push_back(name);
    const auto value = mValues.find(name);
    return value == mValues.end() ? defaultValue : value->second;
}

std::vector<std::string> FakeProperties::takeReads() {
    const std::lock_guard<std::mutex> lock(mMutex);
    return std::exchange(mReads, {});
}

}  // namespace NQS::OS

extern "C" int8_t property_get_bool(const char* key, int8_t defaultValue) {
    return NQS::OS::FakeProperties::instance().get(key, defaultValue != 0) ? 1 : 0;
}

// SPDX-License-Identifier: Apache-2.0
//
// Property functions: the platform's C interface over this process's store. Which file that is,
// is read from the environment at the first call.
#define LOG_TAG "host_properties"

#include <android-base/no_destructor.h>
#include <cutils/properties.h>
#include <errno.h>
#include <inttypes.h>
#include <log/log.h>
#include <properties/PropertyStore.h>
#include <string.h>

#include <algorithm>
#include <limits>
#include <optional>
#include <string>

using hostproperties::PropertyStore;

namespace {

/** Never destroyed: other threads may still ask while the process exits. */
PropertyStore& processStore() {
    static android::base::NoDestructor<PropertyStore> store(hostproperties::defaultStorePlace());
    return *store;
}

/** An empty value counts as none. */
std::optional<std::string> valueOf(const char* key) {
    if (!key) return std::nullopt;
    std::optional<std::string> value = processStore().get(key);
    if (value && value->empty()) return std::nullopt;
    return value;
}

int64_t numberOf(const char* key, int64_t min, int64_t max, int64_t defaultValue) {
    const std::optional<std::string> value = valueOf(key);
    if (!value) return defaultValue;
    char* end = nullptr;
    errno = 0;
    const intmax_t number = strtoimax(value->c_str(), &end, /*base=*/0);
    if (end == value->c_str() || errno == ERANGE) return defaultValue;
    return number < min || number > max ? defaultValue : number;
}

}  // namespace

int property_get(const char* key, char* value, const char* default_value) {
    const std::string text = valueOf(key).value_or(default_value ? default_value : "");
    const size_t length = std::min<size_t>(text.size(), PROPERTY_VALUE_MAX - 1);
    memcpy(value, text.data(), length);
    value[length] = '\0';
    return static_cast<int>(length);
}

int8_t property_get_bool(const char* key, int8_t default_value) {
    const std::optional<std::string> value = valueOf(key);
    if (!value) return default_value;
    for (const char* word : {"1", "true", "y", "yes", "on"}) {
        if (*value == word) return 1;
    }
    for (const char* word : {"0", "false", "n", "no", "off"}) {
        if (*value == word) return 0;
    }
    return default_value;
}

int64_t property_get_int64(const char* key, int64_t default_value) {
    using Limits = std::numeric_limits<int64_t>;
    return numberOf(key, Limits::min(), Limits::max(), default_value);
}

int32_t property_get_int32(const char* key, int32_t default_value) {
    using Limits = std::numeric_limits<int32_t>;
    return static_cast<int32_t>(numberOf(key, Limits::min(), Limits::max(), default_value));
}

int property_set(const char* key, const char* value) {
    if (!key) return -EINVAL;
    const hostproperties::Status status = processStore().set(key, value ? value : "");
    if (!status.ok()) ALOGE("cannot set a property: %s", status.message.c_str());
    return -status.error;
}

int property_list(void (*propfn)(const char* key, const char* value, void* cookie), void* cookie) {
    processStore().forEach([&](const std::string& name, const std::string& value) {
        propfn(name.c_str(), value.c_str(), cookie);
    });
    return 0;
}

// SPDX-License-Identifier: Apache-2.0
//
// Property functions: the rules of the platform's header.
#include <cutils/properties.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "TempStore.h"

namespace {

using hostproperties::test::TempStore;

/** The process's store is found once, at the first question: all tests share it. */
class Properties : public testing::Test {
protected:
    static void SetUpTestSuite() {
        sStore = new TempStore;
        setenv("HOST_PROPERTIES", sStore->path().c_str(), /*overwrite=*/1);
        // Asked before there is a store: what is set later must be seen all the same.
        EXPECT_EQ(property_get_bool("debug.foo", 1), 1);
    }
    static void TearDownTestSuite() { delete sStore; }

    static std::string get(const char* key, const char* defaultValue) {
        char value[PROPERTY_VALUE_MAX];
        memset(value, 'x', sizeof(value));
        const int length = property_get(key, value, defaultValue);
        EXPECT_EQ(static_cast<size_t>(length), strnlen(value, sizeof(value)));
        return value;
    }

    static inline TempStore* sStore = nullptr;
};

}  // namespace

TEST_F(Properties, TextIsTheValueElseTheDefaultElseEmpty) {
    ASSERT_EQ(property_set("debug.text", "value"), 0);
    ASSERT_EQ(property_set("debug.empty", ""), 0);
    EXPECT_EQ(get("debug.text", "default"), "value");
    EXPECT_EQ(get("debug.empty", "default"), "default");
    EXPECT_EQ(get("debug.none", "default"), "default");
    EXPECT_EQ(get("debug.none", nullptr), "");
    EXPECT_EQ(get(nullptr, "default"), "default");
    const std::string tooLong(200, 'd');
    EXPECT_EQ(get("debug.none", tooLong.c_str()), std::string(PROPERTY_VALUE_MAX - 1, 'd'));
}

TEST_F(Properties, BooleanTakesTheListedWordsOnly) {
    for (const char* word : {"1", "true", "y", "yes", "on"}) {
        ASSERT_EQ(property_set("debug.bool", word), 0);
        EXPECT_EQ(property_get_bool("debug.bool", 0), 1) << word;
    }
    for (const char* word : {"0", "false", "n", "no", "off"}) {
        ASSERT_EQ(property_set("debug.bool", word), 0);
        EXPECT_EQ(property_get_bool("debug.bool", 1), 0) << word;
    }
    for (const char* word : {"", "2", "00", "True", "ON", " on", "off ", "t", "yess", "enable"}) {
        ASSERT_EQ(property_set("debug.bool", word), 0);
        EXPECT_EQ(property_get_bool("debug.bool", 0), 0) << word;
        EXPECT_EQ(property_get_bool("debug.bool", 1), 1) << word;
        EXPECT_EQ(property_get_bool("debug.bool", 7), 7) << word;
    }
    EXPECT_EQ(property_get_bool("debug.none", 1), 1);
    EXPECT_EQ(property_get_bool(nullptr, 1), 1);
}

TEST_F(Properties, NumbersFollowTheirPrefix) {
    constexpr int64_t kDefault = -77;
    const struct {
        const char* text;
        int64_t as64;
        int64_t as32;
    } rows[] = {
            {"42", 42, 42},
            {"-42", -42, -42},
            {"+42", 42, 42},
            {"0x1F", 31, 31},
            {"0X1f", 31, 31},
            {"010", 8, 8},
            {"  42", 42, 42},
            {"42 ", 42, 42},
            {"42abc", 42, 42},
            {"", kDefault, kDefault},
            {"abc", kDefault, kDefault},
            {"-", kDefault, kDefault},
            {"2147483647", 2147483647, 2147483647},
            {"2147483648", 2147483648, kDefault},
            {"-2147483648", INT32_MIN, INT32_MIN},
            {"-2147483649", -2147483649, kDefault},
            {"9223372036854775807", INT64_MAX, kDefault},
            {"-9223372036854775808", INT64_MIN, kDefault},
            {"9223372036854775808", kDefault, kDefault},
    };
    for (const auto& row : rows) {
        ASSERT_EQ(property_set("debug.number", row.text), 0);
        EXPECT_EQ(property_get_int64("debug.number", kDefault), row.as64) << row.text;
        EXPECT_EQ(property_get_int32("debug.number", kDefault), row.as32) << row.text;
    }
    EXPECT_EQ(property_get_int64(nullptr, kDefault), kDefault);
    EXPECT_EQ(property_get_int32("debug.none", kDefault), kDefault);
}

TEST_F(Properties, FailedSetIsNegative) {
    EXPECT_LT(property_set(nullptr, "1"), 0);
    EXPECT_LT(property_set("bad name", "1"), 0);
    EXPECT_EQ(property_set("debug.null", nullptr), 0);
    EXPECT_EQ(get("debug.null", "default"), "default");
}

TEST_F(Properties, ListGivesEachNameOnce) {
    ASSERT_EQ(property_set("debug.listed", "1"), 0);
    ASSERT_EQ(property_set("debug.listed", "2"), 0);
    std::vector<std::string> found;
    const auto collect = [](const char* key, const char* value, void* cookie) {
        if (strcmp(key, "debug.listed") == 0) {
            static_cast<std::vector<std::string>*>(cookie)->push_back(value);
        }
    };
    EXPECT_EQ(property_list(collect, &found), 0);
    EXPECT_THAT(found, testing::ElementsAre("2"));
}

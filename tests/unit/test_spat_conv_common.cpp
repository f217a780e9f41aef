#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fixture.h"
#include "spat_conv_common.h"

namespace {

using testing::ElementsAre;

using fakes::takeLog;

class JsonMember : public fakes::Fixture {
protected:
    ~JsonMember() override { cJSON_Delete(json); }

    cJSON* json = cJSON_Parse(R"({"one":1,"cut":2.9,"minusCut":-2.9,"above":2147483648,"below":-2147483649,
        "text":"lamp","empty":"","yes":true,"no":false,"nothing":null,"object":{"one":5},"list":[7],"One":9})");
};

TEST_F(JsonMember, ReadsIntegers) {
    const std::pair<const char*, int64_t> cases[] = {
        {"one", 1}, {"cut", 2},  {"minusCut", -2}, {"above", 2147483647}, {"below", -2147483648},
        {"yes", 1}, {"text", 0}, {"list", 0},
    };
    for (const auto& [key, expected] : cases) {
        int64_t value = 77;
        EXPECT_EQ(GetIntDataFromJson(json, key, &value), 0) << key;
        EXPECT_EQ(value, expected) << key;
        EXPECT_EQ(GetIntDataFromJson(json, key, nullptr), 0) << key;
    }
    EXPECT_THAT(takeLog(), ElementsAre());
}

TEST_F(JsonMember, CopiesTexts) {
    const struct {
        const char* key;
        int32_t room;
        int32_t ret;
        std::string text;
    } cases[] = {
        {"text", 5, 0, "lamp"},  {"text", 4, 0, "lam"},     {"text", 1, 0, ""},      {"text", 0, 0, "kept"},
        {"text", -1, 0, "kept"}, {"empty", 5, 0, ""},       {"one", 5, -3, "kept"},  {"nothing", 5, -3, "kept"},
        {"list", 5, -3, "kept"}, {"object", 5, -3, "kept"}, {"Text", 5, -3, "kept"},
    };
    for (const auto& row : cases) {
        char text[8] = "kept";
        EXPECT_EQ(GetStringFromJson(json, row.key, text, row.room), row.ret) << row.key << row.room;
        EXPECT_EQ(text, row.text) << row.key << row.room;
    }
    EXPECT_THAT(takeLog(), ElementsAre("SCOM 2 Get one item failed!", "SCOM 2 Get nothing item failed!",
                                       "SCOM 2 Get list item failed!", "SCOM 2 Get object item failed!",
                                       "SCOM 2 Get Text item failed!"));
}

TEST_F(JsonMember, ReadsBooleans) {
    for (const char* key : {"no", "one", "text", "nothing", "object", "list", "absent"}) {
        EXPECT_FALSE(GetBoolFromJson(json, key)) << key;
    }
    EXPECT_TRUE(GetBoolFromJson(json, "yes"));
    EXPECT_THAT(takeLog(), ElementsAre("SCOM 2 Get absent item failed!"));
}

TEST_F(JsonMember, RejectsMissingMembersAndNullArguments) {
    int64_t value = 77;
    char text[8] = "kept";
    EXPECT_EQ(GetIntDataFromJson(json, "two", &value), -3);
    EXPECT_EQ(GetIntDataFromJson(cJSON_GetObjectItem(json, "one"), "two", &value), -3);
    EXPECT_EQ(GetStringFromJson(cJSON_GetObjectItem(json, "list"), "two", text, 8), -3);
    EXPECT_EQ(takeLog(), std::vector<std::string>(3, "SCOM 2 Get two item failed!"));

    EXPECT_EQ(GetIntDataFromJson(nullptr, "one", &value), -2);
    EXPECT_EQ(GetIntDataFromJson(json, nullptr, &value), -2);
    EXPECT_EQ(GetStringFromJson(nullptr, "text", text, 8), -2);
    EXPECT_EQ(GetStringFromJson(json, nullptr, text, 8), -2);
    EXPECT_EQ(GetStringFromJson(json, "text", nullptr, 8), -2);
    EXPECT_FALSE(GetBoolFromJson(nullptr, "yes"));
    EXPECT_FALSE(GetBoolFromJson(json, nullptr));
    EXPECT_EQ(takeLog(), std::vector<std::string>(7, "SCOM 2 input param error"));
    EXPECT_EQ(value, 77);
    EXPECT_STREQ(text, "kept");
}

} // namespace

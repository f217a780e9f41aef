#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fixture.h"
#include "spat_conv_common.h"

namespace {

class JsonMember : public fakes::Fixture {
protected:
    ~JsonMember() override { cJSON_Delete(json); }

    cJSON* json = cJSON_Parse(R"({"one":1,"cut":2.9,"minusCut":-2.9,"above":2147483648,"below":-2147483649,
        "text":"lamp","yes":true,"no":false,"list":[7],"One":9})");
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
    }
}

TEST_F(JsonMember, CopiesTexts) {
    const struct {
        const char* key;
        int32_t room;
        int32_t ret;
        std::string text;
    } cases[] = {
        {"text", 5, 0, "lamp"},  {"text", 4, 0, "lam"},  {"text", 0, 0, "kept"},
        {"text", -1, 0, "kept"}, {"one", 5, -3, "kept"}, {"Text", 5, -3, "kept"},
    };
    for (const auto& row : cases) {
        char text[8] = "kept";
        EXPECT_EQ(GetStringFromJson(json, row.key, text, row.room), row.ret) << row.key << row.room;
        EXPECT_EQ(text, row.text) << row.key << row.room;
    }
    EXPECT_THAT(fakes::takeLog(), testing::ElementsAre("SCOM 2 Get one item failed!", "SCOM 2 Get Text item failed!"));
}

TEST_F(JsonMember, ReadsBooleans) {
    EXPECT_TRUE(GetBoolFromJson(json, "yes"));
    EXPECT_FALSE(GetBoolFromJson(json, "no") || GetBoolFromJson(json, "one") || GetBoolFromJson(json, "absent"));
}

TEST_F(JsonMember, RejectsMissingIntegers) {
    int64_t value = 77;
    EXPECT_EQ(GetIntDataFromJson(json, "two", &value), -3);
    EXPECT_EQ(GetIntDataFromJson(nullptr, "one", &value), -2);
    EXPECT_EQ(value, 77);
}

} // namespace

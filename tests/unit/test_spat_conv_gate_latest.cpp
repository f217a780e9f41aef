#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include "spat_conv_gate_latest.h"

struct Value {
    uint64_t numbers[200] = {};
};

TEST(Latest, ReaderGetsWholeValuesUpToTheNewest) {
    constexpr uint64_t LAST = 100000;
    v2xspatconv_latest<Value> latest;
    Value value{{1}};
    latest.Read(value);
    EXPECT_EQ(value.numbers[0], 0U) << "before the first value";
    const std::jthread writer([&latest] {
        for (uint64_t i = 1; i <= LAST; i++) {
            std::ranges::fill(latest.Slot().numbers, i);
            latest.Publish();
        }
    });
    for (uint64_t newest = 0; newest < LAST; newest = value.numbers[0]) {
        latest.Read(value);
        ASSERT_THAT(value.numbers, testing::Each(testing::AllOf(value.numbers[0], testing::Ge(newest))));
    }
}

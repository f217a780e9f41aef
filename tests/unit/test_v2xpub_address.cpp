#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <utility>

#include "v2x/v2xpub.h"
#include "v2xpub_refused.h"

namespace {

using Block = std::pair<uint32_t, uint32_t>; // network and mask

TEST(Address, ParsesAddressesAndBlocks) {
    const struct {
        const char* text;
        std::optional<Block> block;
    } cases[] = {
        {"192.168.1.20", Block{0xC0A80114, 0xFFFFFFFF}},
        {"192.168.1.0/24", Block{0xC0A80100, 0xFFFFFF00}},
        {"255.255.255.254/31", Block{0xFFFFFFFE, 0xFFFFFFFE}},
        {"0.0.0.0/0", Block{0, 0}},
        {"192.168.1.20/24", {}}, // bits beyond the prefix
        {"1.2.3.4/33", {}},
        {"1.2.3.4/", {}},
        {"1.2.3.0/24/24", {}},
        {"1.2.3.0/4294967320", {}}, // 24 beyond 32 bits
        {"", {}},
        {" 1.2.3.4", {}},
        {"1.2.3", {}},
        {"192.168.100.1000/", {}}, // 17 characters
        {"localhost", {}},
        {nullptr, {}},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.text != nullptr ? row.text : "null");
        v2xpub_addressBlock_t block{1, 2};
        EXPECT_EQ(v2xpub_ParseAddressBlock(row.text, &block), row.block.has_value() ? 0 : -2);
        EXPECT_EQ(Block(block.network, block.mask), row.block.value_or(Block{1, 2}));
    }
}

TEST(Address, AcceptsSendersOfAnyBlockAndEverySenderWithoutBlocks) {
    const v2xpub_senders_t one = {1, {{0xC0A80100, 0xFFFFFF00}}};
    const v2xpub_senders_t two = {2, {{0x0A000001, 0xFFFFFFFF}, {0xC0A80100, 0xFFFFFF00}}};
    const v2xpub_senders_t all = {1, {{0, 0}}};
    const struct {
        uint32_t ip;
        bool isOfOne;
        bool isOfTwo;
    } cases[] = {
        {0xC0A80100, true, true},  {0xC0A801FF, true, true},   {0xC0A80200, false, false},
        {0x0A000001, false, true}, {0x0A000002, false, false}, {0, false, false},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(v2xpub_IsSender(one, row.ip), row.isOfOne) << row.ip;
        EXPECT_EQ(v2xpub_IsSender(two, row.ip), row.isOfTwo) << row.ip;
        EXPECT_TRUE(v2xpub_IsSender(all, row.ip) && v2xpub_IsSender({}, row.ip)) << row.ip;
    }
}

TEST(Address, LogsSixteenNewSendersAndThenOneLineAMinute) {
    v2xpub_RefusedLog log;
    v2xpub_RefusedLog::Clock::time_point now{std::chrono::hours(1)};
    for (uint32_t ip = 1; ip <= 16; ip++) {
        EXPECT_TRUE(log.Pass(ip, now)) << ip;
        EXPECT_FALSE(log.Pass(ip, now)) << ip;
    }
    for (int minute = 0; minute < 3; minute++) {
        now += std::chrono::seconds(59);
        EXPECT_FALSE(log.Pass(17, now)) << "a forged address does not count as new";
        now += std::chrono::seconds(1);
        EXPECT_TRUE(log.Pass(17, now));
        EXPECT_FALSE(log.Pass(1, now));
    }
}

} // namespace

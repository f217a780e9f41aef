#include <gtest/gtest.h>

#include <thread>

#include "journal_entries.h"

namespace {

using Head = uint32_t[2]; // writer, number

void write(uint32_t writer, uint32_t number, size_t size) {
    v2x_journal::WriteRecord(v2x_journalKind::sample, Head{writer, number}, pattern(size, 1));
}

TEST(Journal, CountsTheNewestEntriesThatDoNotFit) {
    constexpr uint32_t WRITTEN = 1200; // 1024 entries fill the ring
    takeEntries<Head>([](auto&, const Bytes&) { return ""; });
    for (int round = 0; round < 3; round++) {
        for (uint32_t i = 0; i < WRITTEN; i++) {
            write(0, i, 1008);
        }
        uint32_t next = 0;
        takeEntries<Head>([&next](const Head& head, const Bytes&) {
            EXPECT_EQ(head[1], next++);
            return "";
        });
        EXPECT_GE(next, 1023U); // one less if the end of the ring has a gap
        EXPECT_EQ(next + v2x_journal::TakeLost(v2x_journalKind::sample), WRITTEN);
    }
}

TEST(Journal, KeepsEntriesOfTwoWritersWhole) {
    constexpr uint32_t EACH = 1500; // together 30 times the size of the ring
    const auto writeAll = [](uint32_t writer) {
        for (uint32_t i = 1; i <= EACH; i++) {
            write(writer, i, i % 7 == 0 ? 65528 : i % 1000);
        }
    };
    std::jthread first(writeAll, 0);
    std::jthread second(writeAll, 1);
    uint32_t last[2] = {};
    uint64_t done = 0;
    while (done < 2 * EACH) {
        done += takeEntries<Head>([&last](const Head& head, const Bytes& body) {
                    EXPECT_GT(head[1], last[head[0]]);
                    last[head[0]] = head[1];
                    EXPECT_EQ(body, pattern(head[1] % 7 == 0 ? 65528 : head[1] % 1000, 1));
                    return "";
                }).size();
        done += v2x_journal::TakeLost(v2x_journalKind::sample);
    }
}

} // namespace

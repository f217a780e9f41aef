#include <cstdlib>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fakes.h"
#include "spat_conv_phase_table.h"

namespace {

using testing::ElementsAre;

v2xlog_tag_t g_tag{"TEST"};

TEST(TimeBase, MinuteIsLocalAndMillisecondIsOfTheMinute) {
    const struct {
        const char* zone;
        uint64_t now;
        int32_t moy;
        int32_t secMark;
    } cases[] = {
        {"UTC", 1767225600000000, 0, 0},                             // 2026-01-01 00:00:00
        {"UTC", 1861919999999999, 527039, 59999},                    // 2028-12-31 23:59:59.999999, a leap year
        {"CST-8", 1772714096789000, 91954, 56789},                   // eight hours ahead
        {"XXX+3:30", 1767225600000000, 525390, 0},                   // still 2025-12-31 20:30
        {"CET-1CEST,M3.5.0,M10.5.0/3", 1782907200000000, 261480, 0}, // 2026-07-01 12:00 UTC, daylight saving
    };
    for (const auto& row : cases) {
        setenv("TZ", row.zone, 1);
        tzset();
        fakes::now = row.now;
        EXPECT_EQ(GetMoyOfTheYear(g_tag), row.moy) << row.zone << " " << row.now;
        EXPECT_EQ(GetSecMarkOfTheMinute(g_tag), row.secMark) << row.zone << " " << row.now;
    }
}

// A device phase table written entry by entry: phase id and number of states, each state's end time its index + 1.
class Table {
public:
    Table& add(uint8_t phaseId, uint8_t states, uint8_t mark = 0) {
        bytes[m_end++] = phaseId;
        bytes[m_end++] = states;
        for (uint8_t i = 0; i < states; i++) {
            bytes[m_end + 14] = mark;
            m_end += 15;
        }
        return *this;
    }
    std::span<const uint8_t> written() const { return {bytes, m_end}; }
    uint8_t bytes[V2XSPATCONV_PHASE_TABLE_SIZE] = {};

private:
    size_t m_end = 0;
};

// Offset of the entry that is found, -1 when there is none.
ptrdiff_t found(v2xspatconv_match match, const Table& table, uint16_t phaseId) {
    v2xspatconv_phaseIndex_t index;
    v2xspatconv_IndexPhases(match, table.written(), index);
    const uint8_t* entry = table.bytes;
    EXPECT_EQ(GetLMPhaseByPhaseId(g_tag, index, phaseId, &entry), 0);
    return entry == nullptr ? -1 : entry - table.bytes;
}

TEST(Lookup, TakesTheFirstOrTheLastEntryWithStates) {
    Table table;
    table.add(5, 1).add(7, 0).add(5, 2).add(9, 1).add(7, 1);
    const struct {
        v2xspatconv_match match;
        uint16_t phaseId;
        ptrdiff_t offset;
    } cases[] = {
        {v2xspatconv_match::last, 5, 19}, {v2xspatconv_match::first, 5, 0},        {v2xspatconv_match::first, 7, 68},
        {v2xspatconv_match::last, 9, 51}, {v2xspatconv_match::first, 256 + 5, -1}, {v2xspatconv_match::last, 0, -1},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(found(row.match, table, row.phaseId), row.offset) << row.phaseId;
    }
    EXPECT_EQ(GetLMPhaseByPhaseId(g_tag, v2xspatconv_phaseIndex_t(), 5, nullptr), -2);
}

TEST(Lookup, StaysInsideTheTable) {
    Table table;
    table.add(1, 255).add(2, 255).add(3, 0); // 3827 bytes each
    table.bytes[7655] = 255;                 // now the third one runs past the end
    EXPECT_EQ(found(v2xspatconv_match::last, table, 3), -1);
    EXPECT_EQ(found(v2xspatconv_match::last, table, 2), 3827);
}

class Copy : public testing::Test {
protected:
    // The record's entries as "spat phase:mark of its last state".
    std::vector<std::string> copied(v2xspatconv_match match = v2xspatconv_match::last) {
        memset(record, 0, sizeof record);
        v2xipc_phases_t* head = reinterpret_cast<v2xipc_phases_t*>(record);
        head->m_phaseNum = 77;
        v2xspatconv_CopyPhases(g_tag, config, match, table.written(), head);
        EXPECT_EQ(head->m_phaseNum, 77) << "the count stays as the device reported it";
        std::vector<std::string> entries;
        const uint8_t* entry = record + 13;
        while (entry[1] != 0) {
            const uint8_t* next = entry + 2 + 15 * entry[1];
            entries.push_back(std::to_string(entry[0]) + ":" + std::to_string(next[-1]));
            entry = next;
        }
        return entries;
    }

    spat_conv_config_t config = {};
    Table table;
    uint8_t record[V2XIPC_RECORD_SIZE] = {};
};

TEST_F(Copy, WithoutMappingPhasesKeepTheirNumbersInAscendingOrder) {
    table.add(32, 1, 1).add(40, 1, 2).add(1, 2, 3).add(33, 1, 4).add(7, 1, 5).add(7, 1, 6);
    EXPECT_THAT(copied(), ElementsAre("1:3", "7:6", "32:1"));
    EXPECT_THAT(copied(v2xspatconv_match::first), ElementsAre("1:3", "7:5", "32:1"));
}

TEST_F(Copy, AMappedDevicePhaseFeedsItsOwnNumberToo) {
    config.m_phase_relationship.m_phaseid[3] = 7;
    config.m_phase_relationship.m_phaseid[0] = 3;   // never looked at
    config.m_phase_relationship.m_phaseid[33] = 3;  // neither
    config.m_phase_relationship.m_phaseid[5] = 300; // matches nothing
    table.add(3, 1, 1).add(7, 1, 2).add(5, 1, 3).add(44, 1, 4);
    config.m_phase_relationship.m_phaseid[9] = 44;
    EXPECT_THAT(copied(), ElementsAre("3:2", "7:2", "9:4"));
    EXPECT_EQ(fakes::logged("======Ipc phaseId3:0[0]======").front().level, 5);
    EXPECT_EQ(fakes::logged("Get PhaseID error:300 77").front().level, 7);
}

TEST_F(Copy, The33rdEntryIsNeverFound) {
    for (uint8_t i = 0; i < 32; i++) {
        table.add(100, 1, 1);
    }
    table.add(1, 1, 2);
    EXPECT_TRUE(copied().empty());
}

TEST_F(Copy, WhatDoesNotFitTheRecordIsLeftOut) {
    config.m_phase_relationship.m_phaseid[2] = 1; // 2 x 3827 bytes are more than the record holds
    table.add(1, 255, 9);
    EXPECT_THAT(copied(), ElementsAre("1:9"));
    EXPECT_EQ(fakes::logged("phase 2 does not fit the SPAT record").size(), 1U);
}

} // namespace

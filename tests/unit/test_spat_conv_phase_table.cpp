#include <cstdlib>
#include <gtest/gtest.h>

#include "fakes.h"
#include "spat_conv_phase_table.h"

namespace {

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

// A device phase table written entry by entry: phase id and number of states.
class Table {
public:
    Table& add(uint8_t phaseId, uint8_t states) {
        bytes[m_end] = phaseId;
        bytes[m_end + 1] = states;
        m_end += 2U + 15U * states;
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
    EXPECT_EQ(found(v2xspatconv_match::last, table, 5), 19);
    EXPECT_EQ(found(v2xspatconv_match::first, table, 5), 0);
    EXPECT_EQ(found(v2xspatconv_match::first, table, 7), 68);
    EXPECT_EQ(found(v2xspatconv_match::first, table, 256 + 5), -1);
    EXPECT_EQ(GetLMPhaseByPhaseId(g_tag, v2xspatconv_phaseIndex_t(), 5, nullptr), -2);
}

TEST(Lookup, StaysInsideTheTable) {
    Table table;
    table.add(1, 255).add(2, 255).add(3, 0); // 3827 bytes each
    table.bytes[7655] = 255;                 // now the third one runs past the end
    EXPECT_EQ(found(v2xspatconv_match::last, table, 3), -1);
    EXPECT_EQ(found(v2xspatconv_match::last, table, 2), 3827);
}

// What is copied of a table whose first entry is mapped to SPAT phase 4 as well.
TEST(Copy, LeavesOutWhatDoesNotFitTheRecordAndKeepsTheCount) {
    spat_conv_config_t config = {};
    config.m_phase_relationship.m_phaseid[2] = 300; // matches nothing
    config.m_phase_relationship.m_phaseid[4] = 1;
    Table table;
    table.add(1, 255).add(5, 1); // 2 x 3827 bytes are more than the record holds
    uint8_t record[V2XIPC_RECORD_SIZE] = {};
    auto* head = reinterpret_cast<v2xipc_phases_t*>(record);
    head->m_phaseNum = 77;
    v2xspatconv_CopyPhases(g_tag, config, v2xspatconv_match::last, table.written(), head);
    EXPECT_EQ(head->m_phaseNum, 77) << "the count stays as the device reported it";
    EXPECT_EQ(record[13] * 256 + record[14], 256 + 255);
    EXPECT_EQ(record[13 + 3827], 0);
    EXPECT_EQ(fakes::logged("Get PhaseID error:300 77").front().level, 7);
    EXPECT_EQ(fakes::logged("phase 4 does not fit the SPAT record").size(), 1U);
    EXPECT_EQ(fakes::logged("======Ipc phaseId1:0[0]======").front().level, 5);
}

} // namespace

#include <cstdlib>
#include <gtest/gtest.h>
#include <utility>

#include "fixture.h"
#include "spat_conv_phase_table.h"

namespace {

v2xlog_tag_t g_tag{"TEST"};

using PhaseTable = fakes::Fixture;

// A record in the buffer that every adapter uses.
struct Record {
    alignas(8) uint8_t bytes[V2XIPC_RECORD_SIZE] = {};
    v2xipc_phases_t* head() { return reinterpret_cast<v2xipc_phases_t*>(bytes); }
};

TEST_F(PhaseTable, HeadHasLocalMinuteAndMillisecondOfOneClockReading) {
    const struct {
        const char* zone;
        uint64_t now;
        uint32_t moy;
        uint16_t secMark;
    } cases[] = {
        {"UTC", 1861919999999999, 527039, 59999},                    // 2028-12-31 23:59:59.999999, a leap year
        {"CET-1CEST,M3.5.0,M10.5.0/3", 1782907200000000, 261480, 0}, // 2026-07-01 12:00 UTC, daylight saving
    };
    for (const auto& row : cases) {
        setenv("TZ", row.zone, 1);
        tzset();
        fakes::now = row.now;
        Record record;
        EXPECT_EQ(v2xspatconv_FillIpcHead(g_tag, {}, record.head()), 0);
        EXPECT_EQ(uint32_t{record.head()->m_moy}, row.moy) << row.zone << " " << row.now;
        EXPECT_EQ(uint16_t{record.head()->m_secMark}, row.secMark) << row.zone << " " << row.now;
        EXPECT_EQ(std::exchange(fakes::clockReads, 0), 1);
    }
}

// A device phase table written entry by entry: phase id, number of states, end time and light of the first state.
struct Table {
    Table& add(uint8_t phaseId, uint8_t states, uint8_t end = 0, uint8_t light = 0) {
        bytes[m_end] = phaseId;
        bytes[m_end + 1] = states;
        bytes[m_end + 3] = light;
        bytes[m_end + 6] = end;
        m_end += 2U + 15U * states;
        return *this;
    }
    std::span<const uint8_t> written() const { return {bytes, m_end}; }
    uint8_t bytes[V2XSPATCONV_PHASE_TABLE_SIZE] = {};
    size_t m_end = 0;
};

// The copied entries as "id x states end".
std::string copied(v2xspatconv_match match, const Table& table, const phase_relationship_t& phases = {}) {
    Record record;
    v2xspatconv_findings_t findings;
    DealLMPhaseToIpcData(g_tag, phases.m_phaseid, match, table.written(), record.head(), findings);
    std::string text;
    for (size_t at = sizeof(v2xipc_phases_t); at + 17 < sizeof record.bytes && record.bytes[at] != 0;
         at += 2U + 15U * record.bytes[at + 1]) {
        text += std::to_string(record.bytes[at]) + "x" + std::to_string(record.bytes[at + 1]) + " " +
                std::to_string(record.bytes[at + 6]) + "; ";
    }
    return text;
}

TEST_F(PhaseTable, CopiesTheFirstOrTheLastEntryWithStates) {
    Table table;
    table.add(5, 1, 10).add(7, 0).add(5, 2, 20).add(9, 1, 30).add(7, 1, 40);
    EXPECT_EQ(copied(v2xspatconv_match::first, table), "5x1 10; 7x1 40; 9x1 30; ");
    EXPECT_EQ(copied(v2xspatconv_match::last, table), "5x2 20; 7x1 40; 9x1 30; ");
    phase_relationship_t phases = {};
    phases.m_phaseid[2] = 256 + 5; // matches nothing
    phases.m_phaseid[3] = 9;
    EXPECT_EQ(copied(v2xspatconv_match::first, table, phases), "3x1 30; 5x1 10; 7x1 40; 9x1 30; ");
}

TEST_F(PhaseTable, StaysInsideTableAndRecord) {
    Table table;
    table.add(1, 255).add(2, 255).add(3, 0); // 3827 bytes each
    table.bytes[7655] = 255;                 // the third entry now exceeds the table
    EXPECT_EQ(copied(v2xspatconv_match::last, table), "1x255 0; ");
    EXPECT_EQ(fakes::logged("phase 2 does not fit the SPAT record").size(), 1U);
}

// The findings as "duplicates PHASE:LIGHT/LIGHT... unmapped PHASE... cut off PHASE...".
std::string found(const Table& table, int8_t phaseNum, const phase_relationship_t& phases = {}) {
    Record record;
    record.head()->m_phaseNum = phaseNum;
    v2xspatconv_findings_t findings;
    DealLMPhaseToIpcData(g_tag, phases.m_phaseid, v2xspatconv_match::last, table.written(), record.head(), findings);
    std::string text = "duplicates";
    for (const auto& [phase, first, second] : std::span(findings.duplicates).first(findings.duplicateCount)) {
        text += " " + std::to_string(phase) + ":" + std::to_string(first) + "/" + std::to_string(second);
    }
    const auto list = [&text](const char* name, std::span<const uint64_t> words) {
        text += name;
        for (size_t phase = 0; phase < 64 * words.size(); phase++) {
            text += (words[phase / 64] >> phase % 64 & 1) != 0 ? " " + std::to_string(phase) : "";
        }
    };
    list(" unmapped", findings.unmapped);
    list(" cut off", {&findings.cutOff, 1});
    return text;
}

TEST_F(PhaseTable, FindsDuplicatesUnmappedAndOmittedPhases) {
    Table plain;
    plain.add(3, 1, 0, 5).add(7, 1, 0, 3).add(3, 1, 0, 5).add(9, 0, 0, 7);
    Table duplicates;
    duplicates.add(3, 1, 0, 5).add(7, 1, 0, 3).add(3, 1, 0, 3).add(3, 1, 0, 7).add(7, 2, 0, 0);
    Table unmapped;
    unmapped.add(0, 1).add(3, 1).add(33, 1).add(255, 1).add(200, 0);
    Table long33;
    for (uint8_t i = 0; i < 32; i++) {
        long33.add(9, 1, 0, 5);
    }
    long33.add(9, 1, 0, 3).add(4, 1);
    phase_relationship_t phases = {};
    phases.m_phaseid[3] = 7;
    phases.m_phaseid[4] = 255;
    phases.m_phaseid[7] = 256; // matches nothing
    Table many;
    for (uint8_t i = 0; i < 127; i++) {
        many.add(i / 2, 1, 0, i % 2);
    }
    EXPECT_EQ(found(plain, 2), "duplicates unmapped cut off");
    EXPECT_EQ(found(plain, 1), "duplicates unmapped cut off 7");
    EXPECT_EQ(found(plain, 0), "duplicates unmapped cut off 3 7");
    EXPECT_EQ(found(plain, -56), "duplicates unmapped cut off 3 7");
    EXPECT_EQ(found(duplicates, 5), "duplicates 3:5/3 7:3/0 unmapped cut off");
    EXPECT_EQ(found(unmapped, 5), "duplicates unmapped 0 33 255 cut off");
    EXPECT_EQ(found(unmapped, 5, phases), "duplicates unmapped 0 3 33 cut off");
    EXPECT_EQ(found(long33, 34), "duplicates 9:5/3 unmapped 4 cut off");
    EXPECT_EQ(found(many, 127).substr(0, 20), "duplicates 0:0/1 1:0");
    EXPECT_EQ(found(many, 127).find("32:"), std::string::npos) << "the first 32";
}

} // namespace

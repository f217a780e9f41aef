#include "spat_conv_spatdown_ipc.h"
#include "spat_conv_spatdown_json.h"
#include "spatdown_test.h"

namespace {

constexpr auto LEGACY = v2xspatconv_downMode::legacy;
constexpr auto CORRECTED = v2xspatconv_downMode::corrected;

class Record : public fakes::Fixture {
protected:
    ~Record() override { ASN_STRUCT_FREE_CONTENTS_ONLY(asn_DEF_SPAT, &spat); }
    // A SPAT whose states have timing.
    void read(const std::string& phases) {
        const std::string text = document(intersection(R"({"region":1,"id":2})", "258", phases));
        ASSERT_EQ(v2xspatconv_SpatJsonToStruct(text.c_str(), &spat, {CORRECTED}), 0);
    }
    IntersectionState_t& first() { return *spat.intersections.list.array[0]; }
    // The record's first bytes; all others must be 0.
    void expect(v2xspatconv_downMode mode, const std::string& digits) {
        Bytes expected = hex(digits);
        expected.resize(V2XIPC_RECORD_SIZE);
        alignas(8) uint8_t record[V2XIPC_RECORD_SIZE] = {};
        EXPECT_EQ(v2xspatconv_GbSpatToIpcSpat(&spat, reinterpret_cast<v2xipc_phases_t*>(record), mode), 0);
        EXPECT_EQ(Bytes(record, std::end(record)), expected) << digits;
    }

    SPAT_t spat = {};
};

TEST_F(Record, LegacyEntriesOverlap) {
    read(FOUR_PHASES);
    // Heads at 13, 15, 17, 19; each phase's states follow its head and overwrite those of earlier phases. A state
    // without timing overwrites nothing.
    expect(LEGACY, R"(02000100 0201 FFFFFFFF FFFF 04  01 02 02 02 03 02 04 02
        01 00 0700 A18C CCCC FEFF FFFF FFFF FF
        01 00 0000 A18C FFFF FFFF FFFF FFFF FF)");
}

TEST_F(Record, CopiesTime) {
    read("[]");
    long times[] = {527039, 60999};
    first().moy = &times[0];
    first().timeStamp = &times[1];
    expect(LEGACY, "02000100 0201 BF0A0800 47EE 00");
    first().moy = nullptr;
    first().timeStamp = nullptr;
}

// `count` copies of an element, as a JSON list.
std::string listOf(int count, const std::string& element) {
    std::string text = "[";
    for (int i = 0; i < count; i++) {
        text += (i > 0 ? "," : "") + element;
    }
    return text + "]";
}

TEST_F(Record, TruncatesCountsToTheirFields) {
    const struct {
        int phases;
        int states;
        const char* legacy; // m_phaseNum, then the first head if any
        const char* corrected;
    } cases[] = {
        {1, 16, "01 0710", "01 0710"}, {1, 17, "01 0711", "01 0710"},  {1, 257, "01 0701", "01 0710"},
        {17, 0, "11 0700", "10 0700"}, {128, 0, "80 0000", "10 0700"}, {256, 0, "00 0000", "10 0700"},
    };
    for (const auto& row : cases) {
        ASN_STRUCT_FREE_CONTENTS_ONLY(asn_DEF_SPAT, &spat);
        spat = {};
        read(listOf(row.phases, R"({"phaseId":7,"phaseStates":)" + listOf(row.states, "{}") + "}"));
        for (const auto mode : {LEGACY, CORRECTED}) {
            alignas(8) uint8_t record[V2XIPC_RECORD_SIZE] = {};
            v2xspatconv_GbSpatToIpcSpat(&spat, reinterpret_cast<v2xipc_phases_t*>(record), mode);
            EXPECT_EQ(Bytes(record + 12, record + 15), hex(mode == LEGACY ? row.legacy : row.corrected));
        }
    }
}

TEST_F(Record, ScalesOptionalTimes) {
    read(R"([{"phaseId":1,"phaseStates":[{"light":3,"timing":{"counting":{
        "startTime":0,"likelyEndTime":0,"maxEndTime":0,"timeConfidence":0}}}]}])");
    const struct {
        long value;
        const char* time;       // times 0.1
        const char* confidence; // times 0.005
    } cases[] = {
        {199, "1300", "00"},         {36001, "100E", "B4"},     {-200, "ECFF", "FF"},
        {21474836480, "FFFF", "66"}, {INT64_MAX, "FFFF", "FF"}, {INT64_MIN, "0000", "00"},
    };
    TimeCountingDown_t& timing = first().phases.list.array[0]->phaseStates.list.array[0]->timing->choice.counting;
    for (const auto& row : cases) {
        *timing.maxEndTime = row.value;
        *timing.timeConfidence = row.value;
        expect(LEGACY, std::string("02000100 0201 FFFFFFFF FFFF 01 0101 01 03 0000 0000") + row.time +
                           "FFFF FFFF FFFF" + row.confidence);
    }
}

TEST_F(Record, RejectsASpatWithoutIntersection) {
    v2xipc_phases_t record = {};
    EXPECT_EQ(v2xspatconv_GbSpatToIpcSpat(&spat, &record, LEGACY), -2);
}

} // namespace

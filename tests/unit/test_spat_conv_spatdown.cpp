#include <numeric>

#include "device_test.h"
#include "spat_conv_spatdown.h"
#include "spatdown_test.h"

namespace {

const std::string GOOD = document(intersection(R"({"region":1,"id":2})", "258", "[]"));
const char GOOD_RECORD[] = "02000100 0000 FFFFFFFF FFFF 00";

const Lines NO_TEXT = {"DOWN 2 cJSON_Parse Error!", "DOWN 2 v2xspatconv_SpatJsonToStruct error"};
const Lines TOO_LONG = {"DOWN 3 Msg data is too long", NO_TEXT[0], NO_TEXT[1]};

class SpatDown : public DeviceTest {
protected:
    // One fragment, in memory of exactly its size.
    static void receive(const std::string& fragment) {
        Bytes exact(fragment.begin(), fragment.end());
        v2xspatconv_ddsRecvSpatDown(exact.data(), static_cast<unsigned int>(exact.size()));
    }
    // The records sent to the stack application since the last call.
    static std::vector<Bytes> records() {
        std::vector<Bytes> all;
        for (const fakes::Datagram& datagram : fakes::sent) {
            all.emplace_back(datagram.bytes.begin() + 28, datagram.bytes.end());
        }
        fakes::sent.clear();
        return all;
    }
};

TEST_F(SpatDown, JoinsFragmentsToDocuments) {
    std::vector<size_t> longest(20, 1024);
    longest.back() = 1023;
    const struct {
        const char* what;
        std::vector<size_t> lengths; // of the fragments
        size_t documents;            // complete at the last fragment
    } cases[] = {
        {"the longest single fragment", {1023}, 1},
        {"the shortest that waits for more", {1024, 1}, 1},
        {"the longest document, in fragments", longest, 1},
        {"the longest document, in one piece and an end", {20479, 0}, 1},
        {"one byte more than the longest", {20479, 1}, 0},
        {"the last fragment just fits", {20000, 479}, 1},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.what);
        std::string text = GOOD;
        text.resize(std::accumulate(row.lengths.begin(), row.lengths.end(), size_t{0}), ' ');
        for (const size_t length : row.lengths) {
            EXPECT_TRUE(records().empty()) << "before the last fragment";
            receive(text.substr(0, length));
            text.erase(0, length);
        }
        EXPECT_EQ(records(), std::vector<Bytes>(row.documents, hex(GOOD_RECORD)));
        EXPECT_EQ(takeLog(), row.documents == 1 ? Lines() : TOO_LONG);
        receive(GOOD);
        EXPECT_EQ(records(), std::vector<Bytes>{hex(GOOD_RECORD)}) << "a good document right after";
        EXPECT_EQ(takeLog(), Lines());
    }
}

TEST_F(SpatDown, EndsTheTextAtTheByteAfterAMultiple) {
    std::string text = GOOD;
    text.resize(2048, ' ');
    receive(text.substr(0, 1024));
    receive(text.substr(1024));
    receive(std::string(1, '\0'));
    EXPECT_EQ(records(), std::vector<Bytes>{hex(GOOD_RECORD)});
    receive(GOOD + std::string(1, '\0') + "}");
    EXPECT_EQ(records(), std::vector<Bytes>{hex(GOOD_RECORD)}) << "bytes after a NUL are ignored";
    EXPECT_EQ(takeLog(), Lines());
}

TEST_F(SpatDown, StartsEachDocumentEmpty) {
    receive(GOOD);
    receive(GOOD.substr(0, GOOD.size() - 2));
    EXPECT_EQ(records(), std::vector<Bytes>{hex(GOOD_RECORD)});
    EXPECT_EQ(takeLog(), NO_TEXT);
}

TEST_F(SpatDown, RejectsALengthThatOverflowsTheSum) {
    std::string text = GOOD;
    text.resize(1024, ' ');
    receive(text);
    v2xspatconv_ddsRecvSpatDown(text.data(), UINT32_MAX - 500); // together with the 1024 bytes: 523 in 32 bits
    EXPECT_EQ(takeLog(), Lines{TOO_LONG[0]});
}

TEST_F(SpatDown, SendsOnlyTheFirstIntersectionLegacyAndCorrected) {
    const std::string text = document(intersection(R"({"region":1,"id":2})", "258", FOUR_PHASES) + "," +
                                      intersection(R"({"id":9})", "1", FOUR_PHASES));
    // Legacy: heads directly after one another, then zeros; the length is that of two states a phase.
    Bytes legacy = hex("02000100 0000 FFFFFFFF FFFF 04  0102 0202 0302 0402");
    legacy.resize(13 + (2 + 2 * 15) + 3 * 2);
    const Bytes corrected = hex(std::string("02000100 0201 FFFFFFFF FFFF 04") + FOUR_PHASES_RECORD);
    for (const bool isCorrected : {false, true}) {
        m_config->m_corrections.m_spat_down = isCorrected;
        for (size_t at = 0; at <= text.size(); at += 1024) {
            receive(text.substr(at, 1024));
        }
        EXPECT_EQ(records(), std::vector<Bytes>{isCorrected ? corrected : legacy});
    }
}

TEST_F(SpatDown, QuietLogAppliesToDocuments) {
    const std::string noName = R"({"intersections":[)" + intersection(R"({"id":2})", "0", "[]") + "]}";
    for (const bool isQuiet : {false, true}) {
        m_config->m_corrections.m_quiet_log = isQuiet;
        receive(noName);
        EXPECT_EQ(takeLog(), isQuiet ? Lines() : Lines{"DOWN 2 cJSON_Parse error!"});
    }
}

} // namespace

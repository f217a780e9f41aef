#include <numeric>

#include "device_test.h"
#include "spat_conv_spatdown.h"
#include "spatdown_test.h"

namespace {

const std::string GOOD = document(intersection(R"({"region":1,"id":2})", "258", "[]"));
const char GOOD_RECORD[] = "02000100 0000 FFFFFFFF FFFF 00";

const Lines NO_TEXT = {"DOWN 2 cJSON_Parse Error!", "DOWN 2 v2xspatconv_SpatJsonToStruct error"};
const Lines TOO_LONG = {"DOWN 3 Msg data is too long"};
Lines operator+(Lines left, const Lines& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

class SpatDown : public DeviceTest {
protected:
    // One fragment, in memory of exactly its size.
    static void receive(const std::string& fragment) {
        Bytes exact(fragment.begin(), fragment.end());
        exact.shrink_to_fit();
        v2xspatconv_ddsRecvSpatDown(exact.data(), static_cast<unsigned int>(exact.size()));
    }
    // A document as the library delivers it: fragments of 1024 bytes and a rest.
    static void deliver(const std::string& text) {
        for (size_t at = 0; at <= text.size(); at += 1024) {
            receive(text.substr(at, 1024));
        }
    }
    // The records sent to the stack application since the last call.
    static std::vector<Bytes> records() {
        std::vector<Bytes> all;
        for (const fakes::Datagram& datagram : fakes::sent) {
            EXPECT_EQ(datagram.socket, "SPAT_SEND_APP");
            all.emplace_back(datagram.bytes.begin() + 28, datagram.bytes.end());
        }
        fakes::sent.clear();
        return all;
    }
};

TEST_F(SpatDown, JoinsFragmentsToDocuments) {
    const std::vector<size_t> twenty(20, 1024);
    const std::vector<size_t> nineteen(19, 1024);
    const auto with = [](std::vector<size_t> lengths, size_t last) {
        lengths.push_back(last);
        return lengths;
    };
    const struct {
        const char* what;
        std::vector<size_t> lengths; // of the fragments
        size_t documents;            // complete at the last fragment
        Lines log;
    } cases[] = {
        {"the longest single fragment", {1023}, 1, {}},
        {"the shortest that waits for more", {1024, 1}, 1, {}},
        {"a rest", {1024, 1024, 300}, 1, {}},
        {"a piece above 1024 waits as well", {1500, 3}, 1, {}},
        {"the longest document, in fragments", with(nineteen, 1023), 1, {}},
        {"the longest document, in one piece and an end", {20479, 0}, 1, {}},
        {"one byte more than the longest", {20479, 1}, 0, TOO_LONG + NO_TEXT},
        {"a document of 20480", with(twenty, 1), 0, TOO_LONG + NO_TEXT},
        {"a piece of 20480", {20480, 2}, 0, TOO_LONG + NO_TEXT},
        {"the last fragment is too long", {20000, 480}, 0, TOO_LONG + NO_TEXT},
        {"the last fragment just fits", {20000, 479}, 1, {}},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.what);
        const size_t total = std::accumulate(row.lengths.begin(), row.lengths.end(), size_t{0});
        std::string text = GOOD;
        text.resize(total, ' ');
        for (const size_t length : row.lengths) {
            EXPECT_TRUE(records().empty()) << "before the last fragment";
            receive(text.substr(0, length));
            text.erase(0, length);
        }
        EXPECT_EQ(records(), std::vector<Bytes>(row.documents, hex(GOOD_RECORD)));
        EXPECT_EQ(takeLog(), row.log);
        receive(GOOD);
        EXPECT_EQ(records(), std::vector<Bytes>{hex(GOOD_RECORD)}) << "a good document right after";
        EXPECT_EQ(takeLog(), Lines());
    }
    EXPECT_EQ(countsOf("down"), (PathCounts{{"accepted", 18}, {"fragments", 70}, {"no_spat", 4}, {"too_long", 4}}));
}

TEST_F(SpatDown, EndsTheTextAtTheByteAfterAMultiple) {
    std::string text = GOOD;
    text.resize(2048, ' ');
    receive(text.substr(0, 1024));
    receive(text.substr(1024));
    EXPECT_TRUE(records().empty());
    fakes::logLines.clear();
    receive(std::string(1, '\0'));
    EXPECT_EQ(records(), std::vector<Bytes>{hex(GOOD_RECORD)});
    EXPECT_EQ(fakes::logged("recv_total:2049").at(0).level, 7);
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

TEST_F(SpatDown, RejectsImpossibleLengthsAndPointers) {
    std::string text = GOOD;
    text.resize(1024, ' ');
    receive(text);
    v2xspatconv_ddsRecvSpatDown(nullptr, 5);
    EXPECT_EQ(takeLog(), Lines{"DOWN 2 input param error"});
    v2xspatconv_ddsRecvSpatDown(nullptr, 0);
    EXPECT_EQ(records(), std::vector<Bytes>{hex(GOOD_RECORD)}) << "no bytes, but an end";
    receive(text);
    v2xspatconv_ddsRecvSpatDown(text.data(), UINT32_MAX - 500); // together with the 1024 bytes: 523 in 32 bits
    EXPECT_EQ(takeLog(), TOO_LONG);
    receive(GOOD);
    EXPECT_EQ(records(), std::vector<Bytes>{hex(GOOD_RECORD)});
}

TEST_F(SpatDown, SendsOnlyTheFirstIntersectionLegacyAndCorrected) {
    const std::string text = document(intersection(R"({"region":1,"id":2})", "258", FOUR_PHASES) + "," +
                                      intersection(R"({"id":9})", "1", FOUR_PHASES));
    deliver(text);
    // Legacy: heads directly after one another, then zeros; the length is that of two states a phase.
    Bytes legacy = hex("02000100 0000 FFFFFFFF FFFF 04  0102 0202 0302 0402");
    legacy.resize(13 + (2 + 2 * 15) + 3 * 2);
    EXPECT_EQ(records(), std::vector<Bytes>{legacy});
    m_config->m_corrections.m_spat_down = true;
    deliver(text);
    EXPECT_EQ(records(), std::vector<Bytes>{hex(std::string("02000100 0201 FFFFFFFF FFFF 04") + FOUR_PHASES_RECORD)});
}

} // namespace

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "bytes.h"
#include "cloud_damage.h"
#include "cloud_document.h"
#include "cloud_pieces.h"
#include "service_status.h"

using namespace sim;
using testing::ElementsAre;

namespace {

std::span<const uint8_t> Sample(const std::string& bytes) {
    return {reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()};
}

const std::string END(1, '\0');

// ---- pieces

TEST(CloudPieces, AreCut) {
    const std::string text(2049, 'x');
    EXPECT_THAT(CutDocument("", 0), ElementsAre(END));
    EXPECT_THAT(CutDocument(text.substr(0, 1023), 0), ElementsAre(text.substr(0, 1023)));
    EXPECT_THAT(CutDocument(text.substr(0, 1024), 0), ElementsAre(text.substr(0, 1024), END));
    EXPECT_THAT(CutDocument(text, 2048), ElementsAre(text.substr(0, 2048), "x"));
}

TEST(CloudPieces, ArePutTogether) {
    const std::string full(1024, 'f');
    const struct {
        std::vector<std::string> samples;
        std::vector<std::pair<std::string, size_t>> documents; // text and pieces
    } cases[] = {
        {{full, "end"}, {{full + "end", 2}}},
        {{full, full, END, "next"}, {{full + full, 3}, {"next", 1}}},
        {{END}, {{"", 1}}},
        {{"", "x"}, {{"", 1}, {"x", 1}}},
        {{full, full}, {}},
        {{full, END + END}, {{full + END + END, 2}}}, // one byte alone ends it
        {{full + "x", END}, {{full + "x" + END, 2}}}, // only at a multiple of 1024
    };
    for (const auto& [samples, documents] : cases) {
        PieceAssembler assembler;
        std::vector<std::pair<std::string, size_t>> got;
        for (const std::string& sample : samples) {
            if (const auto document = assembler.Add(Sample(sample))) {
                EXPECT_FALSE(document->isTooLarge);
                got.emplace_back(document->text, document->pieces);
            }
        }
        EXPECT_EQ(got, documents);
    }
}

TEST(CloudPieces, EndInMemory) {
    PieceAssembler assembler;
    const std::string full(1024, 'f');
    for (int number = 0; number < 1030; ++number) {
        ASSERT_FALSE(assembler.Add(Sample(full)));
    }
    const auto large = assembler.Add(Sample("end"));
    ASSERT_TRUE(large);
    EXPECT_TRUE(large->isTooLarge);
    EXPECT_EQ(large->text.size(), 1048576U);
    EXPECT_FALSE(assembler.Add(Sample("{}"))->isTooLarge);
}

// ---- documents

const std::string DOCUMENT =
    R"({"name":"v2x_spat_sim","intersections":[{"intersectionId":{"region":65535,"id":7},"status":1024,"phases":[)"
    R"({"phaseId":3,"phaseStates":[{"light":5,"timing":{"counting":{"startTime":0,"likelyEndTime":150}}}]},)"
    R"({"phaseId":200,"phaseStates":[{"light":7,"timing":{"counting":{"startTime":0,"likelyEndTime":10}}}]},)"
    R"({"phaseId":0,"phaseStates":[{"light":3,"timing":{"counting":{"startTime":0,"likelyEndTime":2550}}}]}]}]})";

TEST(CloudDocument, IsClassified) {
    const std::string one = R"({"status":1,"phases":[]})";
    const std::pair<std::string, DocumentKind> cases[] = {
        {DOCUMENT, DocumentKind::good},
        {R"( {"intersections":[)" + one + "," + one + "]}\n", DocumentKind::good},
        {"", DocumentKind::empty},
        {DOCUMENT + END, DocumentKind::syntax},
        {"{}", DocumentKind::missingKey},
        {R"({"intersections":[)" + one + R"(,{"status":1}]})", DocumentKind::missingKey},
        {R"({"intersections":[]})", DocumentKind::wrongType},
        {R"({"intersections":[)" + one + ",1]}", DocumentKind::wrongType},
        {std::string(20479 - DOCUMENT.size(), ' ') + DOCUMENT, DocumentKind::good},
        {std::string(20480 - DOCUMENT.size(), ' ') + DOCUMENT, DocumentKind::overflow},
    };
    for (const auto& [text, kind] : cases) {
        EXPECT_EQ(ClassifyDocument(text), kind) << text.substr(0, 200);
    }
}

TEST(CloudDamage, MakesWhatItsKindSays) {
    const std::pair<DocumentKind, DocumentKind> cases[] = {
        {DocumentKind::syntax, DocumentKind::syntax},       {DocumentKind::empty, DocumentKind::empty},
        {DocumentKind::truncated, DocumentKind::syntax}, // what is cut cannot be told from a wrong syntax
        {DocumentKind::overflow, DocumentKind::overflow},   {DocumentKind::missingKey, DocumentKind::missingKey},
        {DocumentKind::wrongType, DocumentKind::wrongType},
    };
    std::mt19937 randoms(1);
    for (const auto& [kind, read] : cases) {
        for (int round = 0; round < 1000; ++round) {
            std::string text = DOCUMENT;
            ASSERT_TRUE(DamageDocument(text, kind, static_cast<uint32_t>(randoms())));
            ASSERT_EQ(ClassifyDocument(text), read) << text;
        }
    }
    std::string bad = "{}";
    EXPECT_FALSE(DamageDocument(bad, DocumentKind::syntax, 1));
}

// ---- status records

const Bytes STATUS = hex("02 01 03 00 00 00 40 78 0A E9 68 27 06 00 FF FF FF FF 00 00 00 00 00 00 00 80");
const ServiceStatus SPAT_STATUS = {2, 1, 3, 1732181400123456, 0xFFFFFFFF, 0x8000000000000000};

TEST(ServiceStatus, IsReadAndWritten) {
    const std::string bytes = EncodeStatus(SPAT_STATUS);
    EXPECT_EQ(Bytes(bytes.begin(), bytes.end()), STATUS);
    const auto status = ReadStatus(STATUS);
    ASSERT_TRUE(status);
    EXPECT_EQ(EncodeStatus(*status), bytes);
    EXPECT_EQ(StatusText(*status), "SPAT available, 3 sent, 4294967295 received");
    for (size_t size = 0; size < STATUS.size(); ++size) {
        EXPECT_FALSE(ReadStatus(Bytes(STATUS.begin(), STATUS.begin() + static_cast<ptrdiff_t>(size))));
    }
    EXPECT_FALSE(ReadStatus(Bytes(27)));
}

} // namespace

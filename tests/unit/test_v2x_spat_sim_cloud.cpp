#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>

#include "bytes.h"
#include "cloud_damage.h"
#include "cloud_document.h"
#include "cloud_downs.h"
#include "cloud_intake.h"
#include "cloud_pieces.h"
#include "service_status.h"

using namespace sim;
using testing::AllOf;
using testing::ElementsAre;
using testing::Ge;
using testing::HasSubstr;
using testing::Le;
using namespace std::chrono_literals;

namespace {

std::span<const uint8_t> Sample(const std::string& bytes) {
    return {reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()};
}

const std::string END(1, '\0');

// ---- pieces

// The sizes of what is published for a document of `size` bytes; the bytes themselves must be the document's, and 0.
std::vector<size_t> Sizes(size_t size, size_t piece) {
    std::string text(size, ' ');
    std::ranges::generate(text, [byte = 0]() mutable { return static_cast<char>('!' + byte++ % 90); });
    std::vector<size_t> sizes;
    std::string joined;
    for (const std::string& sample : CutDocument(text, piece)) {
        sizes.push_back(sample.size());
        joined += sample;
    }
    EXPECT_EQ(joined, size % 1024 == 0 ? text + END : text);
    return sizes;
}

TEST(CloudPieces, AreCut) {
    EXPECT_THAT(Sizes(1, 0), ElementsAre(1));
    EXPECT_THAT(Sizes(1023, 0), ElementsAre(1023));
    EXPECT_THAT(Sizes(1024, 0), ElementsAre(1024, 1));
    EXPECT_THAT(Sizes(2049, 0), ElementsAre(2049));
    EXPECT_THAT(Sizes(4096, 0), ElementsAre(4096, 1));
    EXPECT_THAT(Sizes(0, 0), ElementsAre(1));
    EXPECT_THAT(Sizes(2049, 1024), ElementsAre(1024, 1024, 1));
    EXPECT_THAT(Sizes(2048, 1024), ElementsAre(1024, 1024, 1));
    EXPECT_THAT(Sizes(2048, 1000), ElementsAre(1000, 1000, 48, 1));
    EXPECT_THAT(Sizes(10, 3), ElementsAre(3, 3, 3, 1));
    EXPECT_THAT(Sizes(10, 2048), ElementsAre(10));
}

TEST(CloudPieces, ArePutTogether) {
    const std::string full(1024, 'f');
    const struct {
        std::vector<std::string> samples;
        std::vector<std::pair<std::string, size_t>> documents; // text and pieces
    } cases[] = {
        {{"{}"}, {{"{}", 1}}},
        {{full, "end"}, {{full + "end", 2}}},
        {{full, END}, {{full, 2}}},
        {{full, full, END, "next"}, {{full + full, 3}, {"next", 1}}},
        {{full + full, "end"}, {{full + full + "end", 2}}},
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

const std::vector<PhaseLight> LIGHTS = {{3, Colour::green, 15}, {200, Colour::yellow, 1}, {0, Colour::red, 255}};

const std::string DOCUMENT =
    R"({"name":"v2x_spat_sim","intersections":[{"intersectionId":{"region":65535,"id":7},"status":1024,"phases":[)"
    R"({"phaseId":3,"phaseStates":[{"light":5,"timing":{"counting":{"startTime":0,"likelyEndTime":150}}}]},)"
    R"({"phaseId":200,"phaseStates":[{"light":7,"timing":{"counting":{"startTime":0,"likelyEndTime":10}}}]},)"
    R"({"phaseId":0,"phaseStates":[{"light":3,"timing":{"counting":{"startTime":0,"likelyEndTime":2550}}}]}]}]})";

TEST(CloudDocument, SaysWhatThePlanSays) {
    EXPECT_EQ(PlanDocument(LIGHTS, {65535, 7}), DOCUMENT);
    EXPECT_EQ(
        PlanDocument({}, {0, 0}),
        R"({"name":"v2x_spat_sim","intersections":[{"intersectionId":{"region":0,"id":0},"status":1024,"phases":[]}]})");
}

TEST(CloudDocument, IsClassified) {
    const std::string one = R"({"status":1,"phases":[]})";
    const std::pair<std::string, DocumentKind> cases[] = {
        {DOCUMENT, DocumentKind::good},
        {R"( {"intersections":[)" + one + "," + one + "]}\n", DocumentKind::good},
        {R"({"intersections":[{"intersectionId":{"id":1},"status":1,"phases":[]}]})", DocumentKind::good},
        {"", DocumentKind::empty},
        {" \r\n\t", DocumentKind::empty},
        {DOCUMENT + "}", DocumentKind::syntax},
        {DOCUMENT.substr(1), DocumentKind::syntax},
        {DOCUMENT.substr(0, 100), DocumentKind::syntax},
        {DOCUMENT + END, DocumentKind::syntax},
        {"{}", DocumentKind::missingKey},
        {"[]", DocumentKind::missingKey},
        {"17", DocumentKind::missingKey},
        {R"({"Intersections":[)" + one + "]}", DocumentKind::missingKey},
        {R"({"intersections":[)" + one + R"(,{"status":1}]})", DocumentKind::missingKey},
        {R"({"intersections":[{"phases":[]}]})", DocumentKind::missingKey},
        {R"({"intersections":[{"intersectionId":{"region":1},"status":1,"phases":[]}]})", DocumentKind::missingKey},
        {R"({"intersections":[]})", DocumentKind::wrongType},
        {R"({"intersections":)" + one + "}", DocumentKind::wrongType},
        {R"({"intersections":[)" + one + ",1]}", DocumentKind::wrongType},
        {std::string(20479 - DOCUMENT.size(), ' ') + DOCUMENT, DocumentKind::good},
        {std::string(20480 - DOCUMENT.size(), ' ') + DOCUMENT, DocumentKind::overflow},
        {std::string(20480, ' '), DocumentKind::overflow},
    };
    for (const auto& [text, kind] : cases) {
        EXPECT_EQ(ClassifyDocument(text), kind) << text.substr(0, 200);
    }
}

TEST(CloudDocument, IsReadForPeople) {
    const std::pair<std::string, const char*> cases[] = {
        {DOCUMENT, "65535/7 status 1024  3 G15.0  200 Y1.0  0 R255.0"},
        {R"({"intersections":[]})", "no intersections"},
        {"{}", "no list of intersections"},
        {R"({"intersections":"all"})", "no list of intersections"},
        {R"({"intersections":[{}, 5]})", "?/? status ?; ?/? status ?"},
        {R"({"intersections":[{"intersectionId":{"id":4},"status":"x","phases":[{"phaseId":1},)"
         R"({"phaseStates":[{"light":0,"timing":{"counting":{"likelyEndTime":36001}}}]},)"
         R"({"phaseId":2,"phaseStates":[{"light":8,"timing":{"utcTiming":{"likelyEndUtcTime":3}}},{"light":1}]},)"
         R"({"phaseId":3,"phaseStates":[{"light":9,"timing":{"counting":{"likelyEndTime":-3}}}]}]}]})",
         "?/4 status ?  1 ??  ? -?  2 y?  3 ?-0.3"},
    };
    for (const auto& [text, reading] : cases) {
        EXPECT_EQ(DocumentText(ParseDocument(text).get()), reading);
    }
}

std::vector<uint32_t> Randoms() {
    std::vector<uint32_t> randoms(1000);
    std::ranges::generate(randoms, std::mt19937(1));
    return randoms;
}

TEST(CloudDamage, MakesWhatItsKindSays) {
    const struct {
        DocumentKind kind;
        DocumentKind read; // what is cut cannot be told from a wrong syntax
        size_t ways;
    } cases[] = {
        {DocumentKind::syntax, DocumentKind::syntax, 500},       {DocumentKind::empty, DocumentKind::empty, 4},
        {DocumentKind::truncated, DocumentKind::syntax, 300},    {DocumentKind::overflow, DocumentKind::overflow, 500},
        {DocumentKind::missingKey, DocumentKind::missingKey, 4}, {DocumentKind::wrongType, DocumentKind::wrongType, 8},
    };
    for (const auto& [kind, read, ways] : cases) {
        std::set<std::string> different;
        for (const uint32_t random : Randoms()) {
            std::string text = DOCUMENT;
            ASSERT_TRUE(DamageDocument(text, kind, random));
            ASSERT_EQ(ClassifyDocument(text), read) << text;
            different.insert(text);
        }
        EXPECT_GE(different.size(), ways);
    }
}

TEST(CloudDamage, CutsAndFillsOnly) {
    for (const uint32_t random : Randoms()) {
        std::string cut = DOCUMENT + "\r\n";
        DamageDocument(cut, DocumentKind::truncated, random);
        ASSERT_TRUE(DOCUMENT.starts_with(cut));
        ASSERT_LT(cut.size(), DOCUMENT.size());
        std::string large = DOCUMENT;
        DamageDocument(large, DocumentKind::overflow, random);
        ASSERT_GE(large.size(), 20480U);
        ASSERT_LE(large.size(), 20479U + 4096U);
        ASSERT_NE(ParseDocument(large), nullptr);
        ASSERT_EQ(large.substr(20000), std::string(large.size() - 20001, ' ') + "}"); // nothing to read in its tail
        std::erase(large, ' ');
        ASSERT_EQ(large, DOCUMENT);
    }
}

TEST(CloudDamage, SparesNoIntersectionAndFindsAKey) {
    const std::string one = R"({"status":1,"phases":[]})"; // without id
    for (const uint32_t random : Randoms()) {
        std::string text = R"({"intersections":[)" + one + "," + one + "]}";
        ASSERT_TRUE(DamageDocument(text, DocumentKind::missingKey, random));
        ASSERT_THAT(text, testing::AnyOf("{}", R"({"intersections":[{"status":1},{"status":1}]})",
                                         R"({"intersections":[{"phases":[]},{"phases":[]}]})"));
    }
}

TEST(CloudDamage, LeavesAloneWhatIsNotGood) {
    for (size_t kind = 0; kind < DOCUMENT_KINDS; ++kind) {
        std::string text = "{}";
        EXPECT_FALSE(DamageDocument(text, static_cast<DocumentKind>(kind), 1));
        EXPECT_EQ(text, "{}");
    }
    std::string good = DOCUMENT;
    EXPECT_FALSE(DamageDocument(good, DocumentKind::good, 1));
    EXPECT_EQ(good, DOCUMENT);
}

// ---- documents to be sent

using Numbers = std::map<std::string, uint64_t>;

template <typename Counter>
Numbers NumbersOf(const Counter& counter) {
    Summary summary;
    counter.AddTo(summary);
    return {summary.numbers.begin(), summary.numbers.end()};
}

TEST(CloudDowns, PlaysThePlan) {
    DownOptions options;
    options.rate = 4;
    options.phases = {3, 1};
    options.intersection = {1, 2};
    CloudDowns downs(options, 1);
    EXPECT_EQ(downs.Due(0s), 0s);
    const auto text = [](unsigned tenths) {
        return R"({"name":"v2x_spat_sim","intersections":[{"intersectionId":{"region":1,"id":2},"status":1024,"phases":[)"
               R"({"phaseId":3,"phaseStates":[{"light":5,"timing":{"counting":{"startTime":0,"likelyEndTime":)" +
               std::to_string(tenths) + "}}}]}]}]}";
    };
    EXPECT_THAT(downs.Take().samples, ElementsAre(text(270)));
    EXPECT_EQ(downs.Due(0s), 250ms);
    downs.Take();
    downs.Take();
    downs.Take();
    EXPECT_THAT(downs.Take().samples, ElementsAre(text(260)));
    EXPECT_EQ(downs.Due(9s), 9s); // nobody read for long
    EXPECT_THAT(downs.Take().samples, ElementsAre(text(180)));
}

TEST(CloudDowns, SendsFilesInTurnAsTheyAre) {
    DownOptions options;
    options.documents = {DOCUMENT, "{}\n", ""};
    options.fragment = 400;
    CloudDowns downs(options, 1);
    std::vector<std::vector<std::string>> sent;
    for (int number = 0; number < 4; ++number) {
        const CloudDowns::Load load = downs.Take();
        sent.push_back(load.samples);
        downs.Sent(load, number != 3);
    }
    EXPECT_THAT(sent, ElementsAre(ElementsAre(DOCUMENT.substr(0, 400), DOCUMENT.substr(400)), ElementsAre("{}\n"),
                                  ElementsAre(END), sent[0]));
    Summary summary;
    downs.AddTo(summary);
    EXPECT_EQ(summary.text, ", 3 documents down (1 good, 1 empty, 1 missing key), 1 refused by the library");
    EXPECT_EQ(downs.All(), 3U);
    EXPECT_EQ(NumbersOf(downs).at("downBad"), 2U);
}

TEST(CloudDowns, SpoilsTheShareWithTheChosenKinds) {
    DownOptions options;
    options.bad = 0.5;
    options.badKinds = {DocumentKind::empty, DocumentKind::truncated};
    CloudDowns downs(options, 7);
    CloudDowns again(options, 7);
    for (int number = 0; number < 2000; ++number) {
        const CloudDowns::Load load = downs.Take();
        ASSERT_EQ(load.samples, again.Take().samples);
        downs.Sent(load, true);
    }
    Numbers numbers = NumbersOf(downs);
    EXPECT_THAT(numbers["downEmpty"], AllOf(Ge(440U), Le(560U)));
    EXPECT_THAT(numbers["downTruncated"], AllOf(Ge(440U), Le(560U)));
    EXPECT_EQ(numbers["downBad"], numbers["downEmpty"] + numbers["downTruncated"]);
    EXPECT_EQ(numbers["downGood"] + numbers["downBad"], 2000U);
    EXPECT_EQ(numbers["down"], 2000U);
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
    EXPECT_EQ(StatusText({5, 2, 0, 0, 0, 0}), "cloud unavailable, 0 sent, 0 received");
    EXPECT_EQ(StatusText({6, 0, 0, 0, 0, 0}), "service 6 run status 0, 0 sent, 0 received");
    for (size_t size = 0; size < STATUS.size(); ++size) {
        EXPECT_FALSE(ReadStatus(Bytes(STATUS.begin(), STATUS.begin() + static_cast<ptrdiff_t>(size))));
    }
    EXPECT_FALSE(ReadStatus(Bytes(27)));
}

// ---- intake

TEST(CloudIntake, PutsDocumentsIntoWords) {
    CloudIntake intake("rsu/A/spat/up", "status", false);
    const std::string large = DOCUMENT + std::string(2048 - DOCUMENT.size(), ' ');
    EXPECT_EQ(intake.OnDocumentSample(Sample(large.substr(0, 1024)), 5), "");
    EXPECT_EQ(intake.OnDocumentSample(Sample(large.substr(1024)), 5), "");
    EXPECT_EQ(intake.OnDocumentSample(Sample(END), 5),
              "rsu/A/spat/up  2048 bytes in 3: 65535/7 status 1024  3 G15.0  200 Y1.0  0 R255.0");
    EXPECT_EQ(intake.OnDocumentSample(Sample("{"), 5), "rsu/A/spat/up  1 bytes in 1: no JSON document");
    EXPECT_EQ(intake.OnStatusSample(STATUS, 5), "status  SPAT available, 3 sent, 4294967295 received");
    EXPECT_EQ(intake.OnStatusSample(Sample("x"), 5), "status  1 bytes are no status record");
    Summary summary;
    intake.AddTo(summary);
    EXPECT_EQ(summary.text, "2 documents up (1 good, 1 bad), 1 status records and 1 samples that are none");
    EXPECT_EQ(intake.Documents(), 2U);
}

TEST(CloudIntake, WritesOneObjectALine) {
    CloudIntake intake("rsu/A/spat/up", "status", true);
    EXPECT_EQ(intake.OnDocumentSample(Sample(R"({"n": 12345678901234567})"), 5), // no digit is lost
              R"({"topic":"rsu/A/spat/up","receiveTime":5,"bytes":24,"pieces":1,"document":{"n": 12345678901234567}})");
    EXPECT_EQ(intake.OnDocumentSample(Sample("{\n\"n\": 1}"), 5),
              R"({"topic":"rsu/A/spat/up","receiveTime":5,"bytes":9,"pieces":1,"document":{"n":1}})");
    EXPECT_EQ(intake.OnDocumentSample(Sample("{}{}"), 5),
              R"({"topic":"rsu/A/spat/up","receiveTime":5,"bytes":4,"pieces":1,"refused":"no JSON document"})");
    EXPECT_EQ(intake.OnStatusSample(STATUS, 1732181400200000),
              R"({"topic":"status","receiveTime":1732181400200000,"status":{"service":2,"run":1,"sent":3,)"
              R"("lastSent":1732181400123456,"received":4294967295,"lastReceived":9223372036854775808}})");
    EXPECT_THAT(intake.OnStatusSample(Sample("x"), 5), HasSubstr(R"("refused":"no status record")"));
}

} // namespace

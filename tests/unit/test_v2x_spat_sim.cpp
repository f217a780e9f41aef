// What the simulated devices and the simulated cloud send.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "bytes.h"
#include "cloud_document.h"
#include "cloud_traffic.h"
#include "learner_report.h"
#include "light_frame.h"
#include "plan.h"
#include "source.h"

using namespace sim;
using testing::ElementsAre;
using testing::StartsWith;
using testing::ThrowsMessage;
using namespace std::chrono_literals;

namespace {

// ---- learner

TEST(LearnerReport, HasTheBytesOfTheWire) {
    EXPECT_EQ(EncodeReport(PlanAt(25s, {3, 2})),
              hex("FE FE 10 00 11 00 02 00 03 01 02 00 00 00 00 04 02 19 00 00 00 00"));
}

// ---- controller

constexpr uint64_t TIME = 1732186138'683000; // 2024-11-21 10:48:58.683

const std::vector<PhaseLight> LIGHTS = {
    {1, Colour::green, 0xC0}, {2, Colour::red, 0xDB}, {3, Colour::yellow, 3}, {4, Colour::red, 4},
    {5, Colour::yellow, 5},   {6, Colour::red, 6},    {7, Colour::green, 7},  {8, Colour::red, 8},
};

// Opening delimiter and payload header; longitude, latitude and elevation.
const std::string HEAD =
    "C0 01 00 11 01 08 01 00 01 00 11 01 08 02 00 01 00 1A 10 3F 67 AB 02 01 01 87 03 01 00 00 00 00 ";
const std::string PLACE = "00 AE C7 E8 42 23 DB DD 1F 42 DB DC 00 ";
// One link, one group, and a CRC of C0DB.
const Bytes SMALL = hex((HEAD + "12 ").append(PLACE) + "01 00 00 01 01 01 20 1B DB DD DB DC C0");

TEST(LightFrame, HasTheBytesOfTheWire) {
    // All arms, and the first again.
    EXPECT_EQ(WrapFrame(AppendCrc(EncodePayload(LIGHTS, {5, 1}, TIME))),
              hex((HEAD + "2E ").append(PLACE) +
                  "05 00 00 01 01 01 20 DB DC 5A 00 01 02 01 02 DB DD B4 00 01 03 01 08 03 0E 01 01 "
                  "04 01 02 04 00 00 01 05 01 20 DB DC F8 76 C0"));
}

// Blocks of their exact size, so that the address sanitizer sees a read past the end.
TEST(LightFrame, ClassifiesEveryCutWithinItsBytes) {
    EXPECT_EQ(ClassifyFrame(SMALL), FrameKind::good);
    for (size_t size = 0; size < SMALL.size(); ++size) {
        EXPECT_NE(ClassifyFrame(Bytes(SMALL.begin(), SMALL.begin() + static_cast<ptrdiff_t>(size))), FrameKind::good);
    }
}

// ---- cloud

const std::string END(1, '\0');

TEST(CloudDocument, IsCutIntoSamplesAndJoinedAgain) {
    const std::string full(1024, 'f');
    EXPECT_THAT(CutDocument(full, 0), ElementsAre(full, END));
    EXPECT_THAT(CutDocument(full + full + "x", 2048), ElementsAre(full + full, "x"));
    SampleJoiner joiner;
    std::vector<std::string> joined;
    // An end sample is one byte, and only after a multiple of 1024.
    for (const std::string& sample : {full, full, END, END, full, END + END, full + "x", END}) {
        if (const auto document = joiner.Add(Bytes(sample.begin(), sample.end()))) {
            joined.push_back(document->text);
        }
    }
    EXPECT_THAT(joined, ElementsAre(full + full, "", full + END + END, full + "x" + END));
}

const std::string DOCUMENT =
    R"({"name":"v2x_spat_sim","intersections":[{"intersectionId":{"region":65535,"id":7},"status":1024,"phases":[)"
    R"({"phaseId":3,"phaseStates":[{"light":5,"timing":{"counting":{"startTime":0,"likelyEndTime":20}}}]},)"
    R"({"phaseId":4,"phaseStates":[{"light":3,"timing":{"counting":{"startTime":0,"likelyEndTime":250}}}]}]}]})";

TEST(CloudDocument, HasItsBytesAndKind) {
    EXPECT_EQ(PlanDocument(PlanAt(25s, {3, 2}), {65535, 7}), DOCUMENT);
    const std::string one = R"({"status":1,"phases":[]})";
    const std::pair<std::string, DocumentKind> cases[] = {
        {DOCUMENT, DocumentKind::good},
        {DOCUMENT + END, DocumentKind::syntax},
        {R"({"intersections":[)" + one + R"(,{"status":1}]})", DocumentKind::missingKey},
        {R"({"intersections":[)" + one + ",1]}", DocumentKind::wrongType},
        {std::string(20479 - DOCUMENT.size(), ' ') + DOCUMENT, DocumentKind::good},
        {std::string(20480 - DOCUMENT.size(), ' ') + DOCUMENT, DocumentKind::overflow},
    };
    for (const auto& [text, kind] : cases) {
        EXPECT_EQ(ClassifyDocument(text), kind) << text.substr(0, 200);
    }
}

TEST(ServiceStatus, HasTheBytesOfTheWire) {
    const Bytes wire = hex("02 01 03 00 00 00 40 78 0A E9 68 27 06 00 FF FF FF FF 00 00 00 00 00 00 00 80");
    const std::string bytes = EncodeStatus({2, 1, 3, 1732181400123456, 0xFFFFFFFF, 0x8000000000000000});
    EXPECT_EQ(Bytes(bytes.begin(), bytes.end()), wire);
    EXPECT_EQ(FormatStatus(ReadStatus(wire).value()), "SPAT available, 3 sent, 4294967295 received");
    EXPECT_FALSE(ReadStatus(Bytes(wire.begin(), wire.end() - 1)));
}

} // namespace

#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "encoded_frames.h"
#include "fixture.h"
#include "spat_conv_spatup.h"
#include "spat_conv_v2xcloud_dds.h"

namespace {

using fakes::takeLog;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

// The document of encoded::spat.
const char FULL_TEXT[] =
    R"({"name":"Main St","intersections":[{"intersectionId":{"id":65535},"status":32772,"phases":[)"
    R"({"phaseId":255,"phaseStates":[{"light":8,"timing":{"utcTiming":{"startUtcTime":36001,"minEndUtcTime":0,)"
    R"("maxEndTime":36000,"likelyEndUtcTime":12345,"timeConfidence":200,"nextStartUtcTime":1,"nextEndUtcTime":35999}}},)"
    R"({"light":1}]},{"phaseId":0,"phaseStates":[{"light":7,"timing":{"counting":{"startTime":5,"minEndTime":10,)"
    R"("maxEndTime":36001,"likelyEndTime":15,"timeConfidence":1,"nextStartTime":20,"nextDuration":300}}}]}]},)"
    R"({"intersectionId":{"region":7,"id":0},"status":0,"phases":[{"phaseId":9,"phaseStates":[{"light":0}]}]}]})";

class SpatUp : public fakes::Fixture {
protected:
    SpatUp() {
        v2xcloud_ddsInit("RSU0001");
        fakes::ddsMatched["rsu/RSU0001/spat/up"] = 1;
    }
    ~SpatUp() override {
        if (frame != nullptr) {
            v2xcodec_freeStrcut(&frame);
        }
    }
    void decode(const char* digits) {
        Bytes bytes = hex(digits);
        ASSERT_EQ(v2xcodec_uperDec(&frame, bytes.data(), static_cast<int16_t>(bytes.size())), 0) << digits;
    }
    SPAT_t& spat() { return static_cast<MessageFrame_t*>(frame)->choice.spatFrame; }
    // Publishes the frame, which releases it, and returns the document.
    std::string publish() {
        fakes::ddsSent.clear();
        EXPECT_EQ(v2xspatconv_SpatDataUp(&frame), 0);
        EXPECT_EQ(frame, nullptr);
        EXPECT_EQ(fakes::ddsSent.size(), 1U);
        EXPECT_EQ(fakes::ddsSent[0].topic, "rsu/RSU0001/spat/up");
        return {fakes::ddsSent[0].bytes.begin(), fakes::ddsSent[0].bytes.end()};
    }

    ASNSTRUCT_HANDLE frame = nullptr;
};

TEST_F(SpatUp, PublishesTheDocument) {
    decode(encoded::spat);
    EXPECT_EQ(publish(), FULL_TEXT);
}

TEST_F(SpatUp, ReleasesTheFrameOnFailure) {
    EXPECT_EQ(v2xspatconv_SpatDataUp(&frame), -4);
    takeLog();
    decode(encoded::rsi);
    EXPECT_EQ(v2xspatconv_SpatDataUp(&frame), -4);
    EXPECT_EQ(frame, nullptr);
    EXPECT_THAT(takeLog(), ElementsAre("SPUP 2 v2xspatconv_SpatStructToJson error!"));
    EXPECT_EQ(countsOf("up"), (PathCounts{{"no_document", 2}}));
}

TEST_F(SpatUp, WritesValuesThatNoDecoderProduces) {
    decode(encoded::spat);
    const IntersectionState_t& first = *spat().intersections.list.array[0];
    TimeCountingDown_t& counting = first.phases.list.array[1]->phaseStates.list.array[0]->timing->choice.counting;
    for (long** time : {&counting.minEndTime, &counting.maxEndTime, &counting.timeConfidence, &counting.nextStartTime,
                        &counting.nextDuration}) {
        free(std::exchange(*time, nullptr));
    }
    counting.startTime = INT64_MAX;
    counting.likelyEndTime = -5000000000;
    spat().name->buf[1] = '"';
    spat().name->size = 3; // ends in the middle of its memory
    const std::string text = publish();
    EXPECT_THAT(text, StartsWith(R"({"name":"M\"i","intersections")"));
    EXPECT_THAT(text, HasSubstr(R"("counting":{"startTime":9.2233720368547758e+18,"likelyEndTime":-5000000000})"));
}

} // namespace

#include <cjson/cJSON.h>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "encoded_frames.h"
#include "fakes.h"
#include "spat_conv_spatup.h"
#include "spat_conv_v2xcloud_dds.h"

namespace {

using fakes::takeLog;
using testing::AnyOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

// The cloud channel's place.
char upTopic[] = "rsu/RSU0001/spat/up";
int participant;
v2xcloud_comm_ddsinfo channel;
v2xcloud_comm_ddsinfo* channelGiven = &channel;

struct Sent {
    void* handle;
    std::string topic;
    std::string text;
};
std::vector<Sent> sent;

} // namespace

v2xcloud_comm_ddsinfo* v2xspatconv_GetddsInfo() {
    return channelGiven;
}

int32_t v2xcloud_ddsSend(void* dds_handle, const char* topic, const void* data, unsigned int data_len) {
    sent.push_back({dds_handle, topic, {static_cast<const char*>(data), data_len}});
    return -2; // which nobody examines
}

namespace {

using Lines = std::vector<std::string>;

// The document of encoded::spat.
const char FULL_TEXT[] =
    R"({"name":"Main St","intersections":[{"intersectionId":{"id":65535},"status":32772,"phases":[)"
    R"({"phaseId":255,"phaseStates":[{"light":8,"timing":{"utcTiming":{"startUtcTime":36001,"minEndUtcTime":0,)"
    R"("maxEndTime":36000,"likelyEndUtcTime":12345,"timeConfidence":200,"nextStartUtcTime":1,"nextEndUtcTime":35999}}},)"
    R"({"light":1}]},{"phaseId":0,"phaseStates":[{"light":7,"timing":{"counting":{"startTime":5,"minEndTime":10,)"
    R"("maxEndTime":36001,"likelyEndTime":15,"timeConfidence":1,"nextStartTime":20,"nextDuration":300}}}]}]},)"
    R"({"intersectionId":{"region":7,"id":0},"status":0,"phases":[{"phaseId":9,"phaseStates":[{"light":0}]}]}]})";

class SpatUp : public testing::Test {
protected:
    SpatUp() {
        channel.dds_object = &participant;
        channel.mp_spat_up_topic = upTopic;
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
    // The document of the frame, which stays.
    std::string text() {
        char* json = v2xspatconv_SpatStructToJson(&spat());
        std::string copy = json == nullptr ? "none" : json;
        cJSON_free(json);
        return copy;
    }

    ASNSTRUCT_HANDLE frame = nullptr;
};

TEST_F(SpatUp, GoesToTheCloudAndIsReleased) {
    decode(encoded::spat);
    EXPECT_EQ(v2xspatconv_SpatDataUp(&frame), 0);
    EXPECT_EQ(frame, nullptr);
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_EQ(sent[0].handle, &participant);
    EXPECT_EQ(sent[0].topic, "rsu/RSU0001/spat/up");
    EXPECT_EQ(sent[0].text, FULL_TEXT);
    EXPECT_THAT(takeLog(), IsEmpty());
}

TEST_F(SpatUp, FailuresReleaseTheFrame) {
    EXPECT_EQ(v2xspatconv_SpatDataUp(nullptr), -2);
    EXPECT_THAT(takeLog(), ElementsAre("SPUP 2 input param error"));

    EXPECT_EQ(v2xspatconv_SpatDataUp(&frame), -4);
    EXPECT_THAT(takeLog(), ElementsAre("SPUP 2 v2xspatconv_SpatStructToJson error!", "UPER 2 struct is null"));

    decode(encoded::rsi);
    EXPECT_EQ(v2xspatconv_SpatDataUp(&frame), -4);
    EXPECT_EQ(frame, nullptr);
    EXPECT_THAT(takeLog(), ElementsAre("SPUP 2 v2xspatconv_SpatStructToJson error!"));
    EXPECT_EQ(countsOf("up"), (PathCounts{{"no_document", 2}}));

    channelGiven = nullptr;
    decode(encoded::spat);
    EXPECT_EQ(v2xspatconv_SpatDataUp(&frame), -3);
    EXPECT_EQ(frame, nullptr);
    EXPECT_THAT(takeLog(), ElementsAre("SPUP 2 Get ddsinfo error!"));
    EXPECT_THAT(sent, IsEmpty());

    EXPECT_EQ(v2xspatconv_SpatStructToJson(nullptr), nullptr);
    EXPECT_THAT(takeLog(), IsEmpty());
}

TEST_F(SpatUp, ValuesThatNoDecoderMakesAndThoseLeftOut) {
    const std::string head = R"("intersections":[{"intersectionId":{"id":65535},"status":32772,"phases":[)"
                             R"({"phaseId":0,"phaseStates":[)";
    decode(encoded::spat);
    auto& intersections = spat().intersections.list;
    auto& phases = intersections.array[0]->phases.list;
    PhaseState_t*& state = phases.array[1]->phaseStates.list.array[0];
    TimeCountingDown_t& counting = state->timing->choice.counting;
    ASN_STRUCT_FREE(asn_DEF_IntersectionState, std::exchange(intersections.array[1], nullptr));
    ASN_STRUCT_FREE(asn_DEF_Phase, std::exchange(phases.array[0], nullptr));
    for (long** time : {&counting.minEndTime, &counting.maxEndTime, &counting.timeConfidence, &counting.nextStartTime,
                        &counting.nextDuration}) {
        free(std::exchange(*time, nullptr));
    }

    counting.startTime = INT64_MAX;
    counting.likelyEndTime = -5000000000;
    spat().name->buf[1] = '"';
    spat().name->size = 3; // ends in the middle of its memory
    EXPECT_EQ(text(), R"({"name":"M\"i",)" + head +
                          R"({"light":7,"timing":{"counting":{"startTime":9.2233720368547758e+18,)"
                          R"("likelyEndTime":-5000000000}}}]}]}]})");
    spat().name->buf[1] = 0;
    for (const auto present : {TimeChangeDetails_PR_NOTHING, static_cast<TimeChangeDetails_PR>(3)}) {
        const auto known = std::exchange(state->timing->present, present);
        EXPECT_EQ(text(), R"({"name":"M",)" + head + R"({"light":7,"timing":{}}]}]}]})");
        state->timing->present = known;
    }
    free(std::exchange(spat().name->buf, nullptr));
    ASN_STRUCT_FREE(asn_DEF_PhaseState, std::exchange(state, nullptr));
    EXPECT_EQ(text(), R"({"name":"",)" + head + "]}]}]}");
    auto* const array = std::exchange(intersections.array, nullptr);
    EXPECT_EQ(text(), R"({"name":"","intersections":[]})");
    intersections.array = array;
    EXPECT_THAT(takeLog(), IsEmpty());
}

// Memory runs out at the n-th allocation for the document, and is there again afterwards.
int allocationsLeft = 0;
void* allocate(size_t size) {
    return --allocationsLeft == 0 ? nullptr : malloc(size);
}

TEST_F(SpatUp, WithoutMemoryTheDocumentIsShorterOrNone) {
    cJSON_Hooks hooks = {allocate, free};
    cJSON_InitHooks(&hooks);
    decode(encoded::spat);
    int none = 0;
    int shorter = 0;
    Lines allLogs;
    std::string last;
    for (int n = 1; last != FULL_TEXT; n++) {
        allocationsLeft = n;
        char* json = v2xspatconv_SpatStructToJson(&spat());
        ASSERT_TRUE(allocationsLeft <= 0 || json != nullptr) << "nothing was lacking";
        allocationsLeft = 0;
        last = json == nullptr ? "" : json;
        cJSON_free(json);
        cJSON* parsed = cJSON_Parse(last.c_str());
        EXPECT_EQ(parsed == nullptr, json == nullptr) << last;
        cJSON_Delete(parsed);
        none += json == nullptr ? 1 : 0;
        shorter += json != nullptr && last != FULL_TEXT ? 1 : 0;
        const Lines log = takeLog();
        if (n == 1) {
            EXPECT_THAT(log, ElementsAre("SPUP 2 cJSON_Parse Error!"));
            continue;
        }
        allLogs.insert(allLogs.end(), log.begin(), log.end());
    }
    EXPECT_GT(none, 1);
    EXPECT_GT(shorter, 50);
    EXPECT_THAT(allLogs, Contains("SPUP 2 cJSON_CreateObject error"));
    EXPECT_THAT(allLogs, Each(AnyOf("SPUP 2 cJSON_CreateObject error", "SPUP 2 input param error")));
    cJSON_InitHooks(nullptr);
}

} // namespace

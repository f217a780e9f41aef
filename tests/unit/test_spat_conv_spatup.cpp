#include <cjson/cJSON.h>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fakes.h"
#include "spat_conv_spatup.h"
#include "spat_conv_v2xcloud_dds.h"

namespace {

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
int32_t sendResult = 0;

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
    return sendResult;
}

namespace {

// Errors and warnings logged since the last call, as "tag level text".
using Lines = std::vector<std::string>;
Lines takeLog() {
    Lines lines;
    for (const fakes::LogLine& line : fakes::logLines) {
        if (line.level <= 3) {
            lines.push_back(line.tag + " " + std::to_string(line.level) + " " + line.text);
        }
    }
    fakes::logLines.clear();
    return lines;
}

std::string spatXer(const std::string& name, const std::string& intersections) {
    return "<MessageFrame><spatFrame><msgCnt>5</msgCnt><moy>7</moy><timeStamp>9</timeStamp>" + name +
           "<intersections>" + intersections + "</intersections></spatFrame></MessageFrame>";
}

std::string intersectionXer(const std::string& phases) {
    return "<IntersectionState><intersectionId><region>1</region><id>2</id></intersectionId>"
           "<status>0000000100000010</status><moy>7</moy><timeStamp>9</timeStamp><phases>" +
           phases + "</phases></IntersectionState>";
}

std::string phaseXer(const std::string& light, const std::string& timing) {
    return "<Phase><id>7</id><phaseStates><PhaseState><light><" + light + "/></light>" + timing +
           "</PhaseState></phaseStates></Phase>";
}

const std::string COUNTING = "<timing><counting><startTime>1</startTime><minEndTime>2</minEndTime>"
                             "<maxEndTime>3</maxEndTime><likelyEndTime>4</likelyEndTime>"
                             "<timeConfidence>5</timeConfidence><nextStartTime>6</nextStartTime>"
                             "<nextDuration>36001</nextDuration></counting></timing>";
const std::string UTC = "<timing><utcTiming><startUTCTime>11</startUTCTime><minEndUTCTime>12</minEndUTCTime>"
                        "<maxEndUTCTime>300</maxEndUTCTime><likelyEndUTCTime>14</likelyEndUTCTime>"
                        "<timeConfidence>15</timeConfidence><nextStartUTCTime>16</nextStartUTCTime>"
                        "<nextEndUTCTime>17</nextEndUTCTime></utcTiming></timing>";
const std::string FULL =
    spatXer("<name>Crossing 7</name>",
            intersectionXer(phaseXer("red", COUNTING) + phaseXer("yellow", UTC)) + intersectionXer(""));
const char FULL_TEXT[] =
    R"({"name":"Crossing 7","intersections":[{"intersectionId":{"region":1,"id":2},"status":258,"phases":[)"
    R"({"phaseId":7,"phaseStates":[{"light":3,"timing":{"counting":{"startTime":1,"minEndTime":2,"maxEndTime":3,)"
    R"("likelyEndTime":4,"timeConfidence":5,"nextStartTime":6,"nextDuration":36001}}}]},)"
    R"({"phaseId":7,"phaseStates":[{"light":7,"timing":{"utcTiming":{"startUtcTime":11,"minEndUtcTime":12,)"
    R"("maxEndTime":300,"likelyEndUtcTime":14,"timeConfidence":15,"nextStartUtcTime":16,"nextEndUtcTime":17}}}]}]},)"
    R"({"intersectionId":{"region":1,"id":2},"status":258,"phases":[]}]})";

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
    void decode(std::string xer) {
        const auto size = static_cast<int32_t>(xer.size());
        ASSERT_EQ(v2xcodec_xerDec(&frame, reinterpret_cast<uint8_t*>(xer.data()), size), 0) << xer;
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

TEST_F(SpatUp, Documents) {
    const auto phases = [](const std::string& phase) {
        return R"({"intersections":[{"intersectionId":{"region":1,"id":2},"status":258,"phases":[)" + phase + "]}]}";
    };
    const struct {
        std::string xer;
        std::string text;
    } cases[] = {
        {FULL, FULL_TEXT},
        {spatXer("<name>a \"b\"\\</name>", ""), R"({"name":"a \"b\"\\","intersections":[]})"},
        {spatXer("", "<IntersectionState><intersectionId><id>65535</id></intersectionId><status></status><phases>"
                     "<Phase><id>255</id><phaseStates></phaseStates></Phase></phases></IntersectionState>"),
         R"({"intersections":[{"intersectionId":{"id":65535},"status":0,"phases":[{"phaseId":255,"phaseStates":[]}]}]})"},
        {spatXer("", intersectionXer(phaseXer("dark", "<timing><counting><startTime>0</startTime><likelyEndTime>4"
                                                      "</likelyEndTime></counting></timing>"))),
         phases(
             R"({"phaseId":7,"phaseStates":[{"light":1,"timing":{"counting":{"startTime":0,"likelyEndTime":4}}}]})")},
        {spatXer("", intersectionXer(phaseXer("dark", "<timing><utcTiming><startUTCTime>0</startUTCTime>"
                                                      "<likelyEndUTCTime>-4</likelyEndUTCTime></utcTiming></timing>"))),
         phases(R"({"phaseId":7,"phaseStates":[{"light":1,"timing":{"utcTiming":{"startUtcTime":0,)"
                R"("likelyEndUtcTime":-4}}}]})")},
    };
    for (const auto& row : cases) {
        decode(row.xer);
        EXPECT_EQ(text(), row.text);
        EXPECT_EQ(v2xspatconv_SpatDataUp(&frame), 0);
        EXPECT_EQ(frame, nullptr);
        ASSERT_EQ(sent.size(), 1U);
        EXPECT_EQ(sent[0].handle, &participant);
        EXPECT_EQ(sent[0].topic, "rsu/RSU0001/spat/up");
        EXPECT_EQ(sent[0].text, row.text);
        EXPECT_THAT(takeLog(), IsEmpty());
        sent.clear();
    }
}

TEST_F(SpatUp, TheResultOfSendingIsNotExamined) {
    sendResult = -2;
    decode(FULL);
    EXPECT_EQ(v2xspatconv_SpatDataUp(&frame), 0);
    EXPECT_EQ(sent.size(), 1U);
}

TEST_F(SpatUp, FailuresReleaseTheFrame) {
    EXPECT_EQ(v2xspatconv_SpatDataUp(nullptr), -2);
    EXPECT_THAT(takeLog(), ElementsAre("SPUP 2 input param error"));

    EXPECT_EQ(v2xspatconv_SpatDataUp(&frame), -4);
    EXPECT_THAT(takeLog(), ElementsAre("SPUP 2 v2xspatconv_SpatStructToJson error!", "UPER 2 struct is null"));

    decode("<MessageFrame><rsiFrame><msgCnt>5</msgCnt><id>3031323334353637</id><refPos><lat>0</lat><long>0</long>"
           "</refPos></rsiFrame></MessageFrame>");
    EXPECT_EQ(v2xspatconv_SpatDataUp(&frame), -4);
    EXPECT_EQ(frame, nullptr);
    EXPECT_THAT(takeLog(), ElementsAre("SPUP 2 v2xspatconv_SpatStructToJson error!"));
    EXPECT_EQ(countsOf("up"), (PathCounts{{"no_document", 2}}));

    channelGiven = nullptr;
    decode(FULL);
    EXPECT_EQ(v2xspatconv_SpatDataUp(&frame), -3);
    EXPECT_EQ(frame, nullptr);
    EXPECT_THAT(takeLog(), ElementsAre("SPUP 2 Get ddsinfo error!"));
    EXPECT_THAT(sent, IsEmpty());

    EXPECT_EQ(v2xspatconv_SpatStructToJson(nullptr), nullptr);
    EXPECT_THAT(takeLog(), IsEmpty());
}

TEST_F(SpatUp, ValuesThatNoDecoderMakes) {
    decode(FULL);
    auto& intersections = spat().intersections.list;
    auto& phases = intersections.array[0]->phases.list;
    auto& states = phases.array[0]->phaseStates.list;
    auto* const timing = states.array[0]->timing;

    IntersectionState_t* const second = std::exchange(intersections.array[1], nullptr);
    Phase_t* const phase = std::exchange(phases.array[1], nullptr);
    spat().name->size = 3; // ends in the middle of its memory
    for (const auto present : {TimeChangeDetails_PR_NOTHING, static_cast<TimeChangeDetails_PR>(3)}) {
        timing->present = present;
        EXPECT_EQ(text(), R"({"name":"Cro","intersections":[{"intersectionId":{"region":1,"id":2},"status":258,)"
                          R"("phases":[{"phaseId":7,"phaseStates":[{"light":3,"timing":{}}]}]}]})");
    }
    timing->present = TimeChangeDetails_PR_counting;
    timing->choice.counting.startTime = INT64_MAX;
    timing->choice.counting.likelyEndTime = -5000000000;
    spat().name->buf[1] = 0;
    EXPECT_EQ(text(), R"({"name":"C","intersections":[{"intersectionId":{"region":1,"id":2},"status":258,)"
                      R"("phases":[{"phaseId":7,"phaseStates":[{"light":3,"timing":{"counting":{)"
                      R"("startTime":9.2233720368547758e+18,"minEndTime":2,"maxEndTime":3,"likelyEndTime":-5000000000,)"
                      R"("timeConfidence":5,"nextStartTime":6,"nextDuration":36001}}}]}]}]})");
    uint8_t* const name = std::exchange(spat().name->buf, nullptr);
    PhaseState_t* const state = std::exchange(states.array[0], nullptr);
    EXPECT_EQ(text(), R"({"name":"","intersections":[{"intersectionId":{"region":1,"id":2},"status":258,)"
                      R"("phases":[{"phaseId":7,"phaseStates":[]}]}]})");
    auto* const array = std::exchange(intersections.array, nullptr);
    EXPECT_EQ(text(), R"({"name":"","intersections":[]})");
    EXPECT_THAT(takeLog(), IsEmpty());

    intersections.array = array;
    intersections.array[1] = second;
    phases.array[1] = phase;
    states.array[0] = state;
    spat().name->buf = name;
    timing->present = TimeChangeDetails_PR_counting;
}

// Memory runs out at the n-th allocation for the document, and is there again afterwards.
int allocationsLeft = 0;
void* allocate(size_t size) {
    return --allocationsLeft == 0 ? nullptr : malloc(size);
}

TEST_F(SpatUp, WithoutMemoryTheDocumentIsShorterOrNone) {
    cJSON_Hooks hooks = {allocate, free};
    cJSON_InitHooks(&hooks);
    decode(FULL);
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

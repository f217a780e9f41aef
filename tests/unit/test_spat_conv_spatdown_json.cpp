// What the readers make of a document's parts, with their codes and messages.
#include <gtest/gtest.h>
#include <memory>

#include "spat_conv_spatdown_json.h"
#include "spatdown_test.h"

namespace {

constexpr auto SETTLED = v2xspatconv_down::settled;
constexpr auto CORRECTED = v2xspatconv_down::corrected;

// Memory runs out at the n-th of the calls to calloc, or of those to realloc, from now on; 0: never.
int callocsLeft = 0;
int reallocsLeft = 0;

} // namespace

// The linker sends the calls here (--wrap).
extern "C" {
void* realCalloc(size_t count, size_t size) __asm__("__real_calloc");
void* realRealloc(void* memory, size_t size) __asm__("__real_realloc");
void* wrapCalloc(size_t count, size_t size) __asm__("__wrap_calloc");
void* wrapRealloc(void* memory, size_t size) __asm__("__wrap_realloc");

void* wrapCalloc(size_t count, size_t size) {
    return callocsLeft > 0 && --callocsLeft == 0 ? nullptr : realCalloc(count, size);
}

void* wrapRealloc(void* memory, size_t size) {
    return reallocsLeft > 0 && --reallocsLeft == 0 ? nullptr : realRealloc(memory, size);
}
}

namespace {

struct DeleteJson {
    void operator()(cJSON* json) const { cJSON_Delete(json); }
};
using Json = std::unique_ptr<cJSON, DeleteJson>;

struct FreeSpat {
    void operator()(SPAT_t* spat) const { ASN_STRUCT_FREE(asn_DEF_SPAT, spat); }
};
using Spat = std::unique_ptr<SPAT_t, FreeSpat>;

Json parse(const std::string& text) {
    Json json(cJSON_Parse(text.c_str()));
    EXPECT_NE(json, nullptr) << text;
    return json;
}

Spat newSpat() {
    return Spat(static_cast<SPAT_t*>(calloc(1, sizeof(SPAT_t))));
}

std::string text(const long* member) {
    return member == nullptr ? "-" : std::to_string(*member);
}

TEST(Document, NullArguments) {
    const Spat spat = newSpat();
    const Json json = parse("{}");
    EXPECT_EQ(v2xspatconv_SpatJsonToStruct(nullptr, spat.get()), -2);
    EXPECT_EQ(v2xspatconv_SpatJsonToStruct("{}", nullptr), -2);
    EXPECT_EQ(v2xspatconv_GetNameFromJson(nullptr, spat.get()), -2);
    EXPECT_EQ(v2xspatconv_GetNameFromJson(json.get(), nullptr), -2);
    EXPECT_EQ(v2xspatconv_GetIntersectionsFromJson(nullptr, spat.get(), SETTLED), -2);
    EXPECT_EQ(v2xspatconv_GetIntersectionsFromJson(json.get(), nullptr, SETTLED), -2);
    PhaseList_t phases = {};
    PhaseStateList_t states = {};
    EXPECT_EQ(GetPhasesFromJson(nullptr, &phases, SETTLED), -2);
    EXPECT_EQ(GetPhasesFromJson(json.get(), nullptr, SETTLED), -2);
    EXPECT_EQ(GetPhaseStatesFormJson(nullptr, &states, SETTLED), -2);
    EXPECT_EQ(GetPhaseStatesFormJson(json.get(), nullptr, SETTLED), -2);
    TimeChangeDetails_t timing = {};
    EXPECT_EQ(GetTimingFromJson(nullptr, &timing), -2);
    EXPECT_EQ(GetCountingFromJson(nullptr, &timing.choice.counting), -2);
    EXPECT_EQ(GetCountingFromJson(json.get(), nullptr), -2);
    EXPECT_EQ(GetUtcTimingFromJson(nullptr, &timing.choice.utcTiming), -2);
    EXPECT_EQ(GetUtcTimingFromJson(json.get(), nullptr), -2);
    EXPECT_EQ(takeLog(), Lines(15, "DOWN 2 input param error"));
    NodeReferenceID_t id = {};
    EXPECT_EQ(GetNodeReferenceIDFromJson(nullptr, "intersectionId", &id), -2);
    EXPECT_EQ(GetNodeReferenceIDFromJson(json.get(), nullptr, &id), -2);
    EXPECT_EQ(GetNodeReferenceIDFromJson(json.get(), "intersectionId", nullptr), -2);
    EXPECT_EQ(takeLog(), Lines());
}

TEST(Document, CodesAndMessages) {
    const struct {
        const char* text;
        int32_t ret;
        Lines log;
    } cases[] = {
        {"", -2, {"DOWN 2 cJSON_Parse Error!"}},
        {R"({"name":"a)", -2, {"DOWN 2 cJSON_Parse Error!"}},
        {"{}",
         -3,
         {"DOWN 2 cJSON_Parse error!", "DOWN 2 cJSON_Parse Error!",
          "DOWN 2 v2xspatconv_GetIntersectionsFromJson error"}},
        {R"({"name":"a","intersections":[]})", -3, {"DOWN 2 v2xspatconv_GetIntersectionsFromJson error"}},
        {R"({"intersections":[{"status":0,"phases":[]}],"name":7} and more)",
         0,
         {"DOWN 2 cJSON_Parse error!", "DOWN 2 Get intersectionId failed!"}},
    };
    for (const auto& row : cases) {
        const Spat spat = newSpat();
        EXPECT_EQ(v2xspatconv_SpatJsonToStruct(row.text, spat.get()), row.ret) << row.text;
        EXPECT_EQ(takeLog(), row.log) << row.text;
    }
}

TEST(Name, IsReadWholeAndUnchecked) {
    const std::string longName(300, 'n');
    const struct {
        std::string member;
        int32_t ret;
        std::string name; // "-" = none
    } cases[] = {
        {R"("name":"Crossing 7")", 0, "Crossing 7"},
        {R"("name":"Kreuzung \u00fc")", 0, "Kreuzung \xC3\xBC"},
        {R"("name":")" + longName + "\"", 0, longName},
        {R"("Name":"a")", -4, "-"},
        {R"("name":5)", -4, "-"},
        {R"("name":["a"])", -4, "-"},
    };
    for (const auto& row : cases) {
        const Spat spat = newSpat();
        const Json json = parse("{" + row.member + "}");
        EXPECT_EQ(v2xspatconv_GetNameFromJson(json.get(), spat.get()), row.ret) << row.member;
        const DescriptiveName_t* name = spat->name;
        EXPECT_EQ(name == nullptr ? "-" : std::string(name->buf, name->buf + name->size), row.name);
        EXPECT_EQ(takeLog(), row.ret == 0 ? Lines() : Lines{"DOWN 2 cJSON_Parse error!"}) << row.member;
    }
}

TEST(NodeReference, CodesAndMessages) {
    const struct {
        const char* object;
        int32_t ret;
        std::string region;
        long id;
        Lines log;
    } cases[] = {
        {R"({"id":2})", 0, "-", 2, {}},
        {R"({"region":65535,"id":65535})", 0, "65535", 65535, {}},
        {R"({"region":65536,"id":2})", -3, "0", 0, {"DOWN 2 region value error"}},
        {R"({"region":-1,"id":2})", -3, "0", 0, {"DOWN 2 region value error"}},
        {R"({"region":1,"id":65536})", -5, "1", 0, {"DOWN 2 id value error"}},
        {R"({"id":-1})", -5, "-", 0, {"DOWN 2 id value error"}},
        {R"({"region":1})", -6, "1", 0, {"DOWN 2 Get id->id item failed!"}},
        {"5", -6, "-", 0, {"DOWN 2 Get id->id item failed!"}},
    };
    for (const auto& row : cases) {
        NodeReferenceID_t reference = {};
        const Json json = parse(std::string(R"({"here":)") + row.object + "}");
        EXPECT_EQ(GetNodeReferenceIDFromJson(json.get(), "here", &reference), row.ret) << row.object;
        EXPECT_EQ(text(reference.region), row.region) << row.object;
        EXPECT_EQ(reference.id, row.id) << row.object;
        EXPECT_EQ(takeLog(), row.log) << row.object;
        EXPECT_EQ(GetNodeReferenceIDFromJson(json.get(), "there", &reference), 0);
        EXPECT_EQ(takeLog(), Lines{"DOWN 2 Get there failed!"});
        free(reference.region);
    }
}

TEST(Intersections, TheLastOneDecidesAndDroppedOnesLeaveNoTrace) {
    const std::string good = R"({"intersectionId":{"id":3},"status":0,"phases":[]})";
    const std::string noStatus = R"({"intersectionId":{"id":4},"phases":[]})";
    const std::string noPhases = R"({"intersectionId":{"id":5},"status":0,"Phases":[]})";
    const std::string noId = R"({"intersectionId":{},"status":0,"phases":[]})";
    const Lines statusLog = {"SCOM 2 Get status item failed!", "DOWN 2 get status error"};
    const Lines phasesLog = {"DOWN 2 cJSON_Parse Error!", "DOWN 2 GetPhasesFromJson error"};
    const Lines idLog = {"DOWN 2 Get id->id item failed!", "DOWN 2 GetNodeReferenceIDFromJson error"};
    const struct {
        std::string list;
        int32_t ret;
        std::vector<long> ids; // of those in the list
        Lines log;
    } cases[] = {
        {"[]", -1, {}, {}},
        {"{}", -1, {}, {}},
        {"[" + noStatus + "]", -3, {}, statusLog},
        {"[" + noPhases + "]", -4, {}, phasesLog},
        {"[" + noId + "]", -6, {}, idLog},
        {"[" + good + "," + noStatus + "]", -3, {3}, statusLog},
        {"[" + noId + "," + good + "," + good + "]", 0, {3, 3}, idLog},
        {"[" + good + "," + noPhases + "," + good + "]", 0, {3, 3}, phasesLog},
        {"{\"a\":" + good + "}", 0, {3}, {}},
        {"[7]", -3, {}, {"DOWN 2 Get intersectionId failed!", statusLog[0], statusLog[1]}},
    };
    for (const auto mode : {SETTLED, CORRECTED}) {
        for (const auto& row : cases) {
            const Spat spat = newSpat();
            const Json json = parse(R"({"intersections":)" + row.list + "}");
            EXPECT_EQ(v2xspatconv_GetIntersectionsFromJson(json.get(), spat.get(), mode), row.ret) << row.list;
            EXPECT_EQ(takeLog(), row.log) << row.list;
            std::vector<long> ids;
            ids.reserve(row.ids.size());
            for (int i = 0; i < spat->intersections.list.count; i++) {
                ids.push_back(spat->intersections.list.array[i]->intersectionId.id);
            }
            EXPECT_EQ(ids, row.ids) << row.list;
        }
    }
}

TEST(Phases, MissingMembersLeaveZeroAndGoOn) {
    const Json json = parse(R"({"phases":[{},7,{"phaseId":-3,"phaseStates":[{},{"light":9}]}]})");
    PhaseList_t phases = {};
    EXPECT_EQ(GetPhasesFromJson(json.get(), &phases, SETTLED), 0);
    ASSERT_EQ(phases.list.count, 3);
    EXPECT_EQ(phases.list.array[0]->id, 0);
    EXPECT_EQ(phases.list.array[1]->phaseStates.list.count, 0);
    EXPECT_EQ(phases.list.array[2]->id, -3);
    ASSERT_EQ(phases.list.array[2]->phaseStates.list.count, 2);
    EXPECT_EQ(phases.list.array[2]->phaseStates.list.array[0]->light, 0);
    EXPECT_EQ(phases.list.array[2]->phaseStates.list.array[1]->light, 9);
    EXPECT_EQ(takeLog(),
              (Lines{"SCOM 2 Get phaseId item failed!", "DOWN 2 cJSON_Parse Error!", "SCOM 2 Get phaseId item failed!",
                     "DOWN 2 cJSON_Parse Error!", "SCOM 2 Get light item failed!", "DOWN 3 cJSON_Parse timing failed!",
                     "DOWN 3 cJSON_Parse timing failed!"}));
    ASN_STRUCT_FREE_CONTENTS_ONLY(asn_DEF_PhaseList, &phases);
}

// A phase state's timing by name and value, in the record's order.
std::string timingText(const TimeChangeDetails_t* timing) {
    if (timing == nullptr) {
        return "none";
    }
    const auto join = [](const char* name, long start, long likely, const std::vector<const long*>& optional) {
        std::string all = name + std::to_string(start) + " " + std::to_string(likely);
        for (const long* member : optional) {
            all += " " + text(member);
        }
        return all;
    };
    if (timing->present == TimeChangeDetails_PR_counting) {
        const auto& c = timing->choice.counting;
        return join("counting ", c.startTime, c.likelyEndTime,
                    {c.maxEndTime, c.minEndTime, c.nextStartTime, c.nextDuration, c.timeConfidence});
    }
    if (timing->present == TimeChangeDetails_PR_utcTiming) {
        const auto& u = timing->choice.utcTiming;
        return join("utc ", u.startUTCTime, u.likelyEndUTCTime,
                    {u.maxEndUTCTime, u.minEndUTCTime, u.nextStartUTCTime, u.nextEndUTCTime, u.timeConfidence});
    }
    return "nothing chosen";
}

TEST(Timing, IsAttachedWhenCorrectedAndSaysTheSameEitherWay) {
    const auto missing = [](const std::vector<std::string>& keys) {
        Lines lines;
        lines.reserve(keys.size());
        for (const std::string& key : keys) {
            lines.push_back("SCOM 2 Get " + key + " item failed!");
        }
        return lines;
    };
    const std::string noCounting = "DOWN 3 cJSON_Parse counting failed!";
    const std::string noUtc = "DOWN 3 cJSON_Parse utcTiming failed!";
    const auto around = [](Lines lines, const std::string& before, const std::string& behind) {
        if (!before.empty()) {
            lines.insert(lines.begin(), before);
        }
        if (!behind.empty()) {
            lines.push_back(behind);
        }
        return lines;
    };
    const std::string allCounting =
        R"("counting":{"startTime":1,"minEndTime":2,"maxEndTime":3,"likelyEndTime":4,"timeConfidence":5,)"
        R"("nextStartTime":6,"nextDuration":7})";
    const std::string allUtc =
        R"("utcTiming":{"startUtcTime":11,"minEndUtcTime":12,"maxEndUtcTime":13,"likelyEndUtcTime":14,)"
        R"("timeConfidence":15,"nextStartUtcTime":16,"nextEndUtcTime":17})";
    const struct {
        std::string timing;
        std::string corrected;
        Lines log;
    } cases[] = {
        {"{" + allCounting + "}", "counting 1 4 3 2 6 7 5", {noUtc}},
        {"{" + allUtc + "}", "utc 11 14 13 12 16 17 15", {noCounting}},
        {"{" + allUtc + "," + allCounting + "}", "counting 1 4 3 2 6 7 5", {}},
        {"{}", "nothing chosen", {noCounting, noUtc}},
        {R"({"Counting":{}})", "nothing chosen", {noCounting, noUtc}},
        {R"({"counting":{}})", "counting 0 36001 - - - - -",
         around(missing({"startTime", "minEndTime", "maxEndTime", "likelyEndTime", "timeConfidence", "nextStartTime",
                         "nextDuration"}),
                "", noUtc)},
        {R"({"counting":{"startTime":8589934592,"likelyEndTime":-1.5,"minEndTime":"x","timeConfidence":null}})",
         "counting 2147483647 36001 - - - - -",
         around(missing({"maxEndTime", "nextStartTime", "nextDuration"}), "", noUtc)},
        {R"({"counting":null,)" + allUtc + "}", "utc 11 14 13 12 16 17 15",
         missing({"startTime", "minEndTime", "maxEndTime", "likelyEndTime", "timeConfidence", "nextStartTime",
                  "nextDuration"})},
        {R"({"counting":{"startTime":0,"likelyEndTime":36002}})", "counting 0 36001 - - - - -",
         around(missing({"minEndTime", "maxEndTime", "timeConfidence", "nextStartTime", "nextDuration"}), "", noUtc)},
        {R"({"utcTiming":{"maxEndTime":300}})", "utc 0 36001 - - - - -",
         around(missing({"startUtcTime", "minEndUtcTime", "maxEndUtcTime", "likelyEndUtcTime", "timeConfidence",
                         "nextStartUtcTime", "nextEndUtcTime"}),
                noCounting, "")},
    };
    for (const auto mode : {SETTLED, CORRECTED}) {
        for (const auto& row : cases) {
            PhaseStateList_t states = {};
            const Json json = parse(R"({"phaseStates":[{"light":3,"timing":)" + row.timing + "}]}");
            ASSERT_EQ(GetPhaseStatesFormJson(json.get(), &states, mode), 0);
            EXPECT_EQ(timingText(states.list.array[0]->timing), mode == CORRECTED ? row.corrected : "none")
                << row.timing;
            EXPECT_EQ(takeLog(), row.log) << row.timing;
            ASN_STRUCT_FREE_CONTENTS_ONLY(asn_DEF_PhaseStateList, &states);
        }
    }
}

// A light that is none would be cut to another one's number.
TEST(Timing, ALightOutOfRangeIsUnavailableWhenCorrected) {
    for (const auto& [light, corrected] : {std::pair{8, 8}, {9, 0}, {-1, 0}, {259, 0}}) {
        for (const auto mode : {SETTLED, CORRECTED}) {
            PhaseStateList_t states = {};
            const Json json = parse(R"({"phaseStates":[{"light":)" + std::to_string(light) + "}]}");
            ASSERT_EQ(GetPhaseStatesFormJson(json.get(), &states, mode), 0);
            EXPECT_EQ(states.list.array[0]->light, mode == CORRECTED ? corrected : light);
            ASN_STRUCT_FREE_CONTENTS_ONLY(asn_DEF_PhaseStateList, &states);
        }
    }
    takeLog();
}

TEST(Memory, RunsOutSomewhere) {
    const std::string text =
        document(intersection(R"({"region":1,"id":2})", "258",
                              R"([{"phaseId":1,"phaseStates":[{"light":3,"timing":{"counting":{"startTime":1,)"
                              R"("minEndTime":2,"maxEndTime":3,"likelyEndTime":4,"timeConfidence":5,)"
                              R"("nextStartTime":6,"nextDuration":7},"utcTiming":{"startUtcTime":11,)"
                              R"("minEndUtcTime":12,"maxEndUtcTime":13,"likelyEndUtcTime":14,)"
                              R"("timeConfidence":15,"nextStartUtcTime":16,"nextEndUtcTime":17}}}]}])"));
    const std::string dropped = "DOWN 2 v2xspatconv_GetIntersectionsFromJson error";
    const std::string full = "DOWN 2 ASN_SEQUENCE_ADD faild \n";
    const struct {
        int callocs;
        int reallocs;
        v2xspatconv_down mode;
        int32_t ret;
        Lines log;
    } cases[] = {
        {1, 0, SETTLED, 0, {"DOWN 2 Calloc error!"}},
        {2, 0, SETTLED, -3, {"DOWN 2 IntersectionState_t calloc failed!", dropped}},
        {3, 0, SETTLED, -3, {"DOWN 2 id->region calloc error", "DOWN 2 GetNodeReferenceIDFromJson error", dropped}},
        {4, 0, SETTLED, -3, {"DOWN 2 Phase_t calloc failed!", "DOWN 2 GetPhasesFromJson error", dropped}},
        {5, 0, SETTLED, 0, {"DOWN 2 PhaseState_t calloc failed!"}},
        {6, 0, SETTLED, 0, {}},
        {0, 1, SETTLED, 0, {full}},
        {0, 2, SETTLED, -3, {full, "DOWN 2 GetPhasesFromJson error", dropped}},
        {0, 3, SETTLED, -3, {full, dropped}},
        {4, 0, CORRECTED, 0, {}}, // the status
        {7, 0, CORRECTED, 0, {"DOWN 2 timing calloc failed!"}},
        {8, 0, CORRECTED, 0, {}}, // an optional time
        {12, 0, CORRECTED, 0, {}},
        {0, 1, CORRECTED, 0, {full}},
    };
    for (const auto& row : cases) {
        const Spat spat = newSpat();
        callocsLeft = row.callocs;
        reallocsLeft = row.reallocs;
        EXPECT_EQ(v2xspatconv_SpatJsonToStruct(text.c_str(), spat.get(), row.mode), row.ret) << row.callocs;
        EXPECT_EQ(takeLog(), row.log) << row.callocs << " " << row.reallocs;
        callocsLeft = 0;
        reallocsLeft = 0;
    }
}

} // namespace

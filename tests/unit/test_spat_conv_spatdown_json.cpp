#include <memory>

#include "spat_conv_spatdown_json.h"
#include "spatdown_test.h"
#include "timing_text.h"
#include "v2xapp_commoncodec.h"

namespace {

constexpr auto LEGACY = v2xspatconv_downMode::legacy;
constexpr auto CORRECTED = v2xspatconv_downMode::corrected;

struct FreeSpat {
    void operator()(SPAT_t* spat) const { ASN_STRUCT_FREE(asn_DEF_SPAT, spat); }
};
using Spat = std::unique_ptr<SPAT_t, FreeSpat>;

Spat newSpat() {
    return Spat(static_cast<SPAT_t*>(calloc(1, sizeof(SPAT_t))));
}

using Reader = fakes::Fixture;

TEST_F(Reader, ReadsTheDocumentsFrame) {
    const std::string noName = "DOWN 2 cJSON_Parse error!";
    const std::string noDocument = "DOWN 2 cJSON_Parse Error!";
    const std::string noIntersections = "DOWN 2 v2xspatconv_GetIntersectionsFromJson error";
    const struct {
        std::string text;
        int32_t ret;
        std::string name; // "-": absent
        Lines log;
    } cases[] = {
        {"", -2, "-", {noDocument}},
        {"[]", -3, "-", {noName, noDocument, noIntersections}},
        {R"({"name":"Kreuzung \u00fc","intersections":[]})", -3, "Kreuzung \xC3\xBC", {noIntersections}},
        {R"({"intersections":[{"status":0,"phases":[]}],"name":7} and more)",
         0,
         "-",
         {noName, "DOWN 2 Get intersectionId failed!"}},
    };
    for (const auto& row : cases) {
        const Spat spat = newSpat();
        EXPECT_EQ(v2xspatconv_SpatJsonToStruct(row.text.c_str(), spat.get(), {LEGACY}), row.ret) << row.text;
        const DescriptiveName_t* name = spat->name;
        EXPECT_EQ(name == nullptr ? "-" : std::string(name->buf, name->buf + name->size), row.name);
        EXPECT_EQ(takeLog(), row.log) << row.text;
    }
}

// The intersections in the list, as "region/id status".
Lines shown(const SPAT_t& spat) {
    Lines all;
    for (int i = 0; i < spat.intersections.list.count; i++) {
        const IntersectionState_t& one = *spat.intersections.list.array[i];
        int64_t status = 0;
        v2xcodec_bitString2Long(const_cast<IntersectionStatusObject_t*>(&one.status), &status);
        all.push_back(text(one.intersectionId.region) + "/" + std::to_string(one.intersectionId.id) + " " +
                      std::to_string(status));
    }
    return all;
}

TEST_F(Reader, ReturnsTheLastIntersectionsResultAndDropsFailedOnes) {
    const auto with = [](const std::string& identity, const std::string& status = "0") {
        return intersection(identity, status, "[]");
    };
    const std::string good = with(R"({"id":3})");
    const std::string noStatus = R"({"intersectionId":{"id":4},"phases":[]})";
    const std::string noPhases = R"({"intersectionId":{"id":5},"status":0,"Phases":[]})";
    const Lines statusLog = {"SCOM 2 Get status item failed!", "DOWN 2 get status error"};
    const Lines phasesLog = {"DOWN 2 cJSON_Parse Error!", "DOWN 2 GetPhasesFromJson error"};
    const auto idLog = [](const std::string& line) {
        return Lines{"DOWN 2 " + line, "DOWN 2 GetNodeReferenceIDFromJson error"};
    };
    const Lines noId = {"SCOM 2 Get id item failed!", "DOWN 2 Get id->id item failed!",
                        "DOWN 2 GetNodeReferenceIDFromJson error"};
    const struct {
        std::string list;
        int32_t ret;
        Lines corrected; // legacy: each status is 0
        Lines log;
    } cases[] = {
        {"", -1, {}, {}},
        {with(R"({"region":65535,"id":65535})", "65535"), 0, {"65535/65535 65535"}, {}},
        {with(R"({"region":0.9,"id":7.9})", "65536"), 0, {"0/7 0"}, {}},
        {with(R"({"region":"1","id":true})", "\"258\""), 0, {"0/1 0"}, {}},
        {with(R"({"region":-1,"id":2})"), -3, {}, idLog("region value error")},
        {with(R"({"region":1,"id":65536})"), -5, {}, idLog("id value error")},
        {with(R"({"region":1})"), -6, {}, noId},
        {noStatus, -3, {}, statusLog},
        {noPhases, -4, {}, phasesLog},
        {good + "," + noStatus, -3, {"-/3 0"}, statusLog},
        {with("{}") + "," + good + "," + good, 0, {"-/3 0", "-/3 0"}, noId},
        {"7", -3, {}, {"DOWN 2 Get intersectionId failed!", statusLog[0], statusLog[1]}},
    };
    for (const auto mode : {LEGACY, CORRECTED}) {
        for (const auto& row : cases) {
            const Spat spat = newSpat();
            const bool failed = row.ret != 0;
            EXPECT_EQ(v2xspatconv_SpatJsonToStruct(document(row.list).c_str(), spat.get(), {mode}), failed ? -3 : 0);
            const std::string end = "v2xspatconv_GetIntersectionsFromJson end ret=" + std::to_string(row.ret);
            EXPECT_EQ(fakes::logged(end).size(), 1U) << row.list;
            Lines log = row.log;
            log.insert(log.end(), failed ? 1 : 0, "DOWN 2 v2xspatconv_GetIntersectionsFromJson error");
            EXPECT_EQ(takeLog(), log) << row.list;
            Lines expected = row.corrected;
            for (std::string& one : expected) {
                one = mode == CORRECTED ? one : one.substr(0, one.find(' ')) + " 0";
            }
            EXPECT_EQ(shown(*spat), expected) << row.list;
        }
    }
}

// `before`, "Get KEY item failed!" for each of the keys, `behind`.
Lines missing(const std::vector<std::string>& keys, const Lines& before, const Lines& behind) {
    Lines lines = before;
    for (const std::string& key : keys) {
        lines.push_back("SCOM 2 Get " + key + " item failed!");
    }
    lines.insert(lines.end(), behind.begin(), behind.end());
    return lines;
}

TEST_F(Reader, AttachesTimingWhenCorrectedAndLogsTheSameInBothModes) {
    const std::string noCounting = "DOWN 3 cJSON_Parse counting failed!";
    const std::string noUtc = "DOWN 3 cJSON_Parse utcTiming failed!";
    const std::string noTiming = "DOWN 3 cJSON_Parse timing failed!";
    const std::string allCounting =
        R"("counting":{"startTime":1,"minEndTime":2,"maxEndTime":3,"likelyEndTime":4,"timeConfidence":5,)"
        R"("nextStartTime":6,"nextDuration":7})";
    const std::string allUtc =
        R"("utcTiming":{"startUtcTime":11,"minEndUtcTime":12,"maxEndUtcTime":13,"likelyEndUtcTime":14,)"
        R"("timeConfidence":15,"nextStartUtcTime":16,"nextEndUtcTime":17})";
    const struct {
        long light;
        std::string more; // members
        std::string corrected;
        Lines log;
    } cases[] = {
        {3, R"("timing":{)" + allCounting + "}", "3 counting 1 4 3 2 6 7 5", {noUtc}},
        {3, R"("timing":{)" + allUtc + "}", "3 utc 11 14 13 12 16 17 15", {noCounting}},
        {3, R"("timing":{)" + allUtc + "," + allCounting + "}", "3 counting 1 4 3 2 6 7 5", {}},
        {3, R"("timing":{"Counting":{}})", "3 nothing chosen", {noCounting, noUtc}},
        {3,
         R"("timing":{"counting":{"startTime":8589934592,"likelyEndTime":-1.5,"minEndTime":"x",)"
         R"("timeConfidence":null}})",
         "3 counting 2147483647 36001 - - - - -",
         missing({"maxEndTime", "nextStartTime", "nextDuration"}, {}, {noUtc})},
        {3, R"("timing":{"utcTiming":{"maxEndTime":300}})", "3 utc 0 36001 - - - - -",
         missing({"startUtcTime", "minEndUtcTime", "maxEndUtcTime", "likelyEndUtcTime", "timeConfidence",
                  "nextStartUtcTime", "nextEndUtcTime"},
                 {noCounting}, {})},
        // The low 8 bits of an unknown light could be a light.
        {8, R"("Timing":{})", "8 none", {noTiming}},
        {9, R"("Timing":{})", "0 none", {noTiming}},
    };
    for (const auto mode : {LEGACY, CORRECTED}) {
        for (const auto& row : cases) {
            const Spat spat = newSpat();
            const std::string light = std::to_string(row.light);
            const std::string phases = R"([{"phaseId":1,"phaseStates":[{"light":)" + light + "," + row.more + "}]}]";
            const std::string text = document(intersection(R"({"id":1})", "0", phases));
            ASSERT_EQ(v2xspatconv_SpatJsonToStruct(text.c_str(), spat.get(), {mode}), 0);
            const auto& states = spat->intersections.list.array[0]->phases.list.array[0]->phaseStates;
            const PhaseState_t& state = *states.list.array[0];
            EXPECT_EQ(std::to_string(state.light) + " " + timingText(state.timing),
                      mode == CORRECTED ? row.corrected : light + " none");
            EXPECT_EQ(takeLog(), row.log) << row.more;
        }
    }
}

TEST_F(Reader, QuietLogTracesMissingOptionalMembersAlone) {
    const std::string counting = R"({"light":3,"timing":{"counting":{"startTime":1}}})";
    const std::string utc = R"({"light":3,"timing":{"utcTiming":{"likelyEndUtcTime":1}}})";
    const std::string phases = R"([{"phaseId":1,"phaseStates":[)" + counting + "," + utc + R"(,{"light":3},{}]}])";
    const std::string text = R"({"intersections":[)" + intersection(R"({"id":1})", "0", phases) + "]}";
    const Spat spat = newSpat();
    ASSERT_EQ(v2xspatconv_SpatJsonToStruct(text.c_str(), spat.get(), {CORRECTED, true}), 0);
    EXPECT_EQ(fakes::logged("Get nextDuration item failed!").size(), 1U);
    EXPECT_EQ(takeLog(), missing({"likelyEndTime", "startUtcTime", "light"}, {}, {}));
}

} // namespace

#include "spat_conv_spatdown_json.h"

#include <cjson/cJSON.h>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "spat_conv_common.h"
#include "spat_conv_timing_keys.h"
#include "v2x/v2xipc_data.h"
#include "v2xapp_commoncodec.h"

namespace {

constexpr int8_t STATUS_BITS = 16;

struct JsonDeleter {
    void operator()(cJSON* json) const { cJSON_Delete(json); }
};

// Frees a structure of the message set with its members.
template <typename T>
struct StructureDeleter {
    asn_TYPE_descriptor_t* type;
    void operator()(T* structure) const { ASN_STRUCT_FREE(*type, structure); }
};
template <typename T>
using Owned = std::unique_ptr<T, StructureDeleter<T>>;

// Allocates a zeroed structure with calloc, as the message set's free operations require. If memory runs out, logs
// `message` and returns null.
template <typename T>
T* AllocateOrLog(const char* message) {
    T* structure = static_cast<T*>(std::calloc(1, sizeof(T)));
    if (structure == nullptr) {
        V2XLOG(g_downLog, V2XLOG_ERROR, "%s", message);
    }
    return structure;
}

// Moves the element to the list. Returns 0; -4 if memory runs out.
template <typename List, typename Element>
int32_t AppendToList(List& list, Owned<Element>& element) {
    if (asn_set_add(&list.list, element.get()) != 0) {
        V2XLOG(g_downLog, V2XLOG_ERROR, "ASN_SEQUENCE_ADD faild \n");
        return -4;
    }
    static_cast<void>(element.release());
    return 0;
}

// Returns the level of a line about a missing optional member. `level` is the level without Corrections.QuietLog.
int32_t GetOptionalLevel(const v2xspatconv_downRules_t& rules, int32_t level) {
    return rules.isQuiet ? V2XLOG_TRACE : level;
}

// ---- timing

// Stores one time of a document in the timing (corrected mode). An optional time that is not a number is absent. An end
// that is not from 0 to 36001 is stored as unknown, because 0 means that the light ends immediately.
template <typename Timing>
void StoreTime(const cJSON* member, const v2xspatconv_timeKey_t<Timing>& key, Timing& timing) {
    const bool isNumber = cJSON_IsNumber(member) != 0;
    if (key.mandatory != nullptr) {
        const long value = isNumber ? member->valueint : 0;
        const bool isKnown = isNumber && value >= 0 && value <= V2XIPC_TIME_UNKNOWN;
        timing.*key.mandatory = key.isEnd && !isKnown ? V2XIPC_TIME_UNKNOWN : value;
    } else if (isNumber) {
        timing.*key.optional = AllocateOrLog<long>("timing calloc failed!");
        if (timing.*key.optional != nullptr) {
            *(timing.*key.optional) = member->valueint;
        }
    }
}

// Reads every key of one kind of timing, so that each missing key is logged. Drops the values if `timing` is null.
template <typename Timing, size_t N>
void ReadTimes(const cJSON* object, const v2xspatconv_timeKey_t<Timing> (&keys)[N], Timing* timing,
               const v2xspatconv_downRules_t& rules) {
    for (const auto& key : keys) {
        const int32_t level = key.mandatory != nullptr ? V2XLOG_ERROR : GetOptionalLevel(rules, V2XLOG_ERROR);
        const cJSON* member = GetMemberFromJson(object, key.down, level);
        if (timing != nullptr) {
            StoreTime(member, key, *timing);
        }
    }
}

void GetCountingFromJson(const cJSON* object, TimeCountingDown_t* counting, const v2xspatconv_downRules_t& rules) {
    if (object == nullptr) {
        V2XLOG(g_downLog, GetOptionalLevel(rules, V2XLOG_WARN), "cJSON_Parse counting failed!");
        return;
    }
    ReadTimes(object, V2XSPATCONV_COUNTING_KEYS, counting, rules);
}

void GetUtcTimingFromJson(const cJSON* object, UTCTiming_t* utcTiming, const v2xspatconv_downRules_t& rules) {
    if (object == nullptr) {
        V2XLOG(g_downLog, GetOptionalLevel(rules, V2XLOG_WARN), "cJSON_Parse utcTiming failed!");
        return;
    }
    ReadTimes(object, V2XSPATCONV_UTC_KEYS, utcTiming, rules);
}

// Reads the timing of a phase state. Legacy: the timing is dropped. Corrected: the timing is stored in `state`; if both
// "counting" and "utcTiming" are objects, "counting" is stored. A non-object (usually null) means absent.
// Returns 0; -2 if memory runs out.
int32_t GetTimingFromJson(const cJSON* json, PhaseState_t& state, const v2xspatconv_downRules_t& rules) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_downLog, ret);
    const cJSON* object = cJSON_GetObjectItemCaseSensitive(json, "timing");
    if (object == nullptr) {
        V2XLOG(g_downLog, GetOptionalLevel(rules, V2XLOG_WARN), "cJSON_Parse timing failed!");
        return ret;
    }
    const cJSON* counting = cJSON_GetObjectItemCaseSensitive(object, "counting");
    const cJSON* utc = cJSON_GetObjectItemCaseSensitive(object, "utcTiming");
    TimeChangeDetails_PR chosen = TimeChangeDetails_PR_NOTHING;
    if (rules.mode == v2xspatconv_downMode::corrected) {
        state.timing = AllocateOrLog<TimeChangeDetails_t>("timing calloc failed!");
        if (state.timing == nullptr) {
            return ret = -2;
        }
        chosen = cJSON_IsObject(counting) != 0 ? TimeChangeDetails_PR_counting
                 : cJSON_IsObject(utc) != 0    ? TimeChangeDetails_PR_utcTiming
                                               : TimeChangeDetails_PR_NOTHING;
        state.timing->present = chosen;
    }
    GetCountingFromJson(counting, chosen == TimeChangeDetails_PR_counting ? &state.timing->choice.counting : nullptr,
                        rules);
    GetUtcTimingFromJson(utc, chosen == TimeChangeDetails_PR_utcTiming ? &state.timing->choice.utcTiming : nullptr,
                         rules);
    return ret;
}

// ---- phases and phase states

// The properties of one of the two lists.
template <typename Element>
struct ListKind {
    const char* key;
    const char* noMemoryMessage;
    asn_TYPE_descriptor_t* type;
    void (*read)(const cJSON* item, Element& element, const v2xspatconv_downRules_t& rules);
};

// Reads the list under the key of `kind`. Returns 0; -2 or -4 if memory runs out; -4 if the key is missing.
template <typename List, typename Element>
int32_t ReadList(const cJSON* json, List& list, const ListKind<Element>& kind, const v2xspatconv_downRules_t& rules) {
    const cJSON* array = cJSON_GetObjectItemCaseSensitive(json, kind.key);
    if (array == nullptr) {
        V2XLOG(g_downLog, V2XLOG_ERROR, "cJSON_Parse Error!");
        return -4;
    }
    const cJSON* item = nullptr;
    cJSON_ArrayForEach(item, array) {
        Owned<Element> element(AllocateOrLog<Element>(kind.noMemoryMessage), {kind.type});
        if (element == nullptr) {
            return -2;
        }
        kind.read(item, *element, rules);
        const int32_t ret = AppendToList(list, element);
        if (ret != 0) {
            return ret;
        }
    }
    return 0;
}

void ReadPhaseState(const cJSON* item, PhaseState_t& state, const v2xspatconv_downRules_t& rules) {
    GetIntDataFromJson(item, "light", &state.light);
    // Corrected: an unknown light becomes "unavailable", because its low 8 bits may equal a known light.
    if (rules.mode == v2xspatconv_downMode::corrected &&
        (state.light < V2XIPC_LIGHT_UNAVAILABLE || state.light > V2XIPC_LIGHT_FLASHING_YELLOW)) {
        state.light = V2XIPC_LIGHT_UNAVAILABLE;
    }
    GetTimingFromJson(item, state, rules);
}

constexpr ListKind<PhaseState_t> PHASE_STATES = {"phaseStates", "PhaseState_t calloc failed!", &asn_DEF_PhaseState,
                                                 ReadPhaseState};

int32_t GetPhaseStatesFormJson(const cJSON* json, PhaseStateList_t& phaseStates, const v2xspatconv_downRules_t& rules) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_downLog, ret);
    return ret = ReadList(json, phaseStates, PHASE_STATES, rules);
}

void ReadPhase(const cJSON* item, Phase_t& phase, const v2xspatconv_downRules_t& rules) {
    GetIntDataFromJson(item, "phaseId", &phase.id);
    GetPhaseStatesFormJson(item, phase.phaseStates, rules);
}

constexpr ListKind<Phase_t> PHASES = {"phases", "Phase_t calloc failed!", &asn_DEF_Phase, ReadPhase};

int32_t GetPhasesFromJson(const cJSON* json, PhaseList_t& phases, const v2xspatconv_downRules_t& rules) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_downLog, ret);
    return ret = ReadList(json, phases, PHASES, rules);
}

// ---- intersections

// Reads the node reference under the key `item`. Returns 0; -3 if the region is out of range; -5 if the id is out of
// range; -6 if the id is missing; -4 if memory runs out. A missing node reference is logged, but returns 0.
int32_t GetNodeReferenceIDFromJson(const cJSON* json, const char* item, NodeReferenceID_t* id) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_downLog, ret);
    const cJSON* object = cJSON_GetObjectItemCaseSensitive(json, item);
    if (object == nullptr) {
        V2XLOG(g_downLog, V2XLOG_ERROR, "Get %s failed!", item);
        return ret;
    }
    long value = 0;
    if (cJSON_GetObjectItemCaseSensitive(object, "region") != nullptr) {
        id->region = AllocateOrLog<RoadRegulatorID_t>("id->region calloc error");
        if (id->region == nullptr) {
            return ret = -4;
        }
        GetIntDataFromJson(object, "region", &value);
        if (RoadRegulatorID_constraint(nullptr, &value, nullptr, nullptr) != 0) {
            V2XLOG(g_downLog, V2XLOG_ERROR, "region value error");
            return ret = -3;
        }
        *id->region = value;
    }
    if (GetIntDataFromJson(object, "id", &value) != 0) {
        V2XLOG(g_downLog, V2XLOG_ERROR, "Get id->id item failed!");
        return ret = -6;
    }
    if (NodeID_constraint(nullptr, &value, nullptr, nullptr) != 0) {
        V2XLOG(g_downLog, V2XLOG_ERROR, "id value error");
        return ret = -5;
    }
    id->id = value;
    return ret;
}

// Reads one intersection. Returns 0, or the result of the function that fails.
int32_t ReadIntersection(const cJSON* item, IntersectionState_t& intersection, const v2xspatconv_downRules_t& rules) {
    int32_t ret = GetNodeReferenceIDFromJson(item, "intersectionId", &intersection.intersectionId);
    if (ret != 0) {
        V2XLOG(g_downLog, V2XLOG_ERROR, "GetNodeReferenceIDFromJson error");
        return ret;
    }
    int64_t status = 0;
    ret = GetIntDataFromJson(item, "status", &status);
    if (ret != 0) {
        V2XLOG(g_downLog, V2XLOG_ERROR, "get status error");
        return ret;
    }
    if (rules.mode == v2xspatconv_downMode::corrected) {
        v2xcodec_long2BitString(&status, STATUS_BITS, &intersection.status);
    }
    ret = GetPhasesFromJson(item, intersection.phases, rules);
    if (ret != 0) {
        V2XLOG(g_downLog, V2XLOG_ERROR, "GetPhasesFromJson error");
    }
    return ret;
}

// Reads the intersections and appends those without an error. Returns the result for the last intersection: 0 if the
// intersection was appended, otherwise the code of its failure. Returns -1 for an empty list; -4 if the list is
// missing.
int32_t v2xspatconv_GetIntersectionsFromJson(const cJSON* cloud_json, SPAT_t* spat,
                                             const v2xspatconv_downRules_t& rules) {
    int32_t ret = -1;
    V2XLOG_TRACE_SCOPE(g_downLog, ret);
    const cJSON* array = cJSON_GetObjectItemCaseSensitive(cloud_json, "intersections");
    if (array == nullptr) {
        V2XLOG(g_downLog, V2XLOG_ERROR, "cJSON_Parse Error!");
        return ret = -4;
    }
    const cJSON* item = nullptr;
    cJSON_ArrayForEach(item, array) {
        Owned<IntersectionState_t> intersection(
            AllocateOrLog<IntersectionState_t>("IntersectionState_t calloc failed!"), {&asn_DEF_IntersectionState});
        if (intersection == nullptr) {
            return ret = -2;
        }
        ret = ReadIntersection(item, *intersection, rules);
        if (ret != 0) {
            continue;
        }
        ret = AppendToList(spat->intersections, intersection);
        if (ret != 0) {
            return ret;
        }
    }
    return ret;
}

// Reads the member "name" without a check of its length. Returns 0; -3 if memory runs out; -4 if the member is missing
// or not a string.
int32_t v2xspatconv_GetNameFromJson(const cJSON* json, SPAT_t* spat, const v2xspatconv_downRules_t& rules) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_downLog, ret);
    const cJSON* name = cJSON_GetObjectItemCaseSensitive(json, "name");
    if (cJSON_IsString(name) == 0) {
        V2XLOG(g_downLog, GetOptionalLevel(rules, V2XLOG_ERROR), "cJSON_Parse error!");
        return ret = -4;
    }
    spat->name = AllocateOrLog<DescriptiveName_t>("Calloc error!");
    if (spat->name == nullptr) {
        return ret = -3;
    }
    OCTET_STRING_fromBuf(spat->name, name->valuestring, static_cast<int>(strlen(name->valuestring)));
    return ret;
}

} // namespace

int32_t v2xspatconv_SpatJsonToStruct(const char* cloud_json_str, SPAT_t* spat, const v2xspatconv_downRules_t& rules) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_downLog, ret);
    if (cloud_json_str == nullptr || spat == nullptr) {
        V2XLOG(g_downLog, V2XLOG_ERROR, "input param error");
        return ret = -2;
    }
    const std::unique_ptr<cJSON, JsonDeleter> json(cJSON_Parse(cloud_json_str));
    if (json == nullptr) {
        V2XLOG(g_downLog, V2XLOG_ERROR, "cJSON_Parse Error!");
        return ret = -2;
    }
    v2xspatconv_GetNameFromJson(json.get(), spat, rules);
    if (v2xspatconv_GetIntersectionsFromJson(json.get(), spat, rules) != 0) {
        V2XLOG(g_downLog, V2XLOG_ERROR, "v2xspatconv_GetIntersectionsFromJson error");
        return ret = -3;
    }
    return ret;
}

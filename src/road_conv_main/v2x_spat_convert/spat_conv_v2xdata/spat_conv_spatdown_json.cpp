#include "spat_conv_spatdown_json.h"

#include <cstdlib>
#include <cstring>
#include <memory>

#include "spat_conv_common.h"
#include "spat_conv_timing_keys.h"
#include "v2x/v2xipc_data.h"
#include "v2xapp_commoncodec.h"

namespace {

constexpr int8_t STATUS_BITS = 16;

struct DeleteJson {
    void operator()(cJSON* json) const { cJSON_Delete(json); }
};

// A new structure of the message set, freed with all that it holds unless it is released.
template <typename T>
struct Free {
    asn_TYPE_descriptor_t* type;
    void operator()(T* structure) const { ASN_STRUCT_FREE(*type, structure); }
};
template <typename T>
using Owned = std::unique_ptr<T, Free<T>>;

template <typename T>
T* New() {
    return static_cast<T*>(std::calloc(1, sizeof(T)));
}

template <typename List, typename Element>
int32_t Append(List& list, Owned<Element>& element) {
    if (asn_set_add(&list.list, element.get()) != 0) {
        V2XLOG(g_downLog, V2XLOG_ERROR, "ASN_SEQUENCE_ADD faild \n");
        return -4;
    }
    static_cast<void>(element.release());
    return 0;
}

// ---- timing

// Room for the optional times that the document gives as numbers; the others stay absent.
template <typename Timing, size_t N>
void MakeRoomForTimes(const cJSON* json, const v2xspatconv_timeKey_t<Timing> (&keys)[N], Timing& timing) {
    for (const auto& row : keys) {
        if (row.optional != nullptr && cJSON_IsNumber(cJSON_GetObjectItemCaseSensitive(json, row.down))) {
            timing.*row.optional = New<long>();
        }
    }
}

// Room for the phase state's timing: its alternative is chosen here, "counting" where both stand. Only the corrected
// reading makes it; for the settled one the phase state has none.
void MakeRoomForTiming(const cJSON* json, PhaseState_t& state) {
    const cJSON* timing = cJSON_GetObjectItemCaseSensitive(json, "timing");
    if (timing == nullptr) {
        return;
    }
    state.timing = New<TimeChangeDetails_t>();
    if (state.timing == nullptr) {
        V2XLOG(g_downLog, V2XLOG_ERROR, "timing calloc failed!");
        return;
    }
    // What is no object, null above all, is a way to say that there is none.
    if (const cJSON* counting = cJSON_GetObjectItemCaseSensitive(timing, "counting"); cJSON_IsObject(counting)) {
        state.timing->present = TimeChangeDetails_PR_counting;
        MakeRoomForTimes(counting, V2XSPATCONV_COUNTING_KEYS, state.timing->choice.counting);
    } else if (const cJSON* utc = cJSON_GetObjectItemCaseSensitive(timing, "utcTiming"); cJSON_IsObject(utc)) {
        state.timing->present = TimeChangeDetails_PR_utcTiming;
        MakeRoomForTimes(utc, V2XSPATCONV_UTC_KEYS, state.timing->choice.utcTiming);
    }
}

// An end that the document does not give, or that is no time mark, is unknown: a 0 would say that the light ends now.
void CorrectEnd(const cJSON* timing, const char* kind, const char* key, long& end) {
    const cJSON* given = cJSON_GetObjectItemCaseSensitive(cJSON_GetObjectItemCaseSensitive(timing, kind), key);
    if (!cJSON_IsNumber(given) || end < 0 || end > V2XIPC_TIME_UNKNOWN) {
        end = V2XIPC_TIME_UNKNOWN;
    }
}

// What was read and would mislead a driver becomes unavailable or unknown.
void Correct(const cJSON* json, PhaseState_t& state) {
    if (state.light < V2XIPC_LIGHT_UNAVAILABLE || state.light > V2XIPC_LIGHT_FLASHING_YELLOW) {
        state.light = V2XIPC_LIGHT_UNAVAILABLE;
    }
    const cJSON* timing = cJSON_GetObjectItemCaseSensitive(json, "timing");
    switch (state.timing != nullptr ? state.timing->present : TimeChangeDetails_PR_NOTHING) {
    case TimeChangeDetails_PR_counting:
        CorrectEnd(timing, "counting", "likelyEndTime", state.timing->choice.counting.likelyEndTime);
        break;
    case TimeChangeDetails_PR_utcTiming:
        CorrectEnd(timing, "utcTiming", "likelyEndUtcTime", state.timing->choice.utcTiming.likelyEndUTCTime);
        break;
    default:
        break;
    }
}

// One kind of timing: every key is fetched; an optional time without room is read for nobody.
template <typename Timing, size_t N>
int32_t ReadTimes(const cJSON* json, const char* key, const v2xspatconv_timeKey_t<Timing> (&keys)[N], Timing* timing) {
    if (json == nullptr || timing == nullptr) {
        V2XLOG(g_downLog, V2XLOG_ERROR, "input param error");
        return -2;
    }
    const cJSON* object = cJSON_GetObjectItemCaseSensitive(json, key);
    if (object == nullptr) {
        V2XLOG(g_downLog, V2XLOG_WARN, "cJSON_Parse %s failed!", key);
        return 0;
    }
    for (const auto& row : keys) {
        GetIntDataFromJson(object, row.down,
                           row.mandatory != nullptr ? &(timing->*row.mandatory) : timing->*row.optional);
    }
    return 0;
}

// ---- phases and phase states

// What differs between the two lists.
template <typename Element>
struct ListKind {
    const char* key;
    const char* noMemory;
    asn_TYPE_descriptor_t* type;
    void (*read)(const cJSON* item, Element& element, v2xspatconv_down mode);
};

template <typename List, typename Element>
int32_t ReadList(const cJSON* json, List* list, const ListKind<Element>& kind, v2xspatconv_down mode) {
    if (json == nullptr || list == nullptr) {
        V2XLOG(g_downLog, V2XLOG_ERROR, "input param error");
        return -2;
    }
    const cJSON* array = cJSON_GetObjectItemCaseSensitive(json, kind.key);
    if (array == nullptr) {
        V2XLOG(g_downLog, V2XLOG_ERROR, "cJSON_Parse Error!");
        return -4;
    }
    const int32_t size = cJSON_GetArraySize(array);
    const cJSON* item = array->child;
    for (int32_t i = 0; i < size; i++, item = item->next) {
        if (item == nullptr) {
            V2XLOG(g_downLog, V2XLOG_ERROR, "Get item error,count:%d", i);
            return -2;
        }
        Owned<Element> element(New<Element>(), {kind.type});
        if (element == nullptr) {
            V2XLOG(g_downLog, V2XLOG_ERROR, "%s", kind.noMemory);
            return -2;
        }
        kind.read(item, *element, mode);
        const int32_t ret = Append(*list, element);
        if (ret != 0) {
            return ret;
        }
    }
    return 0;
}

void ReadPhaseState(const cJSON* item, PhaseState_t& state, v2xspatconv_down mode) {
    GetIntDataFromJson(item, "light", &state.light);
    if (mode == v2xspatconv_down::corrected) {
        MakeRoomForTiming(item, state);
    }
    GetTimingFromJson(item, state.timing);
    if (mode == v2xspatconv_down::corrected) {
        Correct(item, state);
    }
}

void ReadPhase(const cJSON* item, Phase_t& phase, v2xspatconv_down mode) {
    GetIntDataFromJson(item, "phaseId", &phase.id);
    GetPhaseStatesFormJson(item, &phase.phaseStates, mode);
}

constexpr ListKind<PhaseState_t> PHASE_STATES = {"phaseStates", "PhaseState_t calloc failed!", &asn_DEF_PhaseState,
                                                 ReadPhaseState};
constexpr ListKind<Phase_t> PHASES = {"phases", "Phase_t calloc failed!", &asn_DEF_Phase, ReadPhase};

// ---- intersections

// Reads one intersection. Returns 0, or the code of the part that fails.
int32_t ReadIntersection(const cJSON* item, IntersectionState_t& intersection, v2xspatconv_down mode) {
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
    if (mode == v2xspatconv_down::corrected) {
        v2xcodec_long2BitString(&status, STATUS_BITS, &intersection.status);
    }
    ret = GetPhasesFromJson(item, &intersection.phases, mode);
    if (ret != 0) {
        V2XLOG(g_downLog, V2XLOG_ERROR, "GetPhasesFromJson error");
    }
    return ret;
}

} // namespace

int32_t GetCountingFromJson(const cJSON* json, TimeCountingDown_t* counting) {
    return ReadTimes(json, "counting", V2XSPATCONV_COUNTING_KEYS, counting);
}

int32_t GetUtcTimingFromJson(const cJSON* json, UTCTiming_t* utcTiming) {
    return ReadTimes(json, "utcTiming", V2XSPATCONV_UTC_KEYS, utcTiming);
}

int32_t GetTimingFromJson(const cJSON* json, TimeChangeDetails_t* timing) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_downLog, ret);
    if (json == nullptr) {
        V2XLOG(g_downLog, V2XLOG_ERROR, "input param error");
        return ret = -2;
    }
    const cJSON* object = cJSON_GetObjectItemCaseSensitive(json, "timing");
    if (object == nullptr) {
        V2XLOG(g_downLog, V2XLOG_WARN, "cJSON_Parse timing failed!");
        return ret;
    }
    TimeCountingDown_t noCounting = {};
    UTCTiming_t noUtc = {};
    const TimeChangeDetails_PR chosen = timing != nullptr ? timing->present : TimeChangeDetails_PR_NOTHING;
    GetCountingFromJson(object, chosen == TimeChangeDetails_PR_counting ? &timing->choice.counting : &noCounting);
    GetUtcTimingFromJson(object, chosen == TimeChangeDetails_PR_utcTiming ? &timing->choice.utcTiming : &noUtc);
    return ret;
}

int32_t GetPhaseStatesFormJson(const cJSON* json, PhaseStateList_t* phaseStates, v2xspatconv_down mode) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_downLog, ret);
    return ret = ReadList(json, phaseStates, PHASE_STATES, mode);
}

int32_t GetPhasesFromJson(const cJSON* json, PhaseList_t* phases, v2xspatconv_down mode) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_downLog, ret);
    return ret = ReadList(json, phases, PHASES, mode);
}

int32_t GetNodeReferenceIDFromJson(const cJSON* json, const char* item, NodeReferenceID_t* id) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_downLog, ret);
    if (json == nullptr || item == nullptr || id == nullptr) {
        return ret = -2;
    }
    const cJSON* object = cJSON_GetObjectItemCaseSensitive(json, item);
    if (object == nullptr) {
        V2XLOG(g_downLog, V2XLOG_ERROR, "Get %s failed!", item);
        return ret;
    }
    long value = 0;
    if (cJSON_GetObjectItemCaseSensitive(object, "region") != nullptr) {
        id->region = New<RoadRegulatorID_t>();
        if (id->region == nullptr) {
            V2XLOG(g_downLog, V2XLOG_ERROR, "id->region calloc error");
            return ret = -4;
        }
        GetIntDataFromJson(object, "region", &value);
        if (RoadRegulatorID_constraint(nullptr, &value, nullptr, nullptr) != 0) {
            V2XLOG(g_downLog, V2XLOG_ERROR, "region value error");
            return ret = -3;
        }
        *id->region = value;
    }
    if (cJSON_GetObjectItemCaseSensitive(object, "id") == nullptr) {
        V2XLOG(g_downLog, V2XLOG_ERROR, "Get id->id item failed!");
        return ret = -6;
    }
    GetIntDataFromJson(object, "id", &value);
    if (NodeID_constraint(nullptr, &value, nullptr, nullptr) != 0) {
        V2XLOG(g_downLog, V2XLOG_ERROR, "id value error");
        return ret = -5;
    }
    id->id = value;
    return ret;
}

int32_t v2xspatconv_GetIntersectionsFromJson(const cJSON* cloud_json, SPAT_t* spat, v2xspatconv_down mode) {
    int32_t ret = -1;
    V2XLOG_TRACE_SCOPE(g_downLog, ret);
    if (cloud_json == nullptr || spat == nullptr) {
        V2XLOG(g_downLog, V2XLOG_ERROR, "input param error");
        return ret = -2;
    }
    const cJSON* array = cJSON_GetObjectItemCaseSensitive(cloud_json, "intersections");
    if (array == nullptr) {
        V2XLOG(g_downLog, V2XLOG_ERROR, "cJSON_Parse Error!");
        return ret = -4;
    }
    const int32_t size = cJSON_GetArraySize(array);
    const cJSON* item = array->child;
    for (int32_t i = 0; i < size; i++, item = item->next) {
        if (item == nullptr) {
            V2XLOG(g_downLog, V2XLOG_ERROR, "Get intersectionState item error,rte_datas_count:%d", i);
            return ret = -2;
        }
        // The list's next entry: read into before it is appended, freed when it is dropped.
        Owned<IntersectionState_t> intersection(New<IntersectionState_t>(), {&asn_DEF_IntersectionState});
        if (intersection == nullptr) {
            V2XLOG(g_downLog, V2XLOG_ERROR, "IntersectionState_t calloc failed!");
            return ret = -2;
        }
        ret = ReadIntersection(item, *intersection, mode);
        if (ret != 0) {
            continue;
        }
        ret = Append(spat->intersections, intersection);
        if (ret != 0) {
            return ret;
        }
    }
    return ret;
}

int32_t v2xspatconv_GetNameFromJson(const cJSON* json, SPAT_t* spat) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_downLog, ret);
    if (json == nullptr || spat == nullptr) {
        V2XLOG(g_downLog, V2XLOG_ERROR, "input param error");
        return ret = -2;
    }
    const cJSON* name = cJSON_GetObjectItemCaseSensitive(json, "name");
    if (!cJSON_IsString(name) || name->valuestring == nullptr) {
        V2XLOG(g_downLog, V2XLOG_ERROR, "cJSON_Parse error!");
        return ret = -4;
    }
    spat->name = New<DescriptiveName_t>();
    if (spat->name == nullptr) {
        V2XLOG(g_downLog, V2XLOG_ERROR, "Calloc error!");
        return ret = -3;
    }
    OCTET_STRING_fromBuf(spat->name, name->valuestring, static_cast<int>(strlen(name->valuestring)));
    return ret;
}

int32_t v2xspatconv_SpatJsonToStruct(const char* cloud_json_str, SPAT_t* spat, v2xspatconv_down mode) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_downLog, ret);
    if (cloud_json_str == nullptr || spat == nullptr) {
        V2XLOG(g_downLog, V2XLOG_ERROR, "input param error");
        return ret = -2;
    }
    const std::unique_ptr<cJSON, DeleteJson> json(cJSON_Parse(cloud_json_str));
    if (json == nullptr) {
        V2XLOG(g_downLog, V2XLOG_ERROR, "cJSON_Parse Error!");
        return ret = -2;
    }
    v2xspatconv_GetNameFromJson(json.get(), spat);
    if (v2xspatconv_GetIntersectionsFromJson(json.get(), spat, mode) != 0) {
        V2XLOG(g_downLog, V2XLOG_ERROR, "v2xspatconv_GetIntersectionsFromJson error");
        return ret = -3;
    }
    return ret;
}

#include "spat_conv_spatup.h"

#include <cjson/cJSON.h>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "spat_conv_timing_keys.h"
#include "spat_conv_v2xcloud_dds.h"
#include "v2x/v2xcount.h"
#include "v2x/v2xlog.h"
#include "v2xapp_commoncodec.h"

namespace {

v2xlog_tag_t g_log{"SPUP"};

v2x_counter g_documents{"up", "documents"};
v2x_counter g_noDocument{"up", "no_document"}; // the frame contains no SPAT, or memory runs out

struct JsonDeleter {
    void operator()(cJSON* json) const { cJSON_Delete(json); }
};
using JsonPtr = std::unique_ptr<cJSON, JsonDeleter>;

struct TextDeleter {
    void operator()(char* text) const { cJSON_free(text); }
};

// Moves `child` to `parent`. If cJSON fails, frees `child`.
void AddToObject(cJSON* parent, const char* key, JsonPtr child) {
    if (cJSON_AddItemToObject(parent, key, child.get()) != 0) {
        static_cast<void>(child.release());
    }
}
void AddToArray(cJSON* parent, JsonPtr child) {
    if (cJSON_AddItemToArray(parent, child.get()) != 0) {
        static_cast<void>(child.release());
    }
}

void AddNumber(cJSON* object, const char* key, int64_t value) {
    cJSON_AddNumberToObject(object, key, static_cast<double>(value));
}

// Adds an array under `key`; `fill` writes the elements of the list to the array.
template <typename List>
void AddArray(cJSON* object, const char* key, const List& list, int32_t (*fill)(cJSON* array, const List* list)) {
    JsonPtr array(cJSON_CreateArray());
    if (array != nullptr) {
        fill(array.get(), &list);
    }
    AddToObject(object, key, std::move(array));
}

// Adds one object to the array for each element of the list; `fill` writes the element to the object. Returns 0; -3 if
// memory runs out.
template <typename List, typename Element>
int32_t AddElements(cJSON* json, const List* list, void (*fill)(cJSON* object, const Element& element)) {
    for (int32_t i = 0; list->list.array != nullptr && i < list->list.count; i++) {
        if (list->list.array[i] == nullptr) {
            continue;
        }
        JsonPtr object(cJSON_CreateObject());
        if (object == nullptr) {
            V2XLOG(g_log, V2XLOG_ERROR, "cJSON_CreateObject error");
            return -3;
        }
        fill(object.get(), *list->list.array[i]);
        AddToArray(json, std::move(object));
    }
    return 0;
}

// Adds one kind of timing: the mandatory times and the optional times that are present. Returns 0; -3 if memory runs
// out.
template <typename Timing, size_t N>
int32_t AddTimes(cJSON* json, const char* item, const Timing* timing, const v2xspatconv_timeKey_t<Timing> (&keys)[N]) {
    JsonPtr object(cJSON_CreateObject());
    if (object == nullptr) {
        return -3;
    }
    for (const auto& row : keys) {
        const long* value = row.mandatory != nullptr ? &(timing->*row.mandatory) : timing->*row.optional;
        if (value != nullptr) {
            AddNumber(object.get(), row.up, *value);
        }
    }
    AddToObject(json, item, std::move(object));
    return 0;
}

int32_t SetCountingToObject(cJSON* json, const char* item, const TimeCountingDown_t* counting) {
    return AddTimes(json, item, counting, V2XSPATCONV_COUNTING_KEYS);
}

int32_t SetUtcTimingToObject(cJSON* json, const char* item, const UTCTiming_t* utcTiming) {
    return AddTimes(json, item, utcTiming, V2XSPATCONV_UTC_KEYS);
}

int32_t SetTimingToObject(cJSON* json, const char* item, const TimeChangeDetails_t* timing) {
    JsonPtr object(cJSON_CreateObject());
    if (object == nullptr) {
        return -3;
    }
    if (timing->present == TimeChangeDetails_PR_counting) {
        SetCountingToObject(object.get(), "counting", &timing->choice.counting);
    } else if (timing->present == TimeChangeDetails_PR_utcTiming) {
        SetUtcTimingToObject(object.get(), "utcTiming", &timing->choice.utcTiming);
    }
    AddToObject(json, item, std::move(object));
    return 0;
}

void SetPhaseState(cJSON* object, const PhaseState_t& state) {
    AddNumber(object, "light", state.light);
    if (state.timing != nullptr) {
        SetTimingToObject(object, "timing", state.timing);
    }
}

int32_t SetPhaseStatesToObject(cJSON* json, const PhaseStateList_t* phaseStates) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_log, ret);
    return ret = AddElements(json, phaseStates, SetPhaseState);
}

void SetPhase(cJSON* object, const Phase_t& phase) {
    AddNumber(object, "phaseId", phase.id);
    AddArray(object, "phaseStates", phase.phaseStates, SetPhaseStatesToObject);
}

int32_t SetPhasesToObject(cJSON* json, const PhaseList_t* phases) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_log, ret);
    return ret = AddElements(json, phases, SetPhase);
}

int32_t SetNodeReferenceIDToObject(cJSON* obj, const char* name, const NodeReferenceID_t* upstreamNodeId) {
    JsonPtr object(cJSON_CreateObject());
    if (upstreamNodeId->region != nullptr) {
        AddNumber(object.get(), "region", *upstreamNodeId->region);
    }
    AddNumber(object.get(), "id", upstreamNodeId->id);
    AddToObject(obj, name, std::move(object));
    return 0;
}

void SetIntersection(cJSON* object, const IntersectionState_t& intersection) {
    int64_t status = 0;
    // v2xcodec_bitString2Long does not change the string, so the cast is safe.
    v2xcodec_bitString2Long(const_cast<IntersectionStatusObject_t*>(&intersection.status), &status);
    SetNodeReferenceIDToObject(object, "intersectionId", &intersection.intersectionId);
    AddNumber(object, "status", status);
    AddArray(object, "phases", intersection.phases, SetPhasesToObject);
}

int32_t SetIntersectionsToObject(cJSON* json, const IntersectionStateList_t* intersections) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_log, ret);
    return ret = AddElements(json, intersections, SetIntersection);
}

// Adds the name, up to its first NUL.
void SetName(cJSON* object, const DescriptiveName_t& name) {
    const std::string text(reinterpret_cast<const char*>(name.buf),
                           name.buf != nullptr ? static_cast<size_t>(name.size) : 0);
    cJSON_AddStringToObject(object, "name", text.c_str());
}

// Returns the SPAT of the frame; null if there is no frame or the frame contains another message.
const SPAT_t* FindSpat(ASNSTRUCT_HANDLE* p_handle) {
    return v2xcodec_getMsgType(p_handle, nullptr) == V2XCODEC_MSG_SPAT
               ? &static_cast<const MessageFrame_t*>(*p_handle)->choice.spatFrame
               : nullptr;
}

// Converts the SPAT to a document and publishes the document. Returns 0; -4 if the conversion fails.
int32_t Publish(const SPAT_t* spat) {
    const std::unique_ptr<char, TextDeleter> text(v2xspatconv_SpatStructToJson(spat));
    (text != nullptr ? g_documents : g_noDocument).Add();
    if (text == nullptr) {
        V2XLOG(g_log, V2XLOG_ERROR, "v2xspatconv_SpatStructToJson error!");
        return -4;
    }
    const v2xcloud_comm_ddsinfo* ddsinfo = v2xspatconv_GetddsInfo();
    v2xcloud_ddsSend(ddsinfo->dds_object, ddsinfo->mp_spat_up_topic, text.get(),
                     static_cast<unsigned int>(strlen(text.get())));
    return 0;
}

} // namespace

char* v2xspatconv_SpatStructToJson(const SPAT_t* spatFrame) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_log, ret);
    if (spatFrame == nullptr) {
        return nullptr;
    }
    const JsonPtr root(cJSON_CreateObject());
    if (root == nullptr) {
        V2XLOG(g_log, V2XLOG_ERROR, "cJSON_Parse Error!");
        return nullptr;
    }
    if (spatFrame->name != nullptr) {
        SetName(root.get(), *spatFrame->name);
    }
    AddArray(root.get(), "intersections", spatFrame->intersections, SetIntersectionsToObject);
    return cJSON_PrintUnformatted(root.get());
}

int32_t v2xspatconv_SpatDataUp(ASNSTRUCT_HANDLE* p_handle) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_log, ret);
    if (p_handle == nullptr) {
        V2XLOG(g_log, V2XLOG_ERROR, "input param error");
        return ret = -2;
    }
    ret = Publish(FindSpat(p_handle));
    v2xcodec_freeStrcut(p_handle);
    return ret;
}

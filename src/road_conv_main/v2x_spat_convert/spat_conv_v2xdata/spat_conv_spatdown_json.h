// SPAT down, reading: from the cloud document's text to the message set's SPAT.
//
// Keys and types are told in docs/interfaces.md. Numbers are carried raw; those of the SPAT need not lie within their
// types' ranges (only region and id are checked). Members of an unexpected JSON type read as 0, as an empty list or as
// missing. Failures are logged under the tag "DOWN" at level 2, missing timing at 3; every missing number at 2 under
// "SCOM". The structures are zeroed ones that the caller owns and frees, whatever the result; what the readers add is
// malloc's and goes with them. Any thread, but one document at a time in the process: cJSON notes where a text broke
// off in one place.
#pragma once

#include <cjson/cJSON.h>
#include <cstdint>

#include "spat_conv_spatdown_internal.h"
#include "v2x/v2xmsgset.h"

// Reads the whole document. Returns 0; -2 for a null argument or a text that is no JSON; -3 when the document's last
// intersection was dropped, or when there is none.
int32_t v2xspatconv_SpatJsonToStruct(const char* cloud_json_str, SPAT_t* spat,
                                     v2xspatconv_down mode = v2xspatconv_down::settled);

// ---- The parts of the document, for the module itself and its tests. `json` holds the key that is read.

// "name", whole and unchecked. Returns 0; -2 for a null argument; -3 without memory; -4 without a text of that key.
int32_t v2xspatconv_GetNameFromJson(const cJSON* json, SPAT_t* spat);

// "intersections". One that lacks what it must have is dropped, and the next one takes its place in the list. Returns
// what became of the last one: 0 when it was appended, else the code of the part that failed (-3 without status); -1
// when there is none; -2 for a null argument; -4 when the key is missing.
int32_t v2xspatconv_GetIntersectionsFromJson(const cJSON* cloud_json, SPAT_t* spat, v2xspatconv_down mode);

// The node reference under the key `item`; that it is missing is logged and no error. Returns 0; -2 for a null
// argument; -3 and -5 when region or id is outside its type, -6 when there is no id; -4 without memory.
int32_t GetNodeReferenceIDFromJson(const cJSON* json, const char* item, NodeReferenceID_t* id);

// "phases" and "phaseStates". Return 0; -2 for a null argument or without memory; -4 when the key is missing.
int32_t GetPhasesFromJson(const cJSON* json, PhaseList_t* phases, v2xspatconv_down mode);
int32_t GetPhaseStatesFormJson(const cJSON* json, PhaseStateList_t* phaseStates, v2xspatconv_down mode);

// "timing", into the alternative that `timing` has chosen; without a timing (null), or for an alternative that is not
// chosen, the values are read for nobody. Returns 0, also when the key is missing; -2 for a null json.
int32_t GetTimingFromJson(const cJSON* json, TimeChangeDetails_t* timing);

// "counting" and "utcTiming": of the optional members those that have a place. Return 0, also when a key is missing; -2
// for a null argument.
int32_t GetCountingFromJson(const cJSON* json, TimeCountingDown_t* counting);
int32_t GetUtcTimingFromJson(const cJSON* json, UTCTiming_t* utcTiming);

// Converts the JSON text of a cloud document to the message set's SPAT.
//
// docs/interfaces.md lists keys and types. Numbers are stored unscaled. Only region and id are range-checked. A member
// of an unexpected JSON type is read as 0, as an empty list, or as missing. Failures are logged under the tag "DOWN" at
// V2XLOG_ERROR, a missing timing at V2XLOG_WARN. A missing number is logged under the tag "SCOM" at V2XLOG_ERROR. With
// isQuiet a missing name, timing or optional time is logged at V2XLOG_TRACE.
#pragma once

#include "spat_conv_spatdown_internal.h"
#include "v2x/v2xmsgset.h"

// Reads the document into `spat`, which the caller zeroes before the call and frees after the call, even after a
// failure. An intersection without a required member is dropped. Returns 0; -2 for a null argument or a text that is
// not JSON; -3 if the document has no intersection, or if its last intersection is dropped (an earlier
// dropped intersection does not change the result). Any thread, but only one call
// at a time in the process: cJSON stores the position of a syntax error in a global variable.
int32_t v2xspatconv_SpatJsonToStruct(const char* cloud_json_str, SPAT_t* spat, const v2xspatconv_downRules_t& rules);

// SPAT down, reading: from the cloud document's text to the message set's SPAT.
//
// docs/interfaces.md lists keys and types. Numbers are stored raw; only region and id are checked against their types'
// ranges. A member of an unexpected JSON type reads as 0, as an empty list or as missing. Failures are logged under the
// tag "DOWN" at level 2, missing timing at 3; every missing number at 2 under "SCOM".
#pragma once

#include "spat_conv_spatdown_internal.h"
#include "v2x/v2xmsgset.h"

// Reads the whole document. An intersection that lacks a required member is dropped, and the next one takes its place.
// `spat` is zeroed; the caller owns it and frees it whatever the result. Returns 0; -2 for a null argument or a text
// that is not JSON; -3 when the last intersection was dropped, or when there is none. Any thread, but one document at a
// time in the process: cJSON keeps the place of a syntax error in a global.
int32_t v2xspatconv_SpatJsonToStruct(const char* cloud_json_str, SPAT_t* spat, v2xspatconv_down mode);

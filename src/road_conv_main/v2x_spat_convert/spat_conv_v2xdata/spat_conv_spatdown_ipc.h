// SPAT down: converts the first intersection of the message set's SPAT to an IPC SPAT record.
//
// Mandatory times are copied unscaled (0.1 s). Optional times become whole seconds; the confidence is multiplied by
// 0.005 and truncated. An absent optional field is all ones. A result above the range of int32 becomes all ones, a
// result below the range becomes 0. Any thread; the function allocates nothing.
#pragma once

#include <cstdint>

#include "spat_conv_spatdown_internal.h"
#include "v2x/v2xipc_data.h"
#include "v2x/v2xmsgset.h"

// Fills the record at ipc_spat, a zeroed buffer of V2XIPC_RECORD_SIZE bytes. Writes at most 16 phases with 16 states
// each. Legacy: the count fields contain the low 8 bits of the lists' counts. m_phaseNum is signed; if it is negative,
// no phase is written. A phase state without timing stays zero.
// Corrected: the count fields contain the numbers of written entries. A phase state without timing has its light, state
// mode 0, an unknown end and no optional times.
// Returns 0; -2 for a null argument or a SPAT without an intersection.
int32_t v2xspatconv_GbSpatToIpcSpat(const SPAT_t* gb_spat, v2xipc_phases_t* ipc_spat, v2xspatconv_downMode mode);

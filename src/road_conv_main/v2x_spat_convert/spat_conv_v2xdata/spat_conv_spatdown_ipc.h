// SPAT down, writing: from the message set's SPAT to the IPC SPAT record of its first intersection.
//
// Mandatory times are copied raw (0.1 s); optional ones become whole seconds, the confidence whole percent (steps of
// 0.5 %). An absent optional field is all ones, and so is a value above 32 bits; a value below 32 bits becomes 0. Any
// thread; nothing is allocated.
#pragma once

#include <cstdint>

#include "spat_conv_spatdown_internal.h"
#include "v2x/v2xipc_data.h"
#include "v2x/v2xmsgset.h"

// Fills the record at ipc_spat, a zeroed buffer of V2XIPC_RECORD_SIZE bytes. At most 16 phases with 16 states each are
// written. Legacy: the count fields hold the lists' counts, low 8 bits (m_phaseNum signed: a negative one writes no
// phases), and a phase state without timing stays zero. Corrected: the counts are those of the written entries, and a
// state without timing has its light, state mode 0, an unknown end and absent optional times.
// Returns 0; -2 for a null argument or a SPAT without an intersection.
int32_t v2xspatconv_GbSpatToIpcSpat(const SPAT_t* gb_spat, v2xipc_phases_t* ipc_spat, v2xspatconv_down mode);

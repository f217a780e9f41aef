// SPAT down, writing: from the message set's SPAT to the IPC SPAT record of its first intersection.
//
// Mandatory times are carried raw (0.1 s), optional ones in whole seconds, the confidence in whole percent of 0.5 %
// steps; an absent one is all ones, and so is one above what 32 bits hold (one below is 0). Any thread; nothing is
// allocated.
#pragma once

#include <cstdint>

#include "spat_conv_spatdown_internal.h"
#include "v2x/v2xipc_data.h"
#include "v2x/v2xmsgset.h"

// Fills the record at ipc_spat, a zeroed buffer of V2XIPC_RECORD_SIZE bytes. At most 16 phases with 16 states each are
// written. Settled: the count fields hold the lists' counts, low 8 bits (m_phaseNum signed: a negative one writes no
// phases), and a phase state without timing stays zero. Corrected: the counts name what was written, and such a state
// has its light, no state mode, and times that are unknown or absent.
// Returns 0; -2 for a null argument or a SPAT without an intersection.
int32_t v2xspatconv_GbSpatToIpcSpat(const SPAT_t* gb_spat, v2xipc_phases_t* ipc_spat, v2xspatconv_down mode);

// Fill one phase state from a timing of their kind; the caller has looked at the choice. Return 0; -2 for a null
// argument or a phase state without timing.
int32_t v2xspatconv_GbPhaseStateCountingToIpc(const PhaseState_t* gb_phSta, v2xipc_pahseState_t* ipc_phSta);
int32_t v2xspatconv_GbPhaseStateUtcTimingToIpc(const PhaseState_t* gb_phSta, v2xipc_pahseState_t* ipc_phSta);

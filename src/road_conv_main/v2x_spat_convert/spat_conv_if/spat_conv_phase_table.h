// From a device's phases to an IPC SPAT record: what every device adapter does alike.
//
// An adapter fills the record's header, writes the phases of one reading into a device phase table (in the device's own
// numbering) and copies them from there into the record (in SPAT numbering). Tables and records are zeroed buffers on
// the caller's stack; nothing is kept between calls and nothing allocated, so any thread may call with buffers of its
// own.
#pragma once

#include <cstdint>
#include <span>

#include "spat_conv_config.h"
#include "v2x/v2xipc_data.h"
#include "v2x/v2xlog.h"

// Bytes of a device phase table: entries v2xipc_phase_t with their states, back to back. It carries no count: behind
// the last entry the zeros read as entries with id 0 and no states.
inline constexpr int32_t V2XSPATCONV_PHASE_TABLE_SIZE = 10240;
// Entries of the table that are searched, and the greatest SPAT phase id that is written.
inline constexpr uint16_t V2XSPATCONV_PHASE_MAX = 32;

// Every routine logs and traces under the tag of the adapter that calls it.

// Which of several entries with one phase id a device adapter takes.
enum class v2xspatconv_match { first, last };

// Minute of the year in local time, 0 to 527039.
int32_t GetMoyOfTheYear(v2xlog_tag_t& tag);
// Millisecond of the current minute, 0 to 59999.
int32_t GetSecMarkOfTheMinute(v2xlog_tag_t& tag);

// Fills intersection id, minute and millisecond of the record from the configuration and the clock. Returns 0; -4, -3,
// -5 or -6 when region, node, minute or millisecond is outside its type of the message set (RoadRegulatorID, NodeID,
// MinuteOfTheYear, DSecond); the first one that fails in this order is logged. -4 without a configuration.
int32_t v2xspatconv_FillIpcHead(v2xlog_tag_t& tag, v2xipc_phases_t* spat_ipc);

// Writes one entry with one current state (no start time, all optional times absent) at the table position `entry` and
// returns its length, 17. End time in 0.1 s.
uint16_t v2xspatconv_WritePhase(uint8_t* entry, uint8_t phaseId, uint8_t lightState, uint16_t endTime);

// Where each device phase stands in a device phase table; null = nowhere. Valid as long as the table.
struct v2xspatconv_phaseIndex_t {
    const uint8_t* entries[256];
};

// Notes the first 32 entries of the table (lm_phase is what was written of it); an entry without states, or one that
// runs past the end, is never found. One walk serves all look-ups of a reading: walking for each SPAT phase took longer
// than the rest of the conversion.
void v2xspatconv_IndexPhases(v2xspatconv_match match, std::span<const uint8_t> lm_phase,
                             v2xspatconv_phaseIndex_t& index);

// Finds the device phase PhaseId and stores the start of its entry in out_phase, null when there is none (as for every
// number above 255). Returns 0; -2 for a null argument.
int32_t GetLMPhaseByPhaseId(v2xlog_tag_t& tag, const v2xspatconv_phaseIndex_t& index, uint16_t PhaseId,
                            const uint8_t** out_phase);

// Copies the entries that feed the SPAT phases 1 to 32 (phase relationship of cfg, else the same number) into the
// record in ascending order under their SPAT ids. m_phaseNum stays as the adapter set it: the stack application gets
// the number that the device reported.
void v2xspatconv_CopyPhases(v2xlog_tag_t& tag, const spat_conv_config_t& cfg, v2xspatconv_match match,
                            std::span<const uint8_t> lm_phase, v2xipc_phases_t* spat_ipc);

// From a device's phases to an IPC SPAT record: the routines that every device adapter shares.
//
// An adapter fills the record's header, writes the phases of one reading into a device phase table (in the device's own
// numbering) and copies them into the record (in SPAT numbering). Tables and records are buffers on the caller's stack.
// Nothing is kept between calls and nothing is allocated. Any thread may call, with buffers of its own. Lines and
// traces appear under the tag of the adapter that calls.
#pragma once

#include <cstdint>
#include <span>

#include "spat_conv_config.h"
#include "v2x/v2xipc_data.h"
#include "v2x/v2xlog.h"

// Bytes of a device phase table: entries v2xipc_phase_t with their states, one directly after another.
inline constexpr int32_t V2XSPATCONV_PHASE_TABLE_SIZE = 10240;
// Entries of the table that are searched, and the greatest SPAT phase id that is written.
inline constexpr uint16_t V2XSPATCONV_PHASE_MAX = 32;

// Which entry an adapter uses when several have the same phase id.
enum class v2xspatconv_match { first, last };

// The loaded configuration; null when there is none, which is logged as "Get spat config error:%d" at level 3.
const spat_conv_config_t* v2xspatconv_AdapterConfig(v2xlog_tag_t& tag);

// Fills intersection id, minute of the year (local time) and millisecond of the minute from one reading of the clock.
// Returns 0; -4, -3, -5 or -6 when region, node, minute or millisecond is outside its type of the message set
// (RoadRegulatorID, NodeID, MinuteOfTheYear, DSecond). The first failure in this order is logged.
int32_t v2xspatconv_FillIpcHead(v2xlog_tag_t& tag, const spat_conv_config_t& cfg, v2xipc_phases_t* spat_ipc);

// Writes one entry with one current state (start time 0, all optional times absent) at the table position `entry` and
// returns its length, 17 bytes. endTime is in 0.1 s.
uint16_t v2xspatconv_WritePhase(uint8_t* entry, uint8_t phaseId, uint8_t lightState, uint16_t endTime);

// Copies the entries that feed the SPAT phases 1 to 32 into the record, in ascending order under their SPAT ids. The
// phase relationship of cfg names the device phase of a SPAT phase; 0 means the same number. lm_phase is the written
// part of the table; its first 32 entries are searched, and an entry without states is never found. m_phaseNum stays as
// the adapter set it: the stack application gets the number that the device reported.
void DealLMPhaseToIpcData(v2xlog_tag_t& tag, const spat_conv_config_t& cfg, v2xspatconv_match match,
                          std::span<const uint8_t> lm_phase, v2xipc_phases_t* spat_ipc);

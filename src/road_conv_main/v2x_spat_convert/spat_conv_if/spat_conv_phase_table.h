// Converts the phases of a signal device to an IPC SPAT record. All adapters share these functions.
//
// An adapter fills the record's header, writes the phases of one device message into a device phase table, and copies
// the phases from the table to the record. The table contains device phase numbers, the record contains SPAT phase ids.
// The functions keep no state and allocate nothing. Any thread; each thread needs its own buffers. The functions log
// under the tag of the calling adapter.
#pragma once

#include <cstdint>
#include <span>

#include "spat_conv_config.h"
#include "spat_conv_gate.h"
#include "v2x/v2xipc_data.h"
#include "v2x/v2xlog.h"

// Size of a device phase table in bytes. Each entry is a v2xipc_phase_t and its states, without gaps.
inline constexpr int32_t V2XSPATCONV_PHASE_TABLE_SIZE = 10240;
// Number of entries of the table that can be copied, and the largest SPAT phase id that is written.
inline constexpr uint16_t V2XSPATCONV_PHASE_MAX = 32;

// Selects the first or the last of several entries with the same phase number.
enum class v2xspatconv_match { first, last };

// Returns the configuration. If the configuration cannot be loaded, logs "Get spat config error:%d" at V2XLOG_WARN and
// returns null.
const spat_conv_config_t* v2xspatconv_GetAdapterConfig(v2xlog_tag_t& tag);

// Fills intersection id, minute of the year (local time) and millisecond of the minute. Minute and millisecond come
// from the same clock reading. The ranges are those of the message set. Returns 0; -4 if the region (RoadRegulatorID)
// is out of range; -3 for the node (NodeID); -5 for the minute (MinuteOfTheYear); -6 for the millisecond (DSecond). The
// function checks in this order and logs the first failure with its value and range.
int32_t v2xspatconv_FillIpcHead(v2xlog_tag_t& tag, const spat_conv_config_t& cfg, v2xipc_phases_t* spat_ipc);

// Writes an entry with one state to `entry`, 17 bytes in a device phase table. The state starts at 0, ends at endTime
// (0.1 s), and has no optional times. Returns 17.
uint16_t v2xspatconv_WritePhase(uint8_t* entry, uint8_t phaseId, uint8_t lightState, uint16_t endTime);

// Copies the table's entries to the record as SPAT phases 1 to 32, in ascending order. phases[i] is the device phase of
// SPAT phase i; 0 selects device phase i. lm_phase is the written part of the table. Only its first 32 entries are
// copied; entries without states are ignored. Legacy: m_phaseNum stays unchanged, so the stack application receives the
// number that the device reported. Adds to `findings` the device phases of all entries that have two lights or feed no
// SPAT phase, and the SPAT phases behind the first m_phaseNum entries.
void DealLMPhaseToIpcData(v2xlog_tag_t& tag, std::span<const uint16_t, 256> phases, v2xspatconv_match match,
                          std::span<const uint8_t> lm_phase, v2xipc_phases_t* spat_ipc,
                          v2xspatconv_findings_t& findings);

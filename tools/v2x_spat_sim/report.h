// Phase report of the signal learner, as its datagrams carry it, and what can be wrong with one.
//
// Five bytes of head (FE FE, type 10, body length with the high byte first), then the body: 0, phase count, 0, and
// seven bytes per phase: device phase number, colour, seconds left, four zeros.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "plan.h"

namespace sim {

// How a datagram stands to a well-made report.
enum class ReportKind : size_t {
    good,
    wrongStart,  // start bytes or type are not those of a report, or the datagram has no whole head
    wrongLength, // the length field is not the length of the body, or the body has no phase count
    highCount,   // well framed, but the phase count is above the records that are there
};
inline constexpr size_t REPORT_KINDS = 4;

// Bytes that the daemon sends to the learner every second.
inline constexpr std::array<uint8_t, 11> HEARTBEAT = {0xFE, 0xFE, 0x03, 0x00, 0x06, 0x01, 0x00, 0x00, 0x00, 0x00, 0x55};

std::vector<uint8_t> EncodeReport(std::span<const PhaseLight> lights);

// The first thing that is wrong with a datagram, in the order of the kinds.
ReportKind ClassifyReport(std::span<const uint8_t> datagram);

// Makes a good report one of `kind`; `random` chooses among the many ways to do so. Nothing happens when the datagram
// is too short to be damaged in this way, or when its phase count is at 255 already.
void DamageReport(std::vector<uint8_t>& datagram, ReportKind kind, uint32_t random);

} // namespace sim

// Phase report of the signal learner, and what can be wrong with one.
//
// Five bytes of head (FE FE, type 10, body length with the high byte first), then the body: 0, phase count, 0, and
// seven bytes per phase: device phase number, colour, seconds left, four zeros.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "plan.h"
#include "summary.h"

namespace sim {

enum class ReportKind : size_t {
    good,
    wrongStart,  // wrong start bytes or type, or shorter than the head
    wrongLength, // the length field is not the length of the body, or the body has no phase count
    highCount,   // the phase count is above the number of records; all else is right
};
inline constexpr KindName REPORT_KINDS[] = {
    {nullptr, "good", "good"},
    {"start", "wrongStart", "wrong start"},
    {"length", "wrongLength", "wrong length"},
    {"count", "countTooHigh", "count too high"},
};

// Bytes that the daemon sends to the learner every second.
inline constexpr std::array<uint8_t, 11> HEARTBEAT = {0xFE, 0xFE, 0x03, 0x00, 0x06, 0x01, 0x00, 0x00, 0x00, 0x00, 0x55};

std::vector<uint8_t> EncodeReport(std::span<const PhaseLight> lights);

// The first fault of a datagram, in the order of the kinds.
ReportKind ClassifyReport(std::span<const uint8_t> datagram);

// Turns a good report into one of `kind`; `random` chooses among the many ways to do so. Leaves a datagram alone that
// is too short for this damage, or whose phase count is already 255.
void DamageReport(std::vector<uint8_t>& datagram, ReportKind kind, uint32_t random);

} // namespace sim

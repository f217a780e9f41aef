// Encodes, damages and classifies phase reports of the signal learner.
//
// A report has a head of five bytes: FE FE, type 10 (hex), length of the body (2 bytes, big-endian). The body is 0, the
// phase count, 0, and seven bytes for each phase: device phase number, colour, remaining seconds, four zeros.
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
    wrongStart,  // the start bytes or the type are wrong, or the report is shorter than the head
    wrongLength, // the length field differs from the length of the body, or the body is too short for the phase count
    highCount,   // the phase count is too high
};
inline constexpr KindName REPORT_KINDS[] = {
    {nullptr, "good", "good"},
    {"start", "wrongStart", "wrong start"},
    {"length", "wrongLength", "wrong length"},
    {"count", "countTooHigh", "count too high"},
};

// The datagram that the daemon sends to the learner every second.
inline constexpr std::array<uint8_t, 11> HEARTBEAT = {0xFE, 0xFE, 0x03, 0x00, 0x06, 0x01, 0x00, 0x00, 0x00, 0x00, 0x55};

std::vector<uint8_t> EncodeReport(std::span<const PhaseLight> lights);

// Returns the first fault of a datagram. The order of the checks is the order of the kinds.
ReportKind ClassifyReport(std::span<const uint8_t> datagram);

// Damages a good report so that the report is of `kind`. `random` selects one of many possible changes. Does nothing if
// the datagram is too short for this damage, or if the phase count cannot be raised because the count is 255.
void DamageReport(std::vector<uint8_t>& datagram, ReportKind kind, uint32_t random);

} // namespace sim

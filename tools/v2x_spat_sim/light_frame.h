// Encodes and classifies light-status frames of a traffic-signal controller (GA/T 1743).
//
// A frame is the delimiter C0, the escaped body, and C0. The escape of C0 is DB DC; the escape of DB is DB DD. The body
// is the payload and its CRC-16, low byte first. All numbers of the payload are little-endian. The payload consists of:
// - header, 31 bytes (control type at offset 24, object id at offset 25)
// - length of the rest (2 bytes), longitude and latitude (4 bytes each, IEEE 754), elevation (2), number of links (1)
// - for each link: approach angle in degrees (2), number of lamp groups (1)
// - for each group of the link: id (1), lamp type (1), colour bits (1), remaining seconds (1, 0 means unknown)
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "plan.h"
#include "summary.h"

namespace sim {

inline constexpr uint8_t DELIMITER = 0xC0;
inline constexpr uint8_t ESCAPE = 0xDB;
inline constexpr uint8_t ESCAPED_DELIMITER = 0xDC;
inline constexpr uint8_t ESCAPED_ESCAPE = 0xDD;

// Offsets and sizes in a payload.
inline constexpr size_t CONTROL_TYPE_AT = 24;
inline constexpr size_t OBJECT_ID_AT = 25;
inline constexpr size_t LINK_COUNT_AT = 43;
inline constexpr size_t LINKS_AT = 44;
inline constexpr size_t LINK_HEAD_SIZE = 3; // the last byte of the head is the number of groups
inline constexpr size_t GROUP_SIZE = 4;
inline constexpr size_t CRC_SIZE = 2;

// The links come from north, east, south, west, and again from north. The groups of a link are straight on, left,
// right, and two pedestrian crossings (lamp types 1, 2, 3, 8, 9), and again from straight on.
struct FrameShape {
    unsigned links = 4;
    unsigned groups = 5; // per link
};
inline constexpr unsigned MAX_LINKS = 12;
inline constexpr unsigned MAX_GROUPS = 12;

enum class FrameKind : size_t {
    good,
    wrongCrc,       // the CRC does not match the payload
    wrongLength,    // the payload has missing or additional bytes; the CRC is that of the good payload
    wrongDelimiter, // a delimiter is missing, or the body contains a delimiter
    wrongEscape,    // a byte other than DC and DD follows DB, or C0 is not escaped
    wrongType,      // the control type or the object id differs; the CRC is right
    wrongCount,     // a count of links or groups is too high; the CRC is right
};
inline constexpr KindName FRAME_KINDS[] = {
    {nullptr, "good", "good"},
    {"crc", "wrongCrc", "wrong CRC"},
    {"length", "wrongLength", "wrong length"},
    {"delimiter", "wrongDelimiter", "wrong delimiter"},
    {"escape", "wrongEscape", "wrong escape"},
    {"type", "wrongType", "wrong type"},
    {"count", "wrongCount", "count too high"},
};

// Encodes the plan's eight movements, in the order of the plan. Right turns and pedestrian crossings show the light of
// straight on. If a light precedes the movements, adds a link from the north with one lamp group for this light:
// straight on, or of an unknown lamp type if its phase is 0. `microseconds` is the time since 1970.
std::vector<uint8_t> EncodePayload(std::span<const PhaseLight> lights, FrameShape shape, uint64_t microseconds);

// Appends the CRC (CRC-16/MODBUS) to the payload.
std::vector<uint8_t> AppendCrc(std::vector<uint8_t> payload);

// Escapes the body and adds the delimiters.
std::vector<uint8_t> WrapFrame(std::span<const uint8_t> body);

// A frame without delimiters and escapes.
struct UnwrappedFrame {
    std::vector<uint8_t> body;  // includes each DB that is not part of an escape
    bool isWellEscaped = false; // each DB of the frame is part of an escape
    bool isCrcRight = false;
};

// Removes delimiters and escapes. Returns an empty optional if the frame does not have two delimiters, one at each end.
std::optional<UnwrappedFrame> UnwrapFrame(std::span<const uint8_t> frame);

// Returns the first fault of a frame. The order of the checks is delimiters, escapes, CRC, length, type, counts. The
// length is wrong if the payload ends before its links.
FrameKind ClassifyFrame(std::span<const uint8_t> frame);

} // namespace sim

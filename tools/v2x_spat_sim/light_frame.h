// Light-status frame of a traffic-signal controller (GA/T 1743), and what can be wrong with one.
//
// On the wire: C0, the body with C0 written as DB DC and DB as DB DD, C0. Body: payload and its CRC-16, low byte first.
// Payload, little-endian: header of 31 bytes (control type at 24, object id at 25), then the crossing: length of the
// rest (2), longitude and latitude (4 each, IEEE 754), elevation (2), number of entry links (1), and the links back to
// back: approach angle in degrees (2), number of lamp groups (1), and four bytes per group: id, lamp type, colour bits,
// seconds left (0 unknown).
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
inline constexpr size_t LINK_HEAD_SIZE = 3; // its last byte is the number of groups
inline constexpr size_t GROUP_SIZE = 4;
inline constexpr size_t CRC_SIZE = 2; // after the payload

// Links come from north, east, south and west, then from north again. Groups of a link: straight on, left, right, and
// two crossings (lamp types 1, 2, 3, 8, 9), then straight on again.
struct FrameShape {
    unsigned links = 4;
    unsigned groups = 5; // in each link
};
inline constexpr unsigned MAX_LINKS = 12;
inline constexpr unsigned MAX_GROUPS = 12;

enum class FrameKind : size_t {
    good,
    wrongCrc,       // the CRC is not that of the payload
    wrongLength,    // bytes of the payload are missing or added; the CRC is still that of the good payload
    wrongDelimiter, // a delimiter is missing at an end, or there is one within
    wrongEscape,    // DB before a byte other than DC and DD, or a C0 that is not escaped
    wrongType,      // other control type or object id; the CRC is right
    wrongCount,     // fewer links or groups than the frame counts; the CRC is right
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

// The plan's eight movements, in their order, as a payload. Right turns and crossings show the light of straight on.
// The time stamp holds seconds since 1970 in four bytes and milliseconds in two.
std::vector<uint8_t> EncodePayload(std::span<const PhaseLight> movements, FrameShape shape, uint64_t microseconds);

// Appends its CRC (CRC-16/MODBUS) to the payload.
std::vector<uint8_t> WithCrc(std::vector<uint8_t> payload);

// Makes a frame of a body: escapes it and adds the delimiters.
std::vector<uint8_t> Enclose(std::span<const uint8_t> body);

// What a receiver reads from a frame.
struct OpenedFrame {
    std::vector<uint8_t> body;  // keeps a DB that escapes nothing, and the byte after it
    bool isWellEscaped = false; // each DB escapes something
    bool isCrcRight = false;
};

// Empty unless the frame has exactly two delimiters, one at each end.
std::optional<OpenedFrame> OpenFrame(std::span<const uint8_t> frame);

// The first fault of a frame: delimiters, escapes, CRC, length (too short for a crossing), type, counts.
FrameKind ClassifyFrame(std::span<const uint8_t> frame);

} // namespace sim

// Light-status frame of a traffic-signal controller (GA/T 1743), and what can be wrong with one.
//
// On the wire: C0, the body with C0 written as DB DC and DB as DB DD, C0. Body: payload and its CRC-16, low byte first.
// Payload, little-endian: header of 31 bytes (control type at 24, object id at 25), then the crossing: length of what
// follows it (2), longitude and latitude (4 each, IEEE 754), elevation (2), number of entry links (1), and the links
// back to back: approach angle in degrees (2), number of lamp groups (1), and four bytes per group: id, lamp type,
// colour bits, seconds left (0 unknown).
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "plan.h"

namespace sim {

inline constexpr uint8_t DELIMITER = 0xC0;
inline constexpr uint8_t ESCAPE = 0xDB;
inline constexpr uint8_t ESCAPED_DELIMITER = 0xDC;
inline constexpr uint8_t ESCAPED_ESCAPE = 0xDD;

// Places in a payload.
inline constexpr size_t CONTROL_TYPE_AT = 24;
inline constexpr size_t OBJECT_ID_AT = 25;
inline constexpr size_t LINK_COUNT_AT = 43;
inline constexpr size_t LINKS_AT = 44;
inline constexpr size_t LINK_HEAD_SIZE = 3; // the number of groups is its last byte
inline constexpr size_t GROUP_SIZE = 4;
inline constexpr size_t CRC_SIZE = 2; // behind it

// Links come from north, east, south and west, and those beyond the fourth from there again. Groups of a link: straight
// on, left, right, and two crossings (lamp types 1, 2, 3, 8, 9), and those beyond the fifth the same again.
struct FrameShape {
    uint8_t links = 4;
    uint8_t groups = 5; // in each link
};
inline constexpr int MAX_LINKS = 12;
inline constexpr int MAX_GROUPS = 12;

// How a frame stands to a well-made one.
enum class FrameKind : size_t {
    good,
    wrongCrc,       // the CRC is not that of the payload
    wrongLength,    // bytes of the payload are missing or added, under the CRC of before
    wrongDelimiter, // does not begin or end with one, or holds another
    wrongEscape,    // DB with a byte after it that does not belong there, or a C0 that is not escaped
    wrongType,      // other control type or object id; the CRC is right
    wrongCount,     // there are fewer links or groups than their number says; the CRC is right
};
inline constexpr size_t FRAME_KINDS = 7;

// CRC-16/MODBUS.
uint16_t Crc16(std::span<const uint8_t> bytes);

// The plan's eight movements, in their order, as a payload. Right turns and crossings go with straight on. The time
// stamp holds seconds since 1970 in four bytes and milliseconds in two.
std::vector<uint8_t> EncodePayload(std::span<const PhaseLight> movements, FrameShape shape, uint64_t microseconds);

// The payload and its CRC.
std::vector<uint8_t> WithCrc(std::vector<uint8_t> payload);

// A frame around a body.
std::vector<uint8_t> Enclose(std::span<const uint8_t> body);

// What a frame is read as.
struct OpenedFrame {
    std::vector<uint8_t> body;  // a DB that escapes nothing stays, and so does the byte after it
    bool isWellEscaped = false; // there is no such DB
    bool isCrcRight = false;
};

// Empty when there are not exactly two delimiters, one at each end.
std::optional<OpenedFrame> OpenFrame(std::span<const uint8_t> frame);

// The first thing that is wrong with a frame: delimiters, escapes, CRC, length (too short for a crossing), type,
// counts.
FrameKind ClassifyFrame(std::span<const uint8_t> frame);

} // namespace sim

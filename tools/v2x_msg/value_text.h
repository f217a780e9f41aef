// Formats values of messages as text. '-' means that a value is absent, '?' that the sender does not know the value.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

#include "NodeReferenceID.h"
#include "PositionOffsetLLV.h"
#include "VehicleSize.h"
#include "v2x/v2xmsgset.h"

namespace msg {

// How a number of a message is shown.
struct Unit {
    double scale = 1; // of the number 1
    int decimals = 0;
    std::optional<long> unknown = std::nullopt; // the number that means unknown
};

inline constexpr Unit COUNT{};
inline constexpr Unit LATITUDE{1e-7, 7, 900000001};   // degrees
inline constexpr Unit LONGITUDE{1e-7, 7, 1800000001}; // degrees
inline constexpr Unit ELEVATION{0.1, 1, -4096};       // metres
inline constexpr Unit SPEED{0.02, 2, 8191};           // m/s
inline constexpr Unit HEADING{0.0125, 4, 28800};      // degrees
inline constexpr Unit CENTIMETRES{0.01, 2};           // metres
inline constexpr Unit RADIUS{0.1, 1};                 // metres
inline constexpr Unit MILLISECONDS{0.001, 3};         // seconds
inline constexpr Unit TIME_MARK{0.1, 1, 36001};       // seconds
inline constexpr Unit CONFIDENCE{0.5, 1};             // percent

// Null means absent.
std::string FormatNumber(const long* number, const Unit& unit = COUNT);

// Formats a MinuteOfTheYear as the day of the year, from 1, and the time of day. Null means absent.
std::string FormatDay(const long* minute);

// Returns the number and, in parentheses, the text of FormatDay.
std::string FormatMinute(const long* minute);

// Returns the name of an enumerated value, or the number if `type` has no name for it. Null means absent.
std::string FormatEnumerated(const asn_TYPE_descriptor_t& type, const long* value);

// Returns the names of the bits that are set, or "none". `names` begins with bit 0. A bit without a name is shown by
// its number; bits from 64 on are ignored. Null means absent.
std::string FormatBits(const BIT_STRING_t* bits, std::span<const std::string_view> names);

// Returns the text in quotes. Quotes, backslashes and octets other than printable ASCII become \xNN.
std::string FormatQuoted(const OCTET_STRING_t& text);

// Returns a text in GB 2312 as UTF-8, in quotes, with '?' for control characters. GB 18030 and GBK contain GB 2312. A
// text that is not in GB 18030 is formatted by FormatQuoted.
std::string FormatGb2312(const OCTET_STRING_t& text);

std::string FormatHex(const OCTET_STRING_t& octets);

// Returns "REGION/ID".
std::string FormatNode(const NodeReferenceID_t& node);

// Returns "WIDTHxLENGTHxHEIGHT" in metres. 0 means unknown.
std::string FormatSize(const VehicleSize_t& size);

// ---- positions

struct PositionText {
    std::string position;  // "LATITUDE,LONGITUDE" in degrees
    std::string elevation; // metres
};

PositionText FormatPosition(const Position3D_t& position);

// Adds an offset to the reference position. The alternatives with absolute values ignore the reference position. Null
// or an unknown alternative means absent.
PositionText FormatPosition(const PositionOffsetLLV_t* offset, const Position3D_t& reference);

// Returns position and elevation with their heads, for a line of text.
std::string FormatPlace(const Position3D_t& position);

// ---- lists

// Appends an item to a list in text: "A, B".
void AppendItem(const std::string& item, std::string& list);

// Returns pointers to the items. Null means an empty list.
template <typename List>
auto Items(const List* list) {
    using Pointers = std::span<std::remove_reference_t<decltype(*list->list.array)>>;
    return list == nullptr ? Pointers() : Pointers(list->list.array, static_cast<size_t>(list->list.count));
}

} // namespace msg

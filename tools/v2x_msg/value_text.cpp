#include "value_text.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <iconv.h>
#include <iterator>

#include "INTEGER.h"
#include "VerticalOffset.h"
#include "common/hex.h"
#include "common/text.h"

namespace msg {
namespace {

constexpr long INVALID_MINUTE = 527040;
constexpr long MINUTES_OF_DAY = 24L * 60;
constexpr size_t MAX_BITS = 64;

constexpr Unit SIZE{0.01, 2, 0};
constexpr Unit HEIGHT{0.05, 2, 0};

std::span<const uint8_t> Octets(const OCTET_STRING_t& octets) {
    return {octets.buf, static_cast<size_t>(octets.size)};
}

std::string JoinPosition(const long* latitude, const long* longitude) {
    return FormatNumber(latitude, LATITUDE) + "," + FormatNumber(longitude, LONGITUDE);
}

// Returns the sum, or the unknown value if the reference is unknown. A sum beyond a long wraps.
long AddOffset(long reference, long offset, const Unit& unit) {
    if (reference == unit.unknown) {
        return reference;
    }
    __builtin_add_overflow(reference, offset, &reference);
    return reference;
}

std::string FormatHorizontal(const PositionOffsetLL_t& offset, const Position3D_t& reference) {
    if (offset.present == PositionOffsetLL_PR_NOTHING) {
        return "-";
    }
    // All alternatives begin with the same two members, so that each of them gives the values.
    static_assert(std::is_same_v<OffsetLL_B12_t, Longitude_t> && std::is_same_v<OffsetLL_B12_t, Latitude_t>);
    static_assert(offsetof(Position_LL_24B_t, lat) == offsetof(Position_LLmD_64b_t, lat));
    const auto& value = offset.choice.position_LL1;
    const bool isAbsolute = offset.present == PositionOffsetLL_PR_position_LatLon;
    const long latitude = isAbsolute ? value.lat : AddOffset(reference.lat, value.lat, LATITUDE);
    const long longitude = isAbsolute ? value.lon : AddOffset(reference.Long, value.lon, LONGITUDE);
    return JoinPosition(&latitude, &longitude);
}

std::string FormatVertical(const VerticalOffset_t* offset, const long* reference) {
    if (offset == nullptr || offset->present == VerticalOffset_PR_NOTHING) {
        return "-";
    }
    // All alternatives are of one type, so that each of them gives the value.
    static_assert(std::is_same_v<VertOffset_B07_t, Elevation_t>);
    const long value = offset->choice.elevation;
    if (offset->present == VerticalOffset_PR_elevation) {
        return FormatNumber(&value, ELEVATION);
    }
    if (reference == nullptr) {
        return "-";
    }
    const long elevation = AddOffset(*reference, value, ELEVATION);
    return FormatNumber(&elevation, ELEVATION);
}

} // namespace

void AppendItem(const std::string& item, std::string& list) {
    list += (list.empty() ? "" : ", ") + item;
}

std::string FormatNumber(const long* number, const Unit& unit) {
    if (number == nullptr) {
        return "-";
    }
    if (*number == unit.unknown) {
        return "?";
    }
    char text[64]; // 20 digits of a long and the decimals; std::to_chars is faster than printf
    const double value = static_cast<double>(*number) * unit.scale;
    return {text, std::to_chars(text, std::end(text), value, std::chars_format::fixed, unit.decimals).ptr};
}

std::string FormatDay(const long* minute) {
    if (minute == nullptr) {
        return "-";
    }
    if (*minute < 0 || *minute >= INVALID_MINUTE) {
        return "invalid";
    }
    const long time = *minute % MINUTES_OF_DAY;
    return tools::FormatText("day %ld, %02ld:%02ld", *minute / MINUTES_OF_DAY + 1, time / 60, time % 60);
}

std::string FormatMinute(const long* minute) {
    return minute == nullptr ? "-" : std::to_string(*minute) + " (" + FormatDay(minute) + ")";
}

std::string FormatEnumerated(const asn_TYPE_descriptor_t& type, const long* value) {
    if (value == nullptr) {
        return "-";
    }
    const auto& names = *static_cast<const asn_INTEGER_specifics_t*>(type.specifics);
    const std::span all(names.value2enum, static_cast<size_t>(names.map_count));
    const auto found = std::ranges::find(all, *value, &asn_INTEGER_enum_map_t::nat_value);
    return found == all.end() ? std::to_string(*value) : found->enum_name;
}

std::string FormatBits(const BIT_STRING_t* bits, std::span<const std::string_view> names) {
    if (bits == nullptr) {
        return "-";
    }
    std::string text;
    const size_t count = std::min(8 * static_cast<size_t>(bits->size), MAX_BITS);
    for (size_t bit = 0; bit < count; ++bit) {
        if ((bits->buf[bit / 8] >> (7 - bit % 8) & 1) != 0) {
            AppendItem(bit < names.size() ? std::string(names[bit]) : "bit " + std::to_string(bit), text);
        }
    }
    return text.empty() ? "none" : text;
}

std::string FormatQuoted(const OCTET_STRING_t& text) {
    std::string quoted = "\"";
    for (const uint8_t octet : Octets(text)) {
        const bool isPlain = octet >= ' ' && octet <= '~' && octet != '"' && octet != '\\';
        quoted += isPlain ? std::string(1, static_cast<char>(octet)) : tools::FormatText("\\x%02X", octet);
    }
    return quoted + "\"";
}

std::string FormatGb2312(const OCTET_STRING_t& text) {
    const iconv_t converter = iconv_open("UTF-8", "GB18030");
    if (converter == iconv_t(-1)) {
        return FormatQuoted(text);
    }
    std::string utf8(4 * static_cast<size_t>(text.size), '\0'); // no octet becomes more than four
    char* input = reinterpret_cast<char*>(text.buf);
    char* output = utf8.data();
    size_t inputLeft = static_cast<size_t>(text.size);
    size_t outputLeft = utf8.size();
    const bool isValid = iconv(converter, &input, &inputLeft, &output, &outputLeft) != size_t(-1);
    iconv_close(converter);
    utf8.resize(utf8.size() - outputLeft);
    return isValid ? '"' + tools::MakePlain(std::move(utf8)) + '"' : FormatQuoted(text);
}

std::string FormatHex(const OCTET_STRING_t& octets) {
    return tools::ToHex(Octets(octets));
}

std::string FormatNode(const NodeReferenceID_t& node) {
    return FormatNumber(node.region) + "/" + std::to_string(node.id);
}

std::string FormatSize(const VehicleSize_t& size) {
    return FormatNumber(&size.width, SIZE) + "x" + FormatNumber(&size.length, SIZE) + "x" +
           FormatNumber(size.height, HEIGHT);
}

PositionText FormatPosition(const Position3D_t& position) {
    return {JoinPosition(&position.lat, &position.Long), FormatNumber(position.elevation, ELEVATION)};
}

PositionText FormatPosition(const PositionOffsetLLV_t* offset, const Position3D_t& reference) {
    return offset == nullptr ? PositionText{"-", "-"}
                             : PositionText{FormatHorizontal(offset->offsetLL, reference),
                                            FormatVertical(offset->offsetV, reference.elevation)};
}

std::string FormatPlace(const Position3D_t& position) {
    const PositionText text = FormatPosition(position);
    return "position(deg) " + text.position + "  elevation(m) " + text.elevation;
}

} // namespace msg

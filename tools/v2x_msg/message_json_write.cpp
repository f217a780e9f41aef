// The conversion of messages to JSON.
#include <algorithm>
#include <charconv>
#include <span>

#include "BIT_STRING.h"
#include "INTEGER.h"
#include "common/hex.h"
#include "message_json.h"
#include "message_type.h"

namespace msg {
namespace {

void AppendValue(const asn_TYPE_descriptor_t& type, const void* value, std::string& text);

void AppendNumber(long number, std::string& text) {
    char digits[24];
    text.append(digits, std::to_chars(digits, std::end(digits), number).ptr);
}

void AppendName(const char* name, std::string& text) {
    ((text += '"') += name) += '"';
}

// A number without a name, which no decoder makes, appears as a number.
void AppendEnumerated(const asn_TYPE_descriptor_t& type, long number, std::string& text) {
    const auto* row = INTEGER_map_value2enum(static_cast<asn_INTEGER_specifics_t*>(type.specifics), number);
    if (row == nullptr) {
        AppendNumber(number, text);
    } else {
        AppendName(row->enum_name, text);
    }
}

// Works for BIT_STRING_t and OCTET_STRING_t.
template <typename String>
std::span<const uint8_t> GetOctets(const String& string) {
    return {string.buf, static_cast<size_t>(string.size)};
}

void AppendHex(std::span<const uint8_t> octets, std::string& text) {
    ((text += '"') += tools::ToHex(octets)) += '"';
}

void AppendBits(const asn_TYPE_descriptor_t& type, const BIT_STRING_t& bits, std::string& text) {
    if (HasWholeOctets(type)) {
        AppendHex(GetOctets(bits), text);
        return;
    }
    text += "{\"bits\":";
    AppendNumber(8L * bits.size - bits.bits_unused, text);
    text += ",\"hex\":";
    AppendHex(GetOctets(bits), text);
    text += '}';
}

void AppendText(const OCTET_STRING_t& string, std::string& text) {
    text += '"';
    for (const uint8_t octet : GetOctets(string)) {
        if (octet < ' ' || octet > '~') {
            (text += "\\u00") += tools::ToHex({&octet, 1});
        } else if (octet == '"' || octet == '\\') {
            (text += '\\') += static_cast<char>(octet);
        } else {
            text += static_cast<char>(octet);
        }
    }
    text += '"';
}

// Appends the member with its name and a comma, or nothing if the member is absent.
void AppendMember(const asn_TYPE_member_t& member, const void* value, std::string& text) {
    if (const void* const target = GetMember(member, value)) {
        AppendName(member.name, text);
        text += ':';
        AppendValue(*member.type, target, text);
        text += ',';
    }
}

// Replaces the comma after the last item, if there is one, by `end`.
void Close(char end, std::string& text) {
    if (text.back() == ',') {
        text.back() = end;
    } else {
        text += end;
    }
}

void AppendSequence(const asn_TYPE_descriptor_t& type, const void* value, std::string& text) {
    text += '{';
    for (int i = 0; i < type.elements_count; ++i) {
        AppendMember(type.elements[i], value, text);
    }
    Close('}', text);
}

void AppendChoice(const asn_TYPE_descriptor_t& type, const void* value, std::string& text) {
    const int present = GetPresent(type, value);
    text += '{';
    if (present > 0 && present <= type.elements_count) {
        AppendMember(type.elements[present - 1], value, text);
    }
    Close('}', text);
}

void AppendList(const asn_TYPE_descriptor_t& type, const asn_anonymous_sequence_& list, std::string& text) {
    text += '[';
    for (int i = 0; i < list.count; ++i) {
        AppendValue(*type.elements[0].type, list.array[i], text);
        text += ',';
    }
    Close(']', text);
}

void AppendValue(const asn_TYPE_descriptor_t& type, const void* value, std::string& text) {
    switch (GetKind(type)) {
    case TypeKind::integer:
        return AppendNumber(At<long>(value), text);
    case TypeKind::enumerated:
        return AppendEnumerated(type, At<long>(value), text);
    case TypeKind::bits:
        return AppendBits(type, At<BIT_STRING_t>(value), text);
    case TypeKind::octets:
        return AppendHex(GetOctets(At<OCTET_STRING_t>(value)), text);
    case TypeKind::text:
        return AppendText(At<OCTET_STRING_t>(value), text);
    case TypeKind::sequence:
        return AppendSequence(type, value, text);
    case TypeKind::choice:
        return AppendChoice(type, value, text);
    case TypeKind::list:
        return AppendList(type, At<asn_anonymous_sequence_>(value), text);
    }
}

} // namespace

void AppendJson(const MessageFrame_t& message, std::string& text) {
    AppendValue(asn_DEF_MessageFrame, &message, text);
}

} // namespace msg

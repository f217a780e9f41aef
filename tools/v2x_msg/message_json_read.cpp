// The conversion of JSON to messages.
#include <algorithm>
#include <bitset>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <new>
#include <span>

#include "BIT_STRING.h"
#include "INTEGER.h"
#include "common/hex.h"
#include "common/text.h"
#include "json_line.h"
#include "message_json.h"
#include "message_type.h"
#include "xer_names.h"

namespace msg {
namespace {

constexpr double EXACT_LIMIT = 0x1p53; // a double holds each smaller integer exactly

constexpr std::string_view CAPTURE_MEMBERS[] = {"packet", "time"}; // ignored

// A value and the way to it from the message.
struct Place {
    const Place* parent; // null for the message itself
    const asn_TYPE_member_t& member;
    int index; // in the list `parent`, from 0; not used in other types
};

const asn_TYPE_descriptor_t& GetType(const Place& place) {
    return *place.member.type;
}

std::string FormatPath(const Place& place) {
    const std::string path = place.parent == nullptr ? "" : FormatPath(*place.parent) + "/";
    const bool isItem = place.member.name[0] == '\0';
    return path + (isItem ? std::to_string(place.index) : place.member.name);
}

[[noreturn]] void Fail(const Place& place, const std::string& reason) {
    throw InvalidJson({Problem::UNKNOWN_OFFSET, FormatPath(place) + ": " + reason});
}

void Expect(bool condition, const Place& place, const char* what) {
    if (!condition) {
        Fail(place, std::string("expected ") + what);
    }
}

// Returns a name or text of the input for an error message.
std::string Quote(const char* text) {
    constexpr size_t MAX_SHOWN = 40;
    return '"' + tools::MakePlain(RestoreNul(std::string_view(text).substr(0, MAX_SHOWN), "\\u0000")) + '"';
}

// Fails because the type of the place has no member or value `name`. `what` is "unknown member" or "unknown name".
[[noreturn]] void FailUnknown(const Place& place, const char* what, const char* name) {
    const std::string nearest(FindNearestName(ListXerNames(GetType(place)), name));
    Fail(place, what + (" " + Quote(name)) + (nearest.empty() ? "" : ", did you mean \"" + nearest + "\"?"));
}

// Checks a value without members. `count` and `noun` describe the value: 128 and "is", 3 and "octets are".
void CheckConstraint(const Place& place, const void* value, long count, const char* noun) {
    const asn_TYPE_member_t& member = place.member;
    const auto check = member.memb_constraints != nullptr ? member.memb_constraints : member.type->check_constraints;
    if (check(member.type, value, nullptr, nullptr) != 0) {
        Fail(place, std::to_string(count) + " " + noun + " outside its constraint");
    }
}

void* Allocate(size_t size) {
    void* const value = std::calloc(1, size);
    if (value == nullptr) {
        throw std::bad_alloc();
    }
    return value;
}

// Allocates a zeroed value.
void* AllocateValue(const asn_TYPE_descriptor_t& type) {
    switch (GetKind(type)) {
    case TypeKind::integer:
    case TypeKind::enumerated:
        return Allocate(sizeof(long));
    case TypeKind::bits:
        return Allocate(sizeof(BIT_STRING_t));
    case TypeKind::octets:
    case TypeKind::text:
        return Allocate(sizeof(OCTET_STRING_t));
    case TypeKind::sequence:
        return Allocate(static_cast<size_t>(static_cast<const asn_SEQUENCE_specifics_t*>(type.specifics)->struct_size));
    case TypeKind::choice:
        return Allocate(static_cast<size_t>(static_cast<const asn_CHOICE_specifics_t*>(type.specifics)->struct_size));
    case TypeKind::list:
        return Allocate(static_cast<size_t>(static_cast<const asn_SET_OF_specifics_t*>(type.specifics)->struct_size));
    }
    return nullptr;
}

// Works for BIT_STRING_t and OCTET_STRING_t.
template <typename String, typename Byte>
void Store(std::span<const Byte> octets, String& string) {
    string.buf = static_cast<uint8_t*>(Allocate(octets.size() + 1));
    std::copy(octets.begin(), octets.end(), string.buf);
    string.size = static_cast<int>(octets.size());
}

// Reads the JSON of a place into `value`, which is zeroed and belongs to the message. Throws InvalidJson.
void ReadValue(const Place& place, const cJSON& json, void* value);

long ReadNumber(const Place& place, const cJSON& json) {
    Expect(cJSON_IsNumber(&json), place, "a number");
    const double number = json.valuedouble;
    if (std::trunc(number) != number || std::abs(number) >= EXACT_LIMIT) {
        Fail(place, tools::FormatText("%.16g is %s", number,
                                      std::abs(number) >= EXACT_LIMIT ? "too large" : "not an integer"));
    }
    return static_cast<long>(number);
}

void ReadInteger(const Place& place, const cJSON& json, long& value) {
    value = ReadNumber(place, json);
    CheckConstraint(place, &value, value, "is");
}

void ReadEnumerated(const Place& place, const cJSON& json, long& value) {
    Expect(cJSON_IsString(&json), place, "a name");
    const auto& specifics = *static_cast<const asn_INTEGER_specifics_t*>(GetType(place).specifics);
    const std::span rows(specifics.value2enum, static_cast<size_t>(specifics.map_count));
    const auto row = std::ranges::find_if(
        rows, [&](const asn_INTEGER_enum_map_t& each) { return std::strcmp(each.enum_name, json.valuestring) == 0; });
    if (row == rows.end()) {
        FailUnknown(place, "unknown name", json.valuestring);
    }
    value = row->nat_value;
}

std::vector<uint8_t> ReadHex(const Place& place, const cJSON* json) {
    Expect(cJSON_IsString(json), place, "a text of hexadecimal digits");
    std::vector<uint8_t> octets;
    const std::string error = tools::AppendHex(RestoreNul(json->valuestring, "\\u0000"), octets);
    if (!error.empty()) {
        Fail(place, error);
    }
    return octets;
}

void ReadOctets(const Place& place, const cJSON& json, OCTET_STRING_t& value) {
    Store(std::span<const uint8_t>(ReadHex(place, &json)), value);
    CheckConstraint(place, &value, value.size, "octets are");
}

// Returns the number of bits that the last octet does not use, from 0 to 7. These bits must be 0. `json` is the number
// of bits that are used.
int ReadUnusedBits(const Place& place, const cJSON* json, const std::vector<uint8_t>& octets) {
    Expect(cJSON_IsNumber(json), place, "the members bits and hex");
    const long bits = ReadNumber(place, *json);
    const long unused = 8 * static_cast<long>(octets.size()) - bits;
    if (bits < 0 || unused < 0 || unused > 7 || (unused != 0 && (octets.back() & ((1 << unused) - 1)) != 0)) {
        Fail(place, std::to_string(bits) + " bits do not match hex");
    }
    return static_cast<int>(unused);
}

void ReadBits(const Place& place, const cJSON& json, BIT_STRING_t& value) {
    if (HasWholeOctets(GetType(place))) {
        Store(std::span<const uint8_t>(ReadHex(place, &json)), value);
    } else {
        Expect(cJSON_IsObject(&json) && cJSON_GetArraySize(&json) == 2, place, "the members bits and hex");
        const std::vector<uint8_t> octets = ReadHex(place, tools::GetMember(&json, "hex"));
        value.bits_unused = ReadUnusedBits(place, tools::GetMember(&json, "bits"), octets);
        Store(std::span(octets), value);
    }
    CheckConstraint(place, &value, 8L * value.size - value.bits_unused, "bits are");
}

void ReadText(const Place& place, const cJSON& json, OCTET_STRING_t& value) {
    Expect(cJSON_IsString(&json), place, "a text");
    const std::string text = RestoreNul(json.valuestring, std::string_view("\0", 1));
    if (std::ranges::any_of(text, [](char character) { return static_cast<uint8_t>(character) > 0x7F; })) {
        Fail(place, "a character is not in ASCII");
    }
    Store(std::span<const char>(text), value);
    CheckConstraint(place, &value, value.size, "characters are");
}

// Reads a member of the sequence or choice at `value`.
void ReadMember(const Place& place, const asn_TYPE_member_t& member, const cJSON& json, void* value) {
    if ((member.flags & ATF_POINTER) != 0) {
        At<void*>(value, member.memb_offset) = AllocateValue(*member.type);
    }
    ReadValue({&place, member, 0}, json, const_cast<void*>(GetMember(member, value)));
}

// Returns the index of the member with the name of `json`. Searches from the index `first`: members mostly have the
// order of the type.
int FindMember(const Place& place, const cJSON& json, int first) {
    const int count = GetType(place).elements_count;
    for (int i = 0; i < count; ++i) {
        const int index = (first + i) % count;
        if (std::strcmp(GetType(place).elements[index].name, json.string) == 0) {
            return index;
        }
    }
    FailUnknown(place, "unknown member", json.string);
}

void ReadSequence(const Place& place, const cJSON& json, void* value) {
    Expect(cJSON_IsObject(&json), place, "an object");
    const std::span members(GetType(place).elements, static_cast<size_t>(GetType(place).elements_count));
    std::bitset<64> isRead; // its functions check the index
    int next = 0;
    for (const cJSON* item = json.child; item != nullptr; item = item->next) {
        const int index = FindMember(place, *item, next);
        const asn_TYPE_member_t& member = members[static_cast<size_t>(index)];
        if (isRead.test(static_cast<size_t>(index))) {
            Fail(place, "repeated member " + Quote(member.name));
        }
        isRead.set(static_cast<size_t>(index));
        ReadMember(place, member, *item, value);
        next = index + 1;
    }
    for (size_t index = 0; index < members.size(); ++index) {
        if (!isRead.test(index) && members[index].optional == 0) {
            Fail(place, "missing member " + Quote(members[index].name));
        }
    }
}

void ReadChoice(const Place& place, const cJSON& json, void* value) {
    Expect(cJSON_IsObject(&json), place, "an object");
    if (json.child == nullptr) {
        Fail(place, EMPTY_CHOICE);
    }
    Expect(json.child->next == nullptr, place, "an object with one member");
    const int index = FindMember(place, *json.child, 0);
    SetPresent(GetType(place), value, index + 1); // before the member, so that a failure frees the member
    ReadMember(place, GetType(place).elements[index], *json.child, value);
}

// Checks the number of items before the list grows.
void CheckCount(const Place& place, int count) {
    const asn_per_constraint_t* const size = GetSizeConstraint(GetType(place));
    if (size != nullptr && (count < size->lower_bound || count > size->upper_bound)) {
        Fail(place, std::to_string(count) + " items are outside its constraint");
    }
}

void ReadList(const Place& place, const cJSON& json, void* value) {
    Expect(cJSON_IsArray(&json), place, "an array");
    CheckCount(place, cJSON_GetArraySize(&json));
    const asn_TYPE_member_t& member = GetType(place).elements[0];
    int index = 0;
    for (const cJSON* item = json.child; item != nullptr; item = item->next) {
        void* const element = AllocateValue(*member.type);
        if (asn_sequence_add(value, element) != 0) {
            std::free(element);
            throw std::bad_alloc();
        }
        ReadValue({&place, member, index++}, *item, element);
    }
}

void ReadValue(const Place& place, const cJSON& json, void* value) {
    switch (GetKind(GetType(place))) {
    case TypeKind::integer:
        return ReadInteger(place, json, At<long>(value));
    case TypeKind::enumerated:
        return ReadEnumerated(place, json, At<long>(value));
    case TypeKind::bits:
        return ReadBits(place, json, At<BIT_STRING_t>(value));
    case TypeKind::octets:
        return ReadOctets(place, json, At<OCTET_STRING_t>(value));
    case TypeKind::text:
        return ReadText(place, json, At<OCTET_STRING_t>(value));
    case TypeKind::sequence:
        return ReadSequence(place, json, value);
    case TypeKind::choice:
        return ReadChoice(place, json, value);
    case TypeKind::list:
        return ReadList(place, json, value);
    }
}

// Returns the message in a line from a capture, or `json` itself.
const cJSON& FindMessage(const Place& place, const cJSON& json) {
    const cJSON* const message = tools::GetMember(&json, place.member.name);
    if (message == nullptr) {
        return json;
    }
    for (const cJSON* item = json.child; item != nullptr; item = item->next) {
        if (item != message &&
            std::ranges::find(CAPTURE_MEMBERS, std::string_view(item->string)) == std::end(CAPTURE_MEMBERS)) {
            throw InvalidJson({Problem::UNKNOWN_OFFSET, "unknown or repeated member " + Quote(item->string)});
        }
    }
    return *message;
}

} // namespace

Decoded DecodeJson(std::string_view line) {
    asn_TYPE_member_t member{};
    member.type = &asn_DEF_MessageFrame;
    member.name = asn_DEF_MessageFrame.name;
    Decoded decoded;
    decoded.message.reset(static_cast<MessageFrame_t*>(AllocateValue(*member.type)));
    try {
        const tools::Json json = ParseJsonLine(line);
        const Place place{nullptr, member, 0};
        ReadValue(place, FindMessage(place, *json), decoded.message.get());
    } catch (const InvalidJson& error) {
        decoded.message.reset();
        decoded.problems.push_back(error.Reason());
    }
    return decoded;
}

} // namespace msg

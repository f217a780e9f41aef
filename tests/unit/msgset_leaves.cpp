#include "msgset_leaves.h"

#include <cstdio>

#include "BIT_STRING.h"
#include "IA5String.h"
#include "NativeEnumerated.h"
#include "NativeInteger.h"
#include "asn_SEQUENCE_OF.h"
#include "constr_CHOICE.h"
#include "constr_SEQUENCE.h"
#include "constr_SEQUENCE_OF.h"

namespace {

// A type at its place: a type without a name of its own has its constraints with the member.
struct Slot {
    const asn_TYPE_descriptor_t* type;
    const asn_per_constraints_t* constraints;
    std::string name;

    explicit Slot(const asn_TYPE_descriptor_t& named)
        : type(&named), constraints(named.per_constraints), name(named.name) {}
    Slot(const Slot& parent, const asn_TYPE_member_t& member) : Slot(*member.type) {
        if (member.per_constraints != nullptr) {
            constraints = member.per_constraints;
            name = parent.name + "." + member.name;
        }
    }
};

enum class Kind { integer, enumerated, bits, octets, text, list, choice, sequence, unknown };

Kind kindOf(const asn_TYPE_descriptor_t& type) {
    static const struct {
        xer_type_encoder_f* encoder;
        Kind kind;
    } kinds[] = {
        {NativeInteger_encode_xer, Kind::integer},  {NativeEnumerated_encode_xer, Kind::enumerated},
        {BIT_STRING_encode_xer, Kind::bits},        {OCTET_STRING_encode_xer, Kind::octets},
        {OCTET_STRING_encode_xer_utf8, Kind::text}, {SEQUENCE_OF_encode_xer, Kind::list},
        {CHOICE_encode_xer, Kind::choice},          {SEQUENCE_encode_xer, Kind::sequence},
    };
    for (const auto& row : kinds) {
        if (row.encoder == type.xer_encoder) {
            return row.kind;
        }
    }
    return Kind::unknown;
}

template <typename T>
const T& at(const void* base, int offset) {
    return *reinterpret_cast<const T*>(static_cast<const char*>(base) + offset);
}

const void* memberOf(const void* value, const asn_TYPE_member_t& member) {
    return (member.flags & ATF_POINTER) != 0 ? at<const void*>(value, member.memb_offset)
                                             : &at<char>(value, member.memb_offset);
}

std::string octetsText(const OCTET_STRING_t& octets) {
    if (octets.size > 512) {
        const std::string all(reinterpret_cast<const char*>(octets.buf), static_cast<size_t>(octets.size));
        return std::to_string(octets.size) + " octets " + hexDigits(crc32(all), 8);
    }
    std::string text = "'";
    for (int i = 0; i < octets.size; ++i) {
        text += hexDigits(octets.buf[i], 2);
    }
    return text + "'H";
}

std::string ia5Text(const OCTET_STRING_t& octets) {
    std::string text = "\"";
    for (int i = 0; i < octets.size; ++i) {
        const uint8_t c = octets.buf[i];
        text +=
            c < 32 || c > 126 || c == '\\' || c == '"' ? "\\" + hexDigits(c, 2) : std::string(1, static_cast<char>(c));
    }
    return text + "\"";
}

int bitCount(const BIT_STRING_t& bits) {
    return bits.size * 8 - bits.bits_unused;
}

std::string bitsText(const BIT_STRING_t& bits) {
    std::string text = "'";
    for (int i = 0; i < bitCount(bits); ++i) {
        text += (bits.buf[i / 8] >> (7 - i % 8) & 1) != 0 ? '1' : '0';
    }
    return text + "'B";
}

std::string enumeratedText(const asn_TYPE_descriptor_t& type, long value) {
    const asn_INTEGER_enum_map_t* row =
        INTEGER_map_value2enum(static_cast<asn_INTEGER_specifics_t*>(type.specifics), value);
    return std::string(row == nullptr ? "?" : row->enum_name) + " (" + std::to_string(value) + ")";
}

class Reader {
public:
    void read(const Slot& slot, const void* value, const std::string& path) {
        out.marks.insert(slot.name);
        switch (kindOf(*slot.type)) {
        case Kind::integer:
            leaf(slot, path, " = ", std::to_string(at<long>(value, 0)));
            break;
        case Kind::enumerated:
            leaf(slot, path, " = ", enumeratedText(*slot.type, at<long>(value, 0)));
            break;
        case Kind::bits:
            size(slot, bitCount(at<BIT_STRING_t>(value, 0)));
            leaf(slot, path, " = ", bitsText(at<BIT_STRING_t>(value, 0)));
            break;
        case Kind::octets:
        case Kind::text: {
            const auto& octets = at<OCTET_STRING_t>(value, 0);
            size(slot, octets.size);
            leaf(slot, path, " = ", kindOf(*slot.type) == Kind::text ? ia5Text(octets) : octetsText(octets));
            break;
        }
        case Kind::list:
            list(slot, at<asn_anonymous_sequence_>(value, 0), path);
            break;
        case Kind::choice:
            choice(slot, value, path);
            break;
        case Kind::sequence:
            sequence(slot, value, path);
            break;
        case Kind::unknown:
            out.leaves.push_back(path + " of an unknown kind, " + slot.name);
            break;
        }
    }

    MsgsetReading out;

private:
    void leaf(const Slot& slot, const std::string& path, const char* sign, const std::string& value) {
        out.leaves.push_back((path.empty() ? slot.name : path) + sign + value);
        out.marks.insert(slot.name + " = " + value);
    }
    void size(const Slot& slot, int count) {
        out.marks.insert(slot.name + " of " + std::to_string(count));
        if (slot.constraints != nullptr && count > slot.constraints->size.upper_bound) {
            out.marks.insert(slot.name + " of more");
        }
    }
    void list(const Slot& slot, const asn_anonymous_sequence_& items, const std::string& path) {
        size(slot, items.count);
        out.leaves.push_back(path + "[] = " + std::to_string(items.count));
        for (int i = 0; i < items.count; ++i) {
            read(Slot(slot, slot.type->elements[0]), items.array[i], path + "[" + std::to_string(i) + "]");
        }
    }
    void choice(const Slot& slot, const void* value, const std::string& path) {
        const auto& specifics = *static_cast<asn_CHOICE_specifics_t*>(slot.type->specifics);
        const int present = at<int>(value, specifics.pres_offset);
        if (present < 1 || present > slot.type->elements_count) {
            leaf(slot, path, " = ", "none");
            return;
        }
        member(slot, slot.type->elements[present - 1], value, path);
    }
    void sequence(const Slot& slot, const void* value, const std::string& path) {
        for (int i = 0; i < slot.type->elements_count; ++i) {
            member(slot, slot.type->elements[i], value, path);
        }
    }
    void member(const Slot& slot, const asn_TYPE_member_t& member, const void* value, const std::string& path) {
        const std::string below = path.empty() ? member.name : path + "." + member.name;
        const void* inner = memberOf(value, member);
        out.marks.insert(slot.name + "." + member.name + (inner == nullptr ? " absent" : " present"));
        if (inner == nullptr) {
            out.leaves.push_back(below + " = absent");
            return;
        }
        read(Slot(slot, member), inner, below);
    }
};

void mark(std::set<std::string>& marks, const Slot& slot) {
    if (!marks.insert(slot.name).second) {
        return;
    }
    const asn_TYPE_descriptor_t& type = *slot.type;
    const Kind kind = kindOf(type);
    if (kind == Kind::integer) {
        marks.insert(slot.name + " = " + std::to_string(slot.constraints->value.lower_bound));
        marks.insert(slot.name + " = " + std::to_string(slot.constraints->value.upper_bound));
    } else if (kind == Kind::enumerated) {
        const auto& specifics = *static_cast<asn_INTEGER_specifics_t*>(type.specifics);
        for (int i = 0; i < specifics.map_count; ++i) {
            marks.insert(slot.name + " = " + enumeratedText(type, specifics.value2enum[i].nat_value));
        }
    } else if (kind != Kind::choice && kind != Kind::sequence && slot.constraints != nullptr) {
        const asn_per_constraint_t& size = slot.constraints->size;
        marks.insert(slot.name + " of " + std::to_string(size.lower_bound));
        marks.insert(
            slot.name + " of " +
            ((size.flags & asn_per_constraint_t::APC_EXTENSIBLE) != 0 ? "more" : std::to_string(size.upper_bound)));
    }
    for (int i = 0; i < type.elements_count; ++i) {
        const asn_TYPE_member_t& member = type.elements[i];
        if (kind != Kind::list) {
            marks.insert(slot.name + "." + member.name + " present");
        }
        if (kind == Kind::sequence && (member.flags & ATF_POINTER) != 0) {
            marks.insert(slot.name + "." + member.name + " absent");
        }
        mark(marks, Slot(slot, member));
    }
}

} // namespace

MsgsetReading readMsgset(const asn_TYPE_descriptor_t& type, const void* value) {
    Reader reader;
    reader.read(Slot(type), value, "");
    return reader.out;
}

std::set<std::string> msgsetMarks(const asn_TYPE_descriptor_t& type) {
    std::set<std::string> marks;
    mark(marks, Slot(type));
    return marks;
}

std::string hexDigits(uint32_t number, int count) {
    char text[9];
    snprintf(text, sizeof(text), "%0*X", count, number);
    return text;
}

uint32_t crc32(const std::string& text) {
    uint32_t crc = ~0U;
    for (const char c : text) {
        crc ^= static_cast<uint8_t>(c);
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 1) != 0 ? crc >> 1 ^ 0xEDB88320U : crc >> 1;
        }
    }
    return ~crc;
}

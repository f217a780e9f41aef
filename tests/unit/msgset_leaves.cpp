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

// A part that is still to be read; without a value it is an optional one that is out.
struct Part {
    Slot slot;
    const void* value;
    std::string path;
};

class Reader {
public:
    explicit Reader(Part whole) : m_todo{std::move(whole)} {
        while (!m_todo.empty()) {
            const Part part = m_todo.back();
            m_todo.pop_back();
            if (part.value == nullptr) {
                out.leaves.push_back(part.path + " = absent");
                continue;
            }
            out.marks.insert(part.slot.name);
            read(part);
            m_todo.insert(m_todo.end(), m_below.rbegin(), m_below.rend());
            m_below.clear();
        }
    }

    MsgsetReading out;

private:
    void read(const Part& part) {
        const asn_TYPE_descriptor_t& type = *part.slot.type;
        switch (kindOf(type)) {
        case Kind::integer:
            leaf(part, std::to_string(at<long>(part.value, 0)));
            break;
        case Kind::enumerated:
            leaf(part, enumeratedText(type, at<long>(part.value, 0)));
            break;
        case Kind::bits:
            size(part.slot, bitCount(at<BIT_STRING_t>(part.value, 0)));
            leaf(part, bitsText(at<BIT_STRING_t>(part.value, 0)));
            break;
        case Kind::octets:
            size(part.slot, at<OCTET_STRING_t>(part.value, 0).size);
            leaf(part, octetsText(at<OCTET_STRING_t>(part.value, 0)));
            break;
        case Kind::text:
            size(part.slot, at<OCTET_STRING_t>(part.value, 0).size);
            leaf(part, ia5Text(at<OCTET_STRING_t>(part.value, 0)));
            break;
        case Kind::list:
            list(part, at<asn_anonymous_sequence_>(part.value, 0));
            break;
        case Kind::choice:
            choice(part, *static_cast<asn_CHOICE_specifics_t*>(type.specifics));
            break;
        case Kind::sequence:
            for (int i = 0; i < type.elements_count; ++i) {
                member(part, type.elements[i]);
            }
            break;
        case Kind::unknown:
            out.leaves.push_back(part.path + " of an unknown kind, " + part.slot.name);
            break;
        }
    }
    void leaf(const Part& part, const std::string& value) {
        out.leaves.push_back((part.path.empty() ? part.slot.name : part.path) + " = " + value);
        out.marks.insert(part.slot.name + " = " + value);
    }
    void size(const Slot& slot, int count) {
        out.marks.insert(slot.name + " of " + std::to_string(count));
        if (slot.constraints != nullptr && count > slot.constraints->size.upper_bound) {
            out.marks.insert(slot.name + " of more");
        }
    }
    void list(const Part& part, const asn_anonymous_sequence_& items) {
        size(part.slot, items.count);
        out.leaves.push_back(part.path + "[] = " + std::to_string(items.count));
        for (int i = 0; i < items.count; ++i) {
            m_below.push_back({Slot(part.slot, part.slot.type->elements[0]), items.array[i],
                               part.path + "[" + std::to_string(i) + "]"});
        }
    }
    void choice(const Part& part, const asn_CHOICE_specifics_s& specifics) {
        const int present = at<int>(part.value, specifics.pres_offset);
        if (present < 1 || present > part.slot.type->elements_count) {
            leaf(part, "none");
        } else {
            member(part, part.slot.type->elements[present - 1]);
        }
    }
    void member(const Part& part, const asn_TYPE_member_t& member) {
        const void* value = memberOf(part.value, member);
        out.marks.insert(part.slot.name + "." + member.name + (value == nullptr ? " absent" : " present"));
        m_below.push_back(
            {Slot(part.slot, member), value, part.path.empty() ? member.name : part.path + "." + member.name});
    }

    std::vector<Part> m_todo;  // the next last
    std::vector<Part> m_below; // of the part that is read, in order
};

// The marks of the slot itself.
std::vector<std::string> ownMarks(const Slot& slot) {
    const asn_TYPE_descriptor_t& type = *slot.type;
    std::vector<std::string> marks{slot.name};
    const Kind kind = kindOf(type);
    if (kind == Kind::integer) {
        marks.push_back(slot.name + " = " + std::to_string(slot.constraints->value.lower_bound));
        marks.push_back(slot.name + " = " + std::to_string(slot.constraints->value.upper_bound));
    } else if (kind == Kind::enumerated) {
        const auto& specifics = *static_cast<asn_INTEGER_specifics_t*>(type.specifics);
        for (int i = 0; i < specifics.map_count; ++i) {
            marks.push_back(slot.name + " = " + enumeratedText(type, specifics.value2enum[i].nat_value));
        }
    } else if (kind == Kind::choice || kind == Kind::sequence) {
        for (int i = 0; i < type.elements_count; ++i) {
            marks.push_back(slot.name + "." + type.elements[i].name + " present");
            if (kind == Kind::sequence && (type.elements[i].flags & ATF_POINTER) != 0) {
                marks.push_back(slot.name + "." + type.elements[i].name + " absent");
            }
        }
    } else if (slot.constraints != nullptr) {
        const asn_per_constraint_t& size = slot.constraints->size;
        const bool open = (size.flags & asn_per_constraint_t::APC_EXTENSIBLE) != 0;
        marks.push_back(slot.name + " of " + std::to_string(size.lower_bound));
        marks.push_back(slot.name + " of " + (open ? "more" : std::to_string(size.upper_bound)));
    }
    return marks;
}

} // namespace

MsgsetReading readMsgset(const asn_TYPE_descriptor_t& type, const void* value) {
    return Reader({Slot(type), value, ""}).out;
}

std::set<std::string> msgsetMarks(const asn_TYPE_descriptor_t& type) {
    std::set<std::string> marks;
    std::vector<Slot> todo{Slot(type)};
    while (!todo.empty()) {
        const Slot slot = todo.back();
        todo.pop_back();
        if (marks.contains(slot.name)) {
            continue;
        }
        const std::vector<std::string> own = ownMarks(slot);
        marks.insert(own.begin(), own.end());
        for (int i = 0; i < slot.type->elements_count; ++i) {
            todo.emplace_back(slot, slot.type->elements[i]);
        }
    }
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

#include "xer_names.h"

#include <algorithm>
#include <cctype>
#include <numeric>

#include "INTEGER.h"
#include "NativeEnumerated.h"
#include "constr_SEQUENCE.h"

namespace msg {
namespace {

constexpr size_t MAX_NAME = 64; // longer names are similar to none

bool IsSameLetter(char a, char b) {
    return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
}

// Returns the number of characters to insert, delete or replace to turn `a` into `b`. Ignores case.
size_t CountEdits(std::string_view a, std::string_view b) {
    std::vector<size_t> row(b.size() + 1); // row[j]: edits from the first characters of `a` to the first j of `b`
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 0; i < a.size(); ++i) {
        size_t diagonal = row[0]++;
        for (size_t j = 0; j < b.size(); ++j) {
            const size_t replaced = diagonal + (IsSameLetter(a[i], b[j]) ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, diagonal + 1, row[j] + 1});
        }
    }
    return row.back();
}

} // namespace

std::vector<XerName> ListXerNames(const asn_TYPE_descriptor_t& type) {
    std::vector<XerName> names;
    if (type.xer_encoder == NativeEnumerated_encode_xer) {
        const auto& values = *static_cast<const asn_INTEGER_specifics_t*>(type.specifics);
        for (int i = 0; i < values.map_count; ++i) {
            names.push_back({values.value2enum[i].enum_name, nullptr, true});
        }
        return names;
    }
    for (int i = 0; i < type.elements_count; ++i) {
        const asn_TYPE_member_t& member = type.elements[i];
        const bool isOptional = member.optional != 0 || type.xer_encoder != SEQUENCE_encode_xer;
        names.push_back({*member.name != '\0' ? member.name : member.type->xml_tag, member.type, isOptional});
    }
    return names;
}

std::string_view FindNearestName(std::span<const XerName> names, std::string_view name) {
    std::string_view nearest;
    size_t fewest = 2 + name.size() / 4;
    for (const XerName& candidate : names) {
        const size_t edits = name.size() > MAX_NAME ? fewest : CountEdits(name, candidate.name);
        if (edits < fewest) {
            fewest = edits;
            nearest = candidate.name;
        }
    }
    return nearest;
}

} // namespace msg

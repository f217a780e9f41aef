#include "message_type.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <string>

#include "BIT_STRING.h"
#include "NativeEnumerated.h"
#include "NativeInteger.h"
#include "constr_SEQUENCE.h"

namespace msg {
namespace {

struct KindRow {
    xer_type_encoder_f* encoder; // each kind has its own encoder of XER
    TypeKind kind;
};

constexpr KindRow KINDS[] = {
    {NativeInteger_encode_xer, TypeKind::integer},
    {SEQUENCE_encode_xer, TypeKind::sequence},
    {NativeEnumerated_encode_xer, TypeKind::enumerated},
    {CHOICE_encode_xer, TypeKind::choice},
    {SEQUENCE_OF_encode_xer, TypeKind::list},
    {BIT_STRING_encode_xer, TypeKind::bits},
    {OCTET_STRING_encode_xer, TypeKind::octets},
    {OCTET_STRING_encode_xer_utf8, TypeKind::text},
};

} // namespace

TypeKind GetKind(const asn_TYPE_descriptor_t& type) {
    const KindRow* const row = std::ranges::find(KINDS, type.xer_encoder, &KindRow::encoder);
    if (row == std::end(KINDS)) {
        throw std::logic_error(std::string(type.name) + ": unknown kind of type");
    }
    return row->kind;
}

const asn_per_constraint_t* GetSizeConstraint(const asn_TYPE_descriptor_t& type) {
    const asn_per_constraints_t* const constraints = type.per_constraints;
    const bool isFixed = constraints != nullptr && constraints->size.flags == asn_per_constraint_s::APC_CONSTRAINED;
    return isFixed ? &constraints->size : nullptr;
}

bool HasWholeOctets(const asn_TYPE_descriptor_t& bitString) {
    const asn_per_constraint_t* const size = GetSizeConstraint(bitString);
    return size != nullptr && size->lower_bound == size->upper_bound && size->upper_bound % 8 == 0;
}

} // namespace msg

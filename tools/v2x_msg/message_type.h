// Reads the descriptors of the message set's types.
#pragma once

#include <cstddef>
#include <cstring>

#include "constr_CHOICE.h"
#include "constr_SEQUENCE_OF.h"
#include "v2x/v2xmsgset.h"

namespace msg {

enum class TypeKind {
    integer,    // long
    enumerated, // long
    bits,       // BIT_STRING_t
    octets,     // OCTET_STRING_t
    text,       // OCTET_STRING_t with characters
    sequence,   // struct
    choice,     // struct with the number of the present alternative
    list,       // SEQUENCE OF: asn_anonymous_sequence_
};

// Throws std::logic_error for a type that the message set does not use.
TypeKind GetKind(const asn_TYPE_descriptor_t& type);

// Returns the bounds of the size of a string or list, or null if a newer edition can have another size.
const asn_per_constraint_t* GetSizeConstraint(const asn_TYPE_descriptor_t& type);

// Returns true if the bit string has a constant number of whole octets.
bool HasWholeOctets(const asn_TYPE_descriptor_t& bitString);

// Returns a reference into a value, `offset` bytes behind its start.
template <typename T>
T& At(void* value, int offset = 0) {
    return *reinterpret_cast<T*>(static_cast<char*>(value) + offset);
}
template <typename T>
const T& At(const void* value, int offset = 0) {
    return *reinterpret_cast<const T*>(static_cast<const char*>(value) + offset);
}

// Returns the number of the present alternative, from 1, or 0 for an empty choice. `choice` is the type of `value`.
inline int GetPresent(const asn_TYPE_descriptor_t& choice, const void* value) {
    return At<int>(value, static_cast<const asn_CHOICE_specifics_t*>(choice.specifics)->pres_offset);
}
inline void SetPresent(const asn_TYPE_descriptor_t& choice, void* value, int present) {
    At<int>(value, static_cast<const asn_CHOICE_specifics_t*>(choice.specifics)->pres_offset) = present;
}

// Returns the member of a sequence or choice, or null if it is absent. `value` is the sequence or choice.
inline const void* GetMember(const asn_TYPE_member_t& member, const void* value) {
    const bool isPointer = (member.flags & ATF_POINTER) != 0;
    return isPointer ? At<const void*>(value, member.memb_offset) : &At<char>(value, member.memb_offset);
}

} // namespace msg

// The element names that a type of the message set knows in XER.
#pragma once

#include <span>
#include <string_view>
#include <vector>

#include "v2x/v2xmsgset.h"

namespace msg {

struct XerName {
    std::string_view name;
    const asn_TYPE_descriptor_t* type; // of the element; null for a value of an ENUMERATED
    bool isOptional;
};

// Returns the child elements of the type, in their order. The child elements of an ENUMERATED are its values.
std::vector<XerName> ListXerNames(const asn_TYPE_descriptor_t& type);

// Returns the name that is most similar to `name`, or an empty string if none is similar.
std::string_view FindNearestName(std::span<const XerName> names, std::string_view name);

} // namespace msg

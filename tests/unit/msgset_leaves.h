// What a value of the message set holds, read through the types' descriptors.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "v2x/v2xmsgset.h"

struct MsgsetReading {
    std::vector<std::string> leaves; // "path = value", as tests/data/uper/README.md says
    std::set<std::string> marks;     // which types, ends of ranges, enumerated values, alternatives and the like it has
};

MsgsetReading readMsgset(const asn_TYPE_descriptor_t& type, const void* value);

// Every mark that values of the type can have.
std::set<std::string> msgsetMarks(const asn_TYPE_descriptor_t& type);

// `number` as `count` hexadecimal digits, at most 8.
std::string hexDigits(uint32_t number, int count);

// CRC-32 as of IEEE 802.3.
uint32_t crc32(const std::string& text);

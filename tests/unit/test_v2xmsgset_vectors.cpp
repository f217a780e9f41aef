// Compares the message set's codec with frames and values from an independent encoder and decoder.
#include <algorithm>
#include <cstdio>
#include <gtest/gtest.h>
#include <memory>
#include <set>

#include "BIT_STRING.h"
#include "NativeEnumerated.h"
#include "NativeInteger.h"
#include "constr_CHOICE.h"
#include "constr_SEQUENCE.h"
#include "constr_SEQUENCE_OF.h"
#include "uper_frames.h"
#include "v2x/v2xmsgset.h"

namespace {

std::string hexDigits(uint32_t number, int count) {
    char text[9];
    snprintf(text, sizeof(text), "%0*X", count, number);
    return text;
}

// CRC-32 of IEEE 802.3.
std::string crc32(const std::string& text) {
    uint32_t crc = ~0U;
    for (const char c : text) {
        crc ^= static_cast<uint8_t>(c);
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 1) != 0 ? crc >> 1 ^ 0xEDB88320U : crc >> 1;
        }
    }
    return hexDigits(~crc, 8);
}

// ---- the leaves of a message, found through the descriptors of its types

using Leaves = std::vector<std::string>;

template <typename T>
const T& at(const void* base, int offset = 0) {
    return *reinterpret_cast<const T*>(static_cast<const char*>(base) + offset);
}

std::string octetsText(const OCTET_STRING_t& octets, bool isText) {
    const std::string all(reinterpret_cast<const char*>(octets.buf), static_cast<size_t>(octets.size));
    if (!isText && octets.size > 512) {
        return std::to_string(octets.size) + " octets " + crc32(all);
    }
    std::string text;
    for (const char c : all) {
        const bool isPlain = c >= 32 && c <= 126 && c != '\\' && c != '"';
        text += isText && isPlain ? std::string(1, c) : (isText ? "\\" : "") + hexDigits(static_cast<uint8_t>(c), 2);
    }
    return isText ? "\"" + text + "\"" : "'" + text + "'H";
}

std::string bitsText(const BIT_STRING_t& bits) {
    std::string text = "'";
    for (int i = 0; i < bits.size * 8 - bits.bits_unused; ++i) {
        text += (bits.buf[i / 8] >> (7 - i % 8) & 1) != 0 ? '1' : '0';
    }
    return text + "'B";
}

std::string leafText(const asn_TYPE_descriptor_t& type, const void* value) {
    if (type.xer_encoder == NativeInteger_encode_xer) {
        return std::to_string(at<long>(value));
    }
    if (type.xer_encoder == NativeEnumerated_encode_xer) {
        const long number = at<long>(value);
        const auto* row = INTEGER_map_value2enum(static_cast<asn_INTEGER_specifics_t*>(type.specifics), number);
        return std::string(row == nullptr ? "?" : row->enum_name) + " (" + std::to_string(number) + ")";
    }
    if (type.xer_encoder == BIT_STRING_encode_xer) {
        return bitsText(at<BIT_STRING_t>(value));
    }
    return octetsText(at<OCTET_STRING_t>(value), type.xer_encoder == OCTET_STRING_encode_xer_utf8);
}

// Appends the leaves of a value; null means an absent optional member.
void appendLeaves(const asn_TYPE_descriptor_t& type, const void* value, const std::string& path, Leaves& leaves) {
    const auto appendMember = [&](int index) {
        const asn_TYPE_member_t& member = type.elements[index];
        const bool isPointer = (member.flags & ATF_POINTER) != 0;
        appendLeaves(*member.type,
                     isPointer ? at<const void*>(value, member.memb_offset) : &at<char>(value, member.memb_offset),
                     path.empty() ? member.name : path + "." + member.name, leaves);
    };
    if (value == nullptr) {
        leaves.push_back(path + " = absent");
    } else if (type.xer_encoder == SEQUENCE_OF_encode_xer) {
        const auto& items = at<asn_anonymous_sequence_>(value);
        leaves.push_back(path + "[] = " + std::to_string(items.count));
        for (int i = 0; i < items.count; ++i) {
            appendLeaves(*type.elements[0].type, items.array[i], path + "[" + std::to_string(i) + "]", leaves);
        }
    } else if (type.xer_encoder == SEQUENCE_encode_xer) {
        for (int i = 0; i < type.elements_count; ++i) {
            appendMember(i);
        }
    } else if (type.xer_encoder == CHOICE_encode_xer) {
        const int present = at<int>(value, static_cast<asn_CHOICE_specifics_t*>(type.specifics)->pres_offset);
        if (present >= 1 && present <= type.elements_count) {
            appendMember(present - 1);
        } else {
            leaves.push_back((path.empty() ? type.name : path) + " = none");
        }
    } else {
        leaves.push_back(path + " = " + leafText(type, value));
    }
}

// Returns the leaves after comparing them with those of the independent decoder.
Leaves checkedLeaves(const UperFrame& frame, const MessageFrame_t& message) {
    Leaves leaves;
    appendLeaves(asn_DEF_MessageFrame, &message, "", leaves);
    const std::set<std::string> all(leaves.begin(), leaves.end());
    for (const std::string& leaf : frame.leaves) {
        EXPECT_TRUE(all.contains(leaf)) << leaf;
    }
    std::string text;
    for (const std::string& leaf : leaves) {
        text += leaf + "\n";
    }
    EXPECT_EQ(leaves.size(), frame.leafCount);
    EXPECT_EQ(crc32(text), frame.leafCrc) << text;
    return leaves;
}

// ---- decoding and encoding

struct Release {
    void operator()(MessageFrame_t* frame) const { ASN_STRUCT_FREE(asn_DEF_MessageFrame, frame); }
};
using Message = std::unique_ptr<MessageFrame_t, Release>;

Message decode(const Bytes& bytes) {
    void* decoded = nullptr;
    const asn_dec_rval_t result =
        asn_decode(nullptr, ATS_UNALIGNED_CANONICAL_PER, &asn_DEF_MessageFrame, &decoded, bytes.data(), bytes.size());
    Message message(static_cast<MessageFrame_t*>(decoded));
    EXPECT_EQ(result.code, RC_OK);
    EXPECT_EQ(result.consumed, bytes.size());
    return result.code == RC_OK ? std::move(message) : nullptr;
}

// Returns no bytes when the message cannot be encoded.
Bytes encode(const Message& message) {
    Bytes bytes(1 << 18);
    const ssize_t size = asn_encode_to_buffer(nullptr, ATS_UNALIGNED_CANONICAL_PER, &asn_DEF_MessageFrame,
                                              message.get(), bytes.data(), bytes.size())
                             .encoded;
    bytes.resize(static_cast<size_t>(std::max<ssize_t>(size, 0)));
    return bytes;
}

using Parts = std::vector<asn_unknown_t>;

// Decodes a frame. Appends the unknown parts to `parts`, or refuses the first if `parts` is null.
asn_dec_rval_code_e decode(const Bytes& bytes, Parts* parts) {
    asn_codec_ctx_t context{};
    context.unknown_key = parts;
    context.unknown = [](const asn_unknown_t* part, void* key) {
        if (key != nullptr) {
            static_cast<Parts*>(key)->push_back(*part);
        }
        return key == nullptr ? 1 : 0;
    };
    void* decoded = nullptr;
    const auto result =
        asn_decode(&context, ATS_UNALIGNED_CANONICAL_PER, &asn_DEF_MessageFrame, &decoded, bytes.data(), bytes.size());
    const Message message(static_cast<MessageFrame_t*>(decoded));
    return result.code;
}

// Compares the unknown parts of a frame TYPE_newN with the frame's name.
void checkParts(const std::string& name, const Parts& parts) {
    const size_t split = name.find("_new");
    for (const asn_unknown_t& part : split == std::string::npos ? Parts() : parts) {
        EXPECT_EQ(part.type->name, name.substr(0, split));
        const size_t number = part.kind == ASN_UNKNOWN_VALUE ? static_cast<size_t>(part.value) - 8 : part.size;
        EXPECT_TRUE(number == std::stoul(name.substr(split + 4)) || name.find("_and_") != std::string::npos) << number;
    }
}

class MsgsetVectors : public testing::TestWithParam<std::string> {};

// Elements that a newer edition added are ignored: additions are skipped, an unknown alternative leaves its choice
// empty, and an unknown enumerated value becomes the first of its type. A message with an empty choice cannot be
// encoded.
TEST_P(MsgsetVectors, DecodeAndEncodeLikeIndependentCodec) {
    const bool isNewer = GetParam() == "newer";
    const std::vector<UperFrame> frames = uperFrames(V2X_TEST_DATA "/uper/" + GetParam() + ".txt");
    EXPECT_FALSE(frames.empty());
    for (const UperFrame& frame : frames) {
        SCOPED_TRACE(frame.name);
        const Message message = decode(frame.bytes);
        ASSERT_NE(message, nullptr);
        const Leaves leaves = checkedLeaves(frame, *message);
        const bool isValid = asn_check_constraints(&asn_DEF_MessageFrame, message.get(), nullptr, nullptr) == 0;
        EXPECT_TRUE(isValid || isNewer);
        const Bytes made = encode(message);
        Parts parts;
        EXPECT_EQ(decode(frame.bytes, &parts), RC_OK);
        EXPECT_EQ(decode(frame.bytes, nullptr), parts.empty() ? RC_OK : RC_FAIL);
        EXPECT_EQ(parts.empty(), made == frame.bytes);
        checkParts(frame.name, parts);
        if (!isNewer) {
            EXPECT_TRUE(made == frame.bytes);
        } else if (std::ranges::any_of(leaves, [](const std::string& leaf) { return leaf.ends_with(" = none"); })) {
            EXPECT_TRUE(made.empty());
        } else if (const Message again = decode(made)) {
            checkedLeaves(frame, *again);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Files, MsgsetVectors,
                         testing::Values("captured", "bsm", "map", "rsm", "spat", "rsi", "msgFrameExt", "newer"),
                         [](const auto& file) { return file.param; });

} // namespace

// The message set's codec against frames that an independent encoder made and read.
#include <algorithm>
#include <cstdio>
#include <gtest/gtest.h>
#include <memory>
#include <set>

#include "BIT_STRING.h"
#include "IA5String.h"
#include "NativeEnumerated.h"
#include "NativeInteger.h"
#include "asn_SEQUENCE_OF.h"
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

// As of IEEE 802.3.
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

// ---- the leaves of a message, through the descriptors of its types

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

std::string enumeratedText(const asn_TYPE_descriptor_t& type, long value) {
    const auto* row = INTEGER_map_value2enum(static_cast<asn_INTEGER_specifics_t*>(type.specifics), value);
    return std::string(row == nullptr ? "?" : row->enum_name) + " (" + std::to_string(value) + ")";
}

std::string leafText(const asn_TYPE_descriptor_t& type, const void* value) {
    if (type.xer_encoder == NativeInteger_encode_xer) {
        return std::to_string(at<long>(value));
    }
    if (type.xer_encoder == NativeEnumerated_encode_xer) {
        return enumeratedText(type, at<long>(value));
    }
    if (type.xer_encoder == BIT_STRING_encode_xer) {
        return bitsText(at<BIT_STRING_t>(value));
    }
    return octetsText(at<OCTET_STRING_t>(value), type.xer_encoder == OCTET_STRING_encode_xer_utf8);
}

// A part of a message; without a value it is an optional one that is out.
struct Part {
    const asn_TYPE_descriptor_t* type;
    const void* value;
    std::string path;

    Part member(int index) const {
        const asn_TYPE_member_t& member = type->elements[index];
        const bool isPointer = (member.flags & ATF_POINTER) != 0;
        return {member.type,
                isPointer ? at<const void*>(value, member.memb_offset) : &at<char>(value, member.memb_offset),
                path.empty() ? member.name : path + "." + member.name};
    }
};

// Adds the part's own leaf, if it has one, and returns the parts below it.
std::vector<Part> read(const Part& part, Leaves& leaves) {
    const asn_TYPE_descriptor_t& type = *part.type;
    std::vector<Part> below;
    if (part.value == nullptr) {
        leaves.push_back(part.path + " = absent");
    } else if (type.xer_encoder == SEQUENCE_OF_encode_xer) {
        const auto& items = at<asn_anonymous_sequence_>(part.value);
        leaves.push_back(part.path + "[] = " + std::to_string(items.count));
        for (int i = 0; i < items.count; ++i) {
            below.push_back({type.elements[0].type, items.array[i], part.path + "[" + std::to_string(i) + "]"});
        }
    } else if (type.xer_encoder == SEQUENCE_encode_xer) {
        for (int i = 0; i < type.elements_count; ++i) {
            below.push_back(part.member(i));
        }
    } else if (type.xer_encoder == CHOICE_encode_xer) {
        const int present = at<int>(part.value, static_cast<asn_CHOICE_specifics_t*>(type.specifics)->pres_offset);
        if (present >= 1 && present <= type.elements_count) {
            below.push_back(part.member(present - 1));
        } else {
            leaves.push_back((part.path.empty() ? type.name : part.path) + " = none");
        }
    } else {
        leaves.push_back(part.path + " = " + leafText(type, part.value));
    }
    return below;
}

Leaves leavesOf(const MessageFrame_t& message) {
    Leaves leaves;
    std::vector<Part> todo{{&asn_DEF_MessageFrame, &message, ""}}; // the next last
    while (!todo.empty()) {
        const Part part = todo.back();
        todo.pop_back();
        const std::vector<Part> below = read(part, leaves);
        todo.insert(todo.end(), below.rbegin(), below.rend());
    }
    return leaves;
}

// ---- against those of the file

std::string joined(const Leaves& leaves) {
    std::string all;
    for (const std::string& leaf : leaves) {
        all += leaf + "\n";
    }
    return all;
}

void expectLeaves(const UperFrame& frame, const Leaves& leaves) {
    const std::set<std::string> all(leaves.begin(), leaves.end());
    for (const std::string& leaf : frame.leaves) {
        EXPECT_TRUE(all.contains(leaf)) << leaf;
    }
    EXPECT_EQ(leaves.size(), frame.leafCount);
    EXPECT_EQ(crc32(joined(leaves)), frame.leafCrc) << joined(leaves);
}

// ---- both ways

struct Release {
    void operator()(MessageFrame_t* frame) const { ASN_STRUCT_FREE(asn_DEF_MessageFrame, frame); }
};
using Message = std::unique_ptr<MessageFrame_t, Release>;

Message decode(asn_transfer_syntax syntax, const Bytes& bytes) {
    void* decoded = nullptr;
    const asn_dec_rval_t result =
        asn_decode(nullptr, syntax, &asn_DEF_MessageFrame, &decoded, bytes.data(), bytes.size());
    Message message(static_cast<MessageFrame_t*>(decoded));
    EXPECT_EQ(result.code, RC_OK);
    const size_t left = syntax == ATS_BASIC_XER ? 1 : 0; // its last line's end
    EXPECT_EQ(result.consumed + left, bytes.size());
    return result.code == RC_OK ? std::move(message) : nullptr;
}

// Empty when it cannot be encoded.
Bytes encode(asn_transfer_syntax syntax, const Message& message) {
    const auto into = [&](Bytes& bytes) {
        return asn_encode_to_buffer(nullptr, syntax, &asn_DEF_MessageFrame, message.get(), bytes.data(), bytes.size())
            .encoded;
    };
    Bytes bytes;
    const ssize_t size = into(bytes);
    bytes.resize(static_cast<size_t>(std::max<ssize_t>(size, 0)));
    EXPECT_EQ(into(bytes), size);
    return bytes;
}

class MsgsetVectors : public testing::TestWithParam<std::string> {};

// What a newer edition added is passed over: additions are skipped, an alternative reads as none, an enumerated value
// as the type's first; everything else reads as it was written. What was read can be made again, unless with no
// alternative.
TEST_P(MsgsetVectors, ReadAndMadeAsTheIndependentEncoderDoes) {
    const bool isNewer = GetParam() == "newer";
    const std::vector<UperFrame> frames = uperFrames(V2X_TEST_DATA "/uper/" + GetParam() + ".txt");
    EXPECT_FALSE(frames.empty());
    for (const UperFrame& frame : frames) {
        SCOPED_TRACE(frame.name);
        const Message message = decode(ATS_UNALIGNED_CANONICAL_PER, frame.bytes);
        if (message == nullptr) {
            continue;
        }
        const Leaves leaves = leavesOf(*message);
        expectLeaves(frame, leaves);
        const bool isNone = std::any_of(leaves.begin(), leaves.end(),
                                        [](const std::string& leaf) { return leaf.ends_with(" = none"); });
        const bool isWithin = asn_check_constraints(&asn_DEF_MessageFrame, message.get(), nullptr, nullptr) == 0;
        EXPECT_TRUE(isWithin || isNewer);
        for (const asn_transfer_syntax syntax : {ATS_UNALIGNED_CANONICAL_PER, ATS_BASIC_XER, ATS_CANONICAL_XER}) {
            SCOPED_TRACE(syntax);
            const Bytes made = encode(syntax, message);
            EXPECT_EQ(made.empty(), isNone);
            const Message again = isNone ? nullptr : decode(syntax, made);
            if (again != nullptr && isNewer) {
                expectLeaves(frame, leavesOf(*again));
            } else if (again != nullptr) {
                EXPECT_TRUE(encode(ATS_UNALIGNED_CANONICAL_PER, again) == frame.bytes);
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Files, MsgsetVectors,
                         testing::Values("captured", "bsm", "map", "rsm", "spat", "rsi", "msgFrameExt", "newer"),
                         [](const auto& file) { return file.param; });

} // namespace

#include "codec.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "message_json.h"
#include "per_support.h"
#include "xer_place.h"

namespace msg {
namespace {

// Adds a problem if a value is outside its constraint. In a frame of a newer edition, an empty CHOICE is no problem: a
// note names it.
void CheckConstraints(Decoded& decoded, bool isNewer) {
    constexpr size_t MAX_JSON = size_t{1} << 20; // bounds the memory for a hostile frame
    const MessageFrame_t& message = *decoded.message;
    if (asn_check_constraints(&asn_DEF_MessageFrame, &message, nullptr, nullptr) == 0) {
        return;
    }
    Problem problem{Problem::UNKNOWN_OFFSET, "a value is outside its constraint"};
    std::string json;
    AppendJson(message, json);
    if (message.present == MessageFrame_PR_NOTHING) {
        problem.text = "MessageFrame: unknown alternative";
    } else if (json.size() <= MAX_JSON) {
        const Decoded checked = DecodeJson(json); // checks each value by itself, so that it finds the path
        problem = checked.problems.empty() ? problem : checked.problems.front();
    }
    if (!isNewer || !problem.text.ends_with(EMPTY_CHOICE)) {
        decoded.problems.push_back(std::move(problem));
    }
}

// Decodes the frame and returns the number of bits that the decoder read before it ended or failed. The result of
// asn_decode contains this number only if decoding succeeds.
size_t CountBitsRead(std::span<const uint8_t> frame) {
    asn_codec_ctx_t noLimit{};
    asn_per_data_t cursor{};
    cursor.buffer = frame.data();
    cursor.nbits = 8 * frame.size();
    void* value = nullptr;
    asn_DEF_MessageFrame.uper_decoder(&noLimit, &asn_DEF_MessageFrame, nullptr, &value, &cursor);
    const Message owner(static_cast<MessageFrame_t*>(value));
    return cursor.moved;
}

// Describes why the frame cannot be decoded.
Problem FindProblem(std::span<const uint8_t> frame) {
    // The decoder's result is the same for a truncated frame and for an invalid length. To tell the cases apart, decode
    // the frame again with 32 bits appended, which is more than one read needs. Only for a truncated frame does the
    // decoder read further.
    const size_t bits = CountBitsRead(frame);
    std::vector<uint8_t> longer(frame.begin(), frame.end());
    longer.resize(frame.size() + 4);
    if (CountBitsRead(longer) != bits) {
        return {frame.size(), "ends too early"};
    }
    return {bits == 0 ? 0 : (bits - 1) / 8, "no such alternative, value or length"};
}

size_t SkipSpace(std::string_view text, size_t from) {
    return std::min(text.find_first_not_of(" \t\r\n\v\f", from), text.size());
}

// The unknown parts that a decoder met.
struct UnknownParts {
    bool isRefused = false;           // the decoder fails at the first part
    size_t count = 0;                 // of all parts
    std::vector<asn_unknown_t> first; // at most Decoded::MAX_NOTES parts
};

extern "C" int CollectUnknown(const asn_unknown_t* part, void* key) {
    auto& parts = *static_cast<UnknownParts*>(key);
    ++parts.count;
    if (parts.first.size() < Decoded::MAX_NOTES) {
        parts.first.push_back(*part);
    }
    return parts.isRefused ? 1 : 0;
}

// Decodes a MessageFrame and collects its unknown parts.
asn_dec_rval_t Decode(asn_transfer_syntax syntax, const void* data, size_t size, UnknownParts& parts,
                      Message& message) {
    asn_codec_ctx_t context{};
    context.unknown = CollectUnknown;
    context.unknown_key = &parts;
    void* value = nullptr;
    const asn_dec_rval_t result = asn_decode(&context, syntax, &asn_DEF_MessageFrame, &value, data, size);
    message.reset(static_cast<MessageFrame_t*>(value));
    if (result.code != RC_OK) {
        message.reset();
    }
    return result;
}

std::string FormatOctets(size_t octets) {
    return std::to_string(octets) + (octets == 1 ? " octet" : " octets");
}

// Describes a part of a newer edition in a frame.
std::string DescribeNewer(const asn_unknown_t& part) {
    const std::string where = std::string(" in ") + part.type->name;
    if (part.kind == ASN_UNKNOWN_VALUE) {
        const auto& values = *static_cast<const asn_INTEGER_specifics_t*>(part.type->specifics);
        const std::string decoded = values.value2enum[0].enum_name;
        return "new value " + std::to_string(part.value) + where + " (decoded as " + decoded + ")";
    }
    return part.kind == ASN_UNKNOWN_ALTERNATIVE ? "new alternative" + where + " (decoded as none)"
                                                : "addition of " + FormatOctets(part.size) + where;
}

template <typename Describe>
void AddNotes(const UnknownParts& parts, Describe describe, Decoded& decoded) {
    for (const asn_unknown_t& part : parts.first) {
        decoded.notes.push_back(describe(part));
    }
    if (parts.count > parts.first.size()) {
        decoded.notes.push_back(std::to_string(parts.count - parts.first.size()) + " more");
    }
}

// Callback of the encoders: appends bytes to the string at `key`.
extern "C" int AppendEncoded(const void* bytes, size_t size, void* key) {
    static_cast<std::string*>(key)->append(static_cast<const char*>(bytes), size);
    return 0;
}

// Returns `encoding`, or an empty string if encoding failed.
std::string Finish(const asn_enc_rval_t& result, std::string encoding, std::string& failedType) {
    if (result.encoded < 0) {
        failedType = result.failed_type == nullptr ? "" : result.failed_type->name;
        encoding.clear();
    }
    return encoding;
}

// The encoders only read the value, but their signature lacks const.
void* GetValue(const MessageFrame_t& message) {
    return const_cast<MessageFrame_t*>(&message);
}

} // namespace

void MessageDeleter::operator()(MessageFrame_t* message) const {
    ASN_STRUCT_FREE(asn_DEF_MessageFrame, message);
}

Decoded MakeInvalid(const std::string& problem) {
    Decoded decoded;
    decoded.problems.push_back({Problem::UNKNOWN_OFFSET, problem});
    return decoded;
}

Decoded DecodeFirst(std::span<const uint8_t> bytes, size_t& size) {
    UnknownParts parts;
    Decoded decoded;
    const asn_dec_rval_t result =
        Decode(ATS_UNALIGNED_CANONICAL_PER, bytes.data(), bytes.size(), parts, decoded.message);
    if (result.code != RC_OK) {
        size = bytes.size();
        decoded.problems.push_back(FindProblem(bytes));
        return decoded;
    }
    size = result.consumed;
    AddNotes(parts, DescribeNewer, decoded);
    CheckConstraints(decoded, !decoded.notes.empty());
    return decoded;
}

Decoded DecodeFrame(std::span<const uint8_t> frame) {
    size_t size = 0;
    Decoded decoded = DecodeFirst(frame, size);
    if (size < frame.size()) {
        const size_t rest = frame.size() - size;
        decoded.problems.insert(
            decoded.problems.begin(),
            {size, std::to_string(rest) + (rest == 1 ? " byte" : " bytes") + " left over after the frame"});
    }
    return decoded;
}

Decoded DecodeXer(std::string_view document, Unknown unknown) {
    UnknownParts parts;
    parts.isRefused = unknown == Unknown::refuse;
    Decoded decoded;
    const asn_dec_rval_t result = Decode(ATS_BASIC_XER, document.data(), document.size(), parts, decoded.message);
    const auto offsetOf = [&](const asn_unknown_t& part) {
        return SkipSpace(document, static_cast<size_t>(static_cast<const char*>(part.data) - document.data()));
    };
    const auto describe = [&](const asn_unknown_t& part) {
        return DescribeUnknownXer(document, offsetOf(part), part.kind);
    };
    if (parts.isRefused && parts.count != 0) {
        decoded.problems.push_back({offsetOf(parts.first.front()), describe(parts.first.front())});
        return decoded;
    }
    AddNotes(parts, describe, decoded);
    std::ranges::transform(parts.first, std::back_inserter(decoded.noteOffsets), offsetOf);
    decoded.noteOffsets.resize(decoded.notes.size(), document.size());
    const size_t stopped = SkipSpace(document, std::min(result.consumed, document.size()));
    if (result.code == RC_OK && stopped == document.size()) {
        CheckConstraints(decoded, false);
        return decoded;
    }
    decoded.message.reset();
    const bool isCut = stopped == document.size() || result.code == RC_WMORE;
    decoded.problems.push_back(isCut ? Problem{document.size(), "ends too early"}
                                     : Problem{stopped, DescribeXerFailure(document, stopped)});
    return decoded;
}

std::string EncodeXer(const MessageFrame_t& message, std::string& failedType) {
    std::string text;
    text.reserve(8192); // holds most messages
    const auto result = xer_encode(&asn_DEF_MessageFrame, GetValue(message), XER_F_BASIC, AppendEncoded, &text);
    return Finish(result, std::move(text), failedType);
}

std::vector<uint8_t> EncodeFrame(const MessageFrame_t& message, std::string& failedType) {
    std::string bytes;
    const auto result = uper_encode(&asn_DEF_MessageFrame, GetValue(message), AppendEncoded, &bytes);
    bytes = Finish(result, std::move(bytes), failedType);
    return {bytes.begin(), bytes.end()};
}

} // namespace msg

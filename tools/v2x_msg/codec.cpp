#include "codec.h"

#include <algorithm>

#include "NativeInteger.h"
#include "constr_CHOICE.h"
#include "constr_SEQUENCE_OF.h"
#include "per_support.h"

namespace msg {
namespace {

// Callback of the constraint checks: writes a description of the invalid value to the string at `key`.
extern "C" void DescribeViolation(void* key, asn_TYPE_descriptor_t* type, const void* value, const char* /*format*/,
                                  ...) {
    std::string& text = *static_cast<std::string*>(key);
    text = type->name;
    if (type->check_constraints == CHOICE_constraint) {
        text += ": unknown alternative";
    } else if (type->xer_encoder == asn_DEF_NativeInteger.xer_encoder && value != nullptr) {
        text += ": " + std::to_string(*static_cast<const long*>(value)) + " is outside its constraint";
    } else if (type->check_constraints == SEQUENCE_OF_constraint && value != nullptr) {
        const int count = static_cast<const asn_anonymous_sequence_*>(value)->count;
        text += ": " + std::to_string(count) + " elements are outside its constraint";
    } else {
        text += ": its size or value is outside its constraint";
    }
}

void CheckConstraints(Decoded& decoded) {
    std::string text;
    const auto check = asn_DEF_MessageFrame.check_constraints;
    if (check(&asn_DEF_MessageFrame, decoded.message.get(), DescribeViolation, &text) != 0) {
        decoded.problems.push_back({Problem::UNKNOWN_OFFSET, text});
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

// Returns at most 40 characters of the line from the offset `from`, with '.' for each character that is not printable.
std::string ExtractLine(std::string_view text, size_t from) {
    const std::string_view rest = text.substr(from);
    std::string line(rest.substr(0, std::min<size_t>(rest.find_first_of("\r\n"), 40)));
    std::ranges::replace_if(
        line, [](char character) { return character < ' ' || character > '~'; }, '.');
    return line;
}

template <typename Byte>
std::vector<Byte> Encode(asn_transfer_syntax syntax, const MessageFrame_t& message, std::string& failedType) {
    std::vector<Byte> bytes(65536); // nearly all messages fit, so that one pass is enough
    asn_enc_rval_t result{};
    do {
        bytes.resize(std::max(bytes.size(), static_cast<size_t>(result.encoded)));
        result = asn_encode_to_buffer(nullptr, syntax, &asn_DEF_MessageFrame, &message, bytes.data(), bytes.size());
    } while (result.encoded > static_cast<ssize_t>(bytes.size()));
    if (result.encoded < 0) {
        failedType = result.failed_type == nullptr ? "" : result.failed_type->name;
    }
    bytes.resize(static_cast<size_t>(std::max<ssize_t>(result.encoded, 0)));
    return bytes;
}

} // namespace

void MessageDeleter::operator()(MessageFrame_t* message) const {
    ASN_STRUCT_FREE(asn_DEF_MessageFrame, message);
}

Decoded DecodeFirst(std::span<const uint8_t> bytes, size_t& size) {
    void* value = nullptr;
    const asn_dec_rval_t result =
        asn_decode(nullptr, ATS_UNALIGNED_CANONICAL_PER, &asn_DEF_MessageFrame, &value, bytes.data(), bytes.size());
    Decoded decoded{Message(static_cast<MessageFrame_t*>(value)), {}, {}, {}};
    if (result.code == RC_OK) {
        size = result.consumed;
        CheckConstraints(decoded);
    } else {
        size = bytes.size();
        decoded.message.reset();
        decoded.problems.push_back(FindProblem(bytes));
    }
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

Decoded DecodeXer(std::string_view document, Unknown) {
    void* value = nullptr;
    const asn_dec_rval_t result =
        asn_decode(nullptr, ATS_BASIC_XER, &asn_DEF_MessageFrame, &value, document.data(), document.size());
    Decoded decoded{Message(static_cast<MessageFrame_t*>(value)), {}, {}, {}};
    const size_t stopped = SkipSpace(document, std::min(result.consumed, document.size()));
    if (result.code == RC_OK && stopped == document.size()) {
        CheckConstraints(decoded);
        return decoded;
    }
    decoded.message.reset();
    if (stopped == document.size() || result.code == RC_WMORE) {
        decoded.problems.push_back({document.size(), "ends too early"});
    } else {
        decoded.problems.push_back({stopped, "not understood: " + ExtractLine(document, stopped)});
    }
    return decoded;
}

std::string EncodeXer(const MessageFrame_t& message, std::string& failedType) {
    const std::vector<char> text = Encode<char>(ATS_BASIC_XER, message, failedType);
    return {text.begin(), text.end()};
}

std::vector<uint8_t> EncodeFrame(const MessageFrame_t& message, std::string& failedType) {
    return Encode<uint8_t>(ATS_UNALIGNED_CANONICAL_PER, message, failedType);
}

} // namespace msg

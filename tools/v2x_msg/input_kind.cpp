#include "input_kind.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <vector>

#include "common/hex.h"

namespace msg {
namespace {

using namespace std::string_view_literals;

constexpr std::string_view BYTE_ORDER_MARK = "\xEF\xBB\xBF";
constexpr std::string_view SPACE = " \t\r\n\v\f";
constexpr size_t SIGNATURE_SIZE = 4;
constexpr size_t HEAD_SIZE = 64; // a control character in these bytes means a binary input
constexpr size_t MIN_TEXT = 16;  // hardly any raw frame begins with this many ASCII characters

struct Signature {
    std::string_view bytes;
    InputKind kind;
};
constexpr Signature SIGNATURES[] = {
    {"\xD4\xC3\xB2\xA1", InputKind::capture}, // pcap: either byte order, microseconds or nanoseconds
    {"\xA1\xB2\xC3\xD4", InputKind::capture}, {"\x4D\x3C\xB2\xA1", InputKind::capture},
    {"\xA1\xB2\x3C\x4D", InputKind::capture}, {"\x0A\x0D\x0D\x0A", InputKind::capture}, // pcapng
    {"\x1F\x8B\x08", InputKind::gzip},        {"\xFF\xFE", InputKind::utf16},
    {"\xFE\xFF", InputKind::utf16},
};

bool IsControl(char character) {
    return (character >= '\0' && character < ' ' && SPACE.find(character) == SPACE.npos) || character == '\x7F';
}

bool IsAscii(std::string_view text) {
    return std::ranges::all_of(text, [](char character) { return character >= '\0'; });
}

InputKind RecognizeText(std::string_view start) {
    const std::string_view text = start.substr(std::min(start.find_first_not_of(SPACE), start.size()));
    const std::string_view line = text.substr(0, text.find_first_of("\r\n#"));
    if (text.starts_with('<')) {
        return InputKind::xer;
    }
    if (text.starts_with('{')) {
        return InputKind::json;
    }
    const bool isHex = line.find_first_not_of("0123456789ABCDEFabcdefXx:-, \t") == line.npos;
    return isHex && !line.starts_with('x') && !text.empty() ? InputKind::hex : InputKind::text;
}

// Returns the start of the input. Reads until it has a character other than white space, a full block, or the whole
// input.
std::string_view PeekText(tools::InputFile& input) {
    std::string_view start = input.Peek(SIGNATURE_SIZE);
    for (size_t size = 0; start.size() > size && start.size() < tools::InputFile::BLOCK_SIZE &&
                          start.find_first_not_of(SPACE) == start.npos;) {
        size = start.size();
        start = input.Peek(size + 1);
    }
    return start;
}

// Returns true if most lines at the start of the input are hex, so that the other lines are errors.
bool IsMostlyHex(tools::InputFile& input) {
    const std::string_view text = input.Peek(tools::InputFile::BLOCK_SIZE);
    ptrdiff_t excess = 0;
    for (size_t begin = 0, end = 0; begin < text.size(); begin = end + 1) {
        end = std::min(text.find('\n', begin), text.size());
        std::vector<uint8_t> bytes;
        const bool isHex = tools::AppendHex(text.substr(begin, end - begin), bytes).empty() && !bytes.empty();
        excess += isHex ? 1 : -1;
    }
    return excess > 0;
}

// Texts for the user; null if the command can read the input.
struct Row {
    InputKind kind;
    const char* frames;
    const char* rawFrames;
    const char* documents;
};
constexpr const char* EMPTY = "empty";
constexpr const char* XER = "looks like XER; v2x_msg encode makes frames from it";
constexpr const char* JSON = "looks like JSON; v2x_msg encode makes frames from it";
constexpr const char* GZIP = "compressed by gzip; pipe it through zcat";
constexpr const char* UTF16 = "looks like text in UTF-16; convert it with iconv -f UTF-16 -t UTF-8";
constexpr Row ROWS[] = {
    {InputKind::empty, EMPTY, EMPTY, EMPTY},
    {InputKind::hex, nullptr, "looks like hex; leave out --raw",
     "looks like frames in hex; v2x_msg decode and v2x_msg info read them"},
    {InputKind::xer, XER, XER, nullptr},
    {InputKind::json, JSON, JSON, nullptr},
    {InputKind::capture, nullptr, "looks like a capture; leave out --raw",
     "looks like a capture; v2x_msg decode and v2x_msg info read it"},
    {InputKind::gzip, GZIP, GZIP, GZIP},
    {InputKind::utf16, UTF16, nullptr, UTF16},
    {InputKind::binary, "looks like binary; if these are the bytes of frames, use --raw", nullptr,
     "looks like binary; if these are the bytes of frames, use v2x_msg decode --raw"},
    {InputKind::text, nullptr, nullptr, "neither XER, which begins with '<', nor JSON, which begins with '{'"},
};
static_assert(std::size(ROWS) == static_cast<size_t>(InputKind::text) + 1);

} // namespace

InputKind RecognizeInput(tools::InputFile& input, Wanted wanted) {
    std::string_view start = input.Peek(SIGNATURE_SIZE);
    if (wanted != Wanted::rawFrames && start.starts_with(BYTE_ORDER_MARK)) {
        input.Skip(BYTE_ORDER_MARK.size());
    }
    start = PeekText(input);
    if (start.empty()) {
        return InputKind::empty;
    }
    const auto* const signature = std::ranges::find_if(
        SIGNATURES, [&](const Signature& candidate) { return start.starts_with(candidate.bytes); });
    if (signature != std::end(SIGNATURES)) {
        return signature->kind;
    }
    const InputKind text = RecognizeText(start);
    if (wanted == Wanted::documents && (text == InputKind::xer || text == InputKind::json)) {
        return text;
    }
    if (wanted == Wanted::frames && text != InputKind::hex && IsMostlyHex(input)) {
        return InputKind::hex;
    }
    const std::string_view head = input.Peek(1).substr(0, HEAD_SIZE);
    const bool canBeFrame = wanted == Wanted::rawFrames && (head.size() < MIN_TEXT || !IsAscii(head));
    return canBeFrame || std::ranges::any_of(head, IsControl) ? InputKind::binary : text;
}

std::string Advise(InputKind kind, Wanted wanted) {
    const Row& row = *std::ranges::find(ROWS, kind, &Row::kind);
    const char* const text = wanted == Wanted::frames      ? row.frames
                             : wanted == Wanted::rawFrames ? row.rawFrames
                                                           : row.documents;
    return text != nullptr ? text : "";
}

} // namespace msg

// The subcommand encode.
#include <algorithm>

#include "commands.h"
#include "common/hex.h"
#include "document_source.h"
#include "message_json.h"

namespace msg {
namespace {

// Encodes one document. Reports the problems of an invalid document and returns an empty vector. `formatPlace` returns
// the input and line of an offset in the document.
template <typename FormatPlace>
std::vector<uint8_t> EncodeDocument(const Decoded& decoded, Report& report, FormatPlace formatPlace) {
    for (size_t i = 0; i < decoded.notes.size(); ++i) {
        report.Note(formatPlace(decoded.noteOffsets[i]), "skipped: " + decoded.notes[i]);
    }
    for (const Problem& problem : decoded.problems) {
        report.Error(formatPlace(problem.offset == Problem::UNKNOWN_OFFSET ? 0 : problem.offset), problem);
    }
    if (!decoded.problems.empty()) {
        return {};
    }
    std::string failedType;
    std::vector<uint8_t> frame = EncodeFrame(*decoded.message, failedType);
    if (frame.empty()) {
        report.Error(formatPlace(0), {Problem::UNKNOWN_OFFSET, failedType + ": cannot be encoded"});
    }
    return frame;
}

Decoded MakeTooLong(size_t maxSize) {
    return MakeInvalid("longer than " + std::to_string(maxSize) + " bytes");
}

using FrameWriter = std::function<void(const std::vector<uint8_t>& frame)>;

void EncodeXerDocuments(tools::InputFile& input, Unknown unknown, Report& report, const FrameWriter& write) {
    DocumentSource documents(input);
    for (Document document; documents.Next(document);) {
        report.Begin();
        const Decoded decoded = document.isTooLong ? MakeTooLong(MAX_DOCUMENT) : DecodeXer(document.text, unknown);
        write(EncodeDocument(decoded, report, [&](size_t offset) {
            const auto before = std::string_view(document.text).substr(0, offset);
            const auto lines = static_cast<size_t>(std::ranges::count(before, '\n'));
            return input.Name() + ":" + std::to_string(document.line + lines);
        }));
    }
}

void EncodeJsonLines(tools::InputFile& input, Report& report, const FrameWriter& write) {
    std::string line;
    for (size_t number = 1; input.ReadLine(line); ++number) {
        if (line.find_first_not_of(" \t\r") == line.npos) {
            continue;
        }
        report.Begin();
        const bool isTooLong = line.size() > tools::InputFile::MAX_LINE;
        Decoded decoded = isTooLong ? MakeTooLong(tools::InputFile::MAX_LINE) : DecodeJson(line);
        if (decoded.message == nullptr && !isTooLong && line[line.find_last_not_of(" \t\r")] != '}') {
            decoded.problems.front().text += "; an object must be one line, as jq -c writes it";
        }
        write(EncodeDocument(decoded, report,
                             [&](size_t /*offset*/) { return input.Name() + ":" + std::to_string(number); }));
    }
}

} // namespace

bool EncodeDocuments(const EncodeOptions& options, tools::OutputFile& output) {
    Report report("document", output);
    bool hasFrame = false;
    const FrameWriter write = [&](const std::vector<uint8_t>& frame) {
        hasFrame = hasFrame || !frame.empty();
        if (options.isRaw) {
            output.Write({reinterpret_cast<const char*>(frame.data()), frame.size()});
        } else if (!frame.empty()) {
            output.Write(tools::ToHex(frame) + "\n");
        }
    };
    ForEachInput(options.paths, Wanted::documents, report, output, [&](tools::InputFile& input, InputKind kind) {
        kind == InputKind::json ? EncodeJsonLines(input, report, write)
                                : EncodeXerDocuments(input, options.unknown, report, write);
    });
    if (hasFrame) {
        output.Commit();
    }
    return report.Finish();
}

} // namespace msg

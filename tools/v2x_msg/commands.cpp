#include "commands.h"

#include <algorithm>
#include <cstdio>
#include <span>

#include "codec.h"
#include "common/hex.h"
#include "document_source.h"
#include "spat_table.h"

namespace msg {
namespace {

// Counts frames or documents, and writes their errors to standard error.
class Report {
public:
    // `noun` is "frame" or "document".
    explicit Report(std::string noun) : m_noun(std::move(noun)) {}

    // Call this for each frame or document, before Error.
    void Begin() {
        ++m_count;
        m_isBad = false;
    }
    std::string Title() const { return m_noun + " " + std::to_string(m_count); }

    void Error(const std::string& where, const std::string& reason) {
        m_bad += m_isBad ? 0 : 1;
        m_isBad = true;
        PrintError(where + ": " + Title() + ": " + reason);
    }
    void Error(const std::string& where, const Problem& problem) {
        const bool isKnown = problem.offset != Problem::UNKNOWN_OFFSET;
        Error(where, (isKnown ? "byte " + std::to_string(problem.offset) + ": " : "") + problem.text);
    }

    // Writes the totals. Returns true if there was at least one frame or document and all were good.
    bool Finish() const {
        if (m_count == 0) {
            PrintError("no " + m_noun + " in the input");
        } else if (m_bad != 0 && m_count > 1) {
            PrintError(std::to_string(m_count) + " " + m_noun + "s, " + std::to_string(m_bad) + " bad");
        }
        return m_count != 0 && m_bad == 0;
    }

private:
    static void PrintError(const std::string& line) { std::fprintf(stderr, "%s: %s\n", PROGRAM, line.c_str()); }

    std::string m_noun;
    size_t m_count = 0;
    size_t m_bad = 0;
    bool m_isBad = false; // the current frame or document has an error
};

// Decodes each frame and reports its problems. Calls `show` with each decoded message. Returns the result of Finish.
template <typename Show>
bool ForEachFrame(const FrameSource& frames, Show show) {
    Report report("frame");
    for (Frame frame; frames(frame);) {
        report.Begin();
        if (!frame.problem.empty()) {
            report.Error(frame.where, frame.problem);
            continue;
        }
        const Decoded decoded = DecodeFrame(frame.bytes);
        for (const Problem& problem : decoded.problems) {
            report.Error(frame.where, problem);
        }
        if (decoded.message != nullptr) {
            show(report, frame, *decoded.message);
        }
    }
    return report.Finish();
}

std::string FormatCount(long count) {
    return "msgCnt " + std::to_string(count);
}

struct MessageKind {
    MessageFrame_PR present;
    const char* name;
    std::string (*describe)(const MessageFrame_t& message); // returns the text after type and size
};

const MessageKind KINDS[] = {
    {MessageFrame_PR_NOTHING, "message of a newer edition", [](const MessageFrame_t&) { return std::string(); }},
    {MessageFrame_PR_bsmFrame, "BSM", [](const MessageFrame_t& m) { return FormatCount(m.choice.bsmFrame.msgCnt); }},
    {MessageFrame_PR_mapFrame, "MAP", [](const MessageFrame_t& m) { return FormatCount(m.choice.mapFrame.msgCnt); }},
    {MessageFrame_PR_rsmFrame, "RSM", [](const MessageFrame_t& m) { return FormatCount(m.choice.rsmFrame.msgCnt); }},
    {MessageFrame_PR_spatFrame, "SPAT",
     [](const MessageFrame_t& m) {
         return FormatCount(m.choice.spatFrame.msgCnt) + "\n" + FormatSpat(m.choice.spatFrame);
     }},
    {MessageFrame_PR_rsiFrame, "RSI", [](const MessageFrame_t& m) { return FormatCount(m.choice.rsiFrame.msgCnt); }},
    {MessageFrame_PR_msgFrameExt, "extension",
     [](const MessageFrame_t& m) {
         const MessageFrameExt_t& extension = m.choice.msgFrameExt;
         return "messageId " + std::to_string(extension.messageId) + ", value of " +
                std::to_string(extension.value.size) + " bytes";
     }},
};

static_assert(std::size(KINDS) == MessageFrame_PR_msgFrameExt + 1);

std::string Describe(const MessageFrame_t& message, size_t size) {
    const MessageKind* const kind = std::ranges::find(KINDS, message.present, &MessageKind::present);
    std::string text = std::string(kind->name) + ", " + std::to_string(size) + " bytes";
    const std::string more = kind->describe(message);
    text += more.empty() ? "" : ", " + more;
    return text.ends_with('\n') ? text : text + "\n";
}

// Encodes one document. Reports the problems of an invalid document and returns an empty vector. `name` is the input.
std::vector<uint8_t> EncodeDocument(const Document& document, const std::string& name, Report& report) {
    const auto formatPosition = [&](size_t offset) {
        const auto before = std::string_view(document.text).substr(0, offset);
        return name + ":" + std::to_string(document.line + static_cast<size_t>(std::ranges::count(before, '\n')));
    };
    if (document.isTooLong) {
        report.Error(formatPosition(0), "longer than " + std::to_string(MAX_DOCUMENT) + " bytes");
        return {};
    }
    const Decoded decoded = DecodeXer(document.text, Unknown::refuse);
    for (const Problem& problem : decoded.problems) {
        report.Error(formatPosition(problem.offset == Problem::UNKNOWN_OFFSET ? 0 : problem.offset), problem);
    }
    if (!decoded.problems.empty()) {
        return {};
    }
    std::string failedType;
    std::vector<uint8_t> frame = EncodeFrame(*decoded.message, failedType);
    if (frame.empty()) {
        report.Error(formatPosition(0), failedType + ": cannot be encoded");
    }
    return frame;
}

} // namespace

bool DecodeAll(const FrameSource& frames, tools::OutputFile& output) {
    return ForEachFrame(frames, [&](Report& report, const Frame& frame, const MessageFrame_t& message) {
        std::string failedType;
        const std::string xer = EncodeXer(message, failedType);
        if (xer.empty()) {
            report.Error(frame.where, failedType + ": cannot be shown as XER");
        }
        output.Write(xer);
    });
}

bool DescribeAll(const FrameSource& frames, tools::OutputFile& output) {
    return ForEachFrame(frames, [&](const Report& report, const Frame& frame, const MessageFrame_t& message) {
        output.Write(report.Title() + ": " + Describe(message, frame.bytes.size()));
    });
}

bool EncodeAll(tools::InputFile& input, FrameForm form, tools::OutputFile& output) {
    Report report("document");
    DocumentSource documents(input);
    for (Document document; documents.Next(document);) {
        report.Begin();
        const std::vector<uint8_t> frame = EncodeDocument(document, input.Name(), report);
        if (form == FrameForm::raw) {
            output.Write({reinterpret_cast<const char*>(frame.data()), frame.size()});
        } else if (!frame.empty()) {
            output.Write(tools::ToHex(frame) + "\n");
        }
    }
    return report.Finish();
}

} // namespace msg

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

// Counts frames or documents and reports what is wrong with them.
class Report {
public:
    explicit Report(std::string unit) : m_unit(std::move(unit)) {}

    void Begin() {
        ++m_count;
        m_isBad = false;
    }
    std::string Title() const { return m_unit + " " + std::to_string(m_count); }

    void Error(const std::string& where, const std::string& what) {
        m_bad += m_isBad ? 0 : 1;
        m_isBad = true;
        Complain(where + ": " + Title() + ": " + what);
    }
    void Error(const std::string& where, const Problem& problem) {
        const bool isPlaced = problem.offset != Problem::NOWHERE;
        Error(where, (isPlaced ? "byte " + std::to_string(problem.offset) + ": " : "") + problem.text);
    }

    bool Finish() const {
        if (m_count == 0) {
            Complain("no " + m_unit + " in the input");
        } else if (m_bad != 0 && m_count > 1) {
            Complain(std::to_string(m_count) + " " + m_unit + "s, " + std::to_string(m_bad) + " bad");
        }
        return m_count != 0 && m_bad == 0;
    }

private:
    static void Complain(const std::string& line) { std::fprintf(stderr, "%s: %s\n", PROGRAM, line.c_str()); }

    std::string m_unit;
    size_t m_count = 0;
    size_t m_bad = 0;
    bool m_isBad = false;
};

// Reports the problems of each frame, then calls `show` if it was decoded.
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

std::string CountText(long count) {
    return "msgCnt " + std::to_string(count);
}

struct MessageKind {
    MessageFrame_PR present;
    const char* name;
    std::string (*describe)(const MessageFrame_t& message); // what follows type and size
};

const MessageKind KINDS[] = {
    {MessageFrame_PR_NOTHING, "message of a newer edition", [](const MessageFrame_t&) { return std::string(); }},
    {MessageFrame_PR_bsmFrame, "BSM", [](const MessageFrame_t& m) { return CountText(m.choice.bsmFrame.msgCnt); }},
    {MessageFrame_PR_mapFrame, "MAP", [](const MessageFrame_t& m) { return CountText(m.choice.mapFrame.msgCnt); }},
    {MessageFrame_PR_rsmFrame, "RSM", [](const MessageFrame_t& m) { return CountText(m.choice.rsmFrame.msgCnt); }},
    {MessageFrame_PR_spatFrame, "SPAT",
     [](const MessageFrame_t& m) {
         return CountText(m.choice.spatFrame.msgCnt) + "\n" + SpatTable(m.choice.spatFrame);
     }},
    {MessageFrame_PR_rsiFrame, "RSI", [](const MessageFrame_t& m) { return CountText(m.choice.rsiFrame.msgCnt); }},
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

// Encodes one document; empty when it is bad, which is then reported.
std::vector<uint8_t> EncodeDocument(const Document& document, const std::string& name, Report& report) {
    const auto where = [&](size_t offset) {
        const auto before = std::string_view(document.text).substr(0, offset);
        return name + ":" + std::to_string(document.line + static_cast<size_t>(std::ranges::count(before, '\n')));
    };
    if (document.isTooLong) {
        report.Error(where(0), "longer than " + std::to_string(MAX_DOCUMENT) + " bytes");
        return {};
    }
    const Decoded decoded = DecodeXer(document.text);
    for (const Problem& problem : decoded.problems) {
        report.Error(where(problem.offset == Problem::NOWHERE ? 0 : problem.offset), problem);
    }
    if (!decoded.problems.empty()) {
        return {};
    }
    std::string failedType;
    std::vector<uint8_t> frame = EncodeFrame(*decoded.message, failedType);
    if (frame.empty()) {
        report.Error(where(0), failedType + ": cannot be encoded");
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

// The subcommands decode and info.
#include <algorithm>

#include "commands.h"
#include "message_json.h"
#include "summary.h"

namespace msg {
namespace {

// Returns the place of a frame from a capture or from the middle of an input of bytes; otherwise an empty text.
std::string FormatPlace(const Frame& frame) {
    if (frame.packet != 0) {
        return "packet " + std::to_string(frame.packet) + ", " + FormatTime(frame.time);
    }
    return frame.offset != 0 ? "byte " + std::to_string(frame.offset) : "";
}

// The functions Show... append a frame that has a message to `text`.

void ShowXer(const Frame& frame, Report& report, std::string& text) {
    std::string failedType;
    const std::string xer = EncodeXer(*frame.decoded.message, failedType);
    if (xer.empty()) {
        report.Error(frame.where, {Problem::UNKNOWN_OFFSET, failedType + ": cannot be shown as XER"});
    } else if (frame.packet != 0) {
        text += "<!-- " + FormatPlace(frame) + " -->\n";
    }
    text += xer;
}

void ShowJson(const Frame& frame, Report& /*report*/, std::string& text) {
    if (frame.packet != 0) {
        text += "{\"packet\":" + std::to_string(frame.packet) + ",\"time\":\"" + FormatTime(frame.time) +
                "\",\"MessageFrame\":";
    }
    AppendJson(*frame.decoded.message, text);
    text += frame.packet != 0 ? "}\n" : "\n";
}

void ShowTable(const Frame& frame, Report& /*report*/, std::string& text) {
    const std::string place = FormatPlace(frame);
    const std::string description = Describe(*frame.decoded.message, frame.size);
    const size_t titleEnd = description.find('\n') + 1;
    text += place + (place.empty() ? "" : ": ") + description.substr(0, titleEnd);
    for (const std::string& note : frame.decoded.notes) {
        text += "newer edition: " + note + "\n";
    }
    text += description.substr(titleEnd);
}

// Shows or counts each frame, and reports its problems.
class FrameViewer {
public:
    FrameViewer(const FrameOptions& options, Report& report, tools::OutputFile& output)
        : m_options(options), m_report(report), m_output(output) {}

    void Visit(const Frame& frame) {
        m_report.Begin();
        for (const Problem& problem : frame.decoded.problems) {
            m_report.Error(frame.where, problem);
        }
        if (frame.decoded.message == nullptr || !IsChosen(*frame.decoded.message)) {
            return;
        }
        if (m_options.view == View::xer || m_options.view == View::json) {
            for (const std::string& note : frame.decoded.notes) {
                m_report.Note(frame.where, "newer edition: " + note);
            }
        }
        if (m_options.view == View::summary) {
            m_summary.Add(frame);
        } else {
            Show(frame);
        }
    }

    void Finish() {
        if (m_options.view == View::summary) {
            m_output.Write(m_summary.Format(m_report.CountBad()));
        }
    }

private:
    bool IsChosen(const MessageFrame_t& message) const {
        return m_options.kinds.empty() ||
               std::ranges::find(m_options.kinds, &FindKind(message)) != m_options.kinds.end();
    }

    void Show(const Frame& frame) {
        const auto show = m_options.view == View::xer ? ShowXer : m_options.view == View::json ? ShowJson : ShowTable;
        m_text.clear();
        show(frame, m_report, m_text);
        m_output.Write(m_text);
    }

    const FrameOptions& m_options;
    Report& m_report;
    tools::OutputFile& m_output;
    Summary m_summary;
    std::string m_text;
};

void ReadFrames(tools::InputFile& input, InputKind kind, const FrameOptions& options, Report& report,
                const FrameVisitor& visit) {
    if (kind != InputKind::capture) {
        if (options.datagrams.port != 0) {
            report.InputNote(input.Name() + ": no capture: --udp-port has no effect");
        }
        const auto read = options.isRaw ? ReadBytes : options.isOne ? ReadAllLines : ReadLines;
        read(input, visit);
        return;
    }
    if (options.isOne) {
        report.InputNote(input.Name() + ": a capture: --one has no effect");
    }
    const CaptureResult result = ReadCapture(input, options.datagrams, visit);
    if (!result.ignored.empty()) {
        report.InputNote(input.Name() + ": " + result.ignored);
    }
    if (!result.error.empty()) {
        report.InputError(result.error);
    }
}

} // namespace

bool ShowFrames(const FrameOptions& options, tools::OutputFile& output) {
    Report report("frame", output);
    FrameViewer viewer(options, report, output);
    const FrameVisitor visit = [&](const Frame& frame) { viewer.Visit(frame); };
    if (!options.arguments.hex.empty()) {
        ReadArgument(options.arguments.hex, visit);
    }
    ForEachInput(options.arguments.paths, options.isRaw ? Wanted::rawFrames : Wanted::frames, report, output,
                 [&](tools::InputFile& input, InputKind kind) { ReadFrames(input, kind, options, report, visit); });
    viewer.Finish();
    output.Commit();
    return report.Finish();
}

} // namespace msg

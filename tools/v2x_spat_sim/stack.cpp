#include <cinttypes>
#include <memory>

#include "command_line.h"
#include "common/files.h"
#include "ipc_record.h"
#include "port.h"
#include "roles.h"
#include "session.h"
#include "stack_answer.h"
#include "text.h"

namespace sim {
namespace {

constexpr size_t MAX_ITEMS = 100; // more than the daemon reads, which is 64

constexpr DamageTexts STACK_DAMAGE_TEXTS = {
    "--bad-replies", "Share of the replies that are bad, 0 to 1", "--bad-reply-kinds",
    "Kinds of bad replies to choose from: head (wrong start bytes),\nlength (wrong length field), large (20481 bytes "
    "after the header),\ncommand (wrong command), type (wrong data type), cut (an item that\nextends beyond the end), "
    "garbage (an item that cannot be decoded),\ntrailing (bytes after an item's frame), number (fewer items than\n"
    "counted), short (a datagram of 0 to 27 bytes)"};

constexpr const char* STACK_FOOTER =
    "The simulator answers requests for SPAT with the messages of --frames, or with a message with\nthe first 16 "
    "phases of the last record. It does not answer before the first record.\n"
    "The daemon looks for every further item of a reply right after the first item, and finds only\nthe first two "
    "items. With Corrections.ReplyItems in its configuration, the daemon finds all\nitems.\n"
    "The summary counts the valid items of each reply, up to the first invalid item.";

struct StackOptions {
    RunOptions run;                   // the count limits the records received
    Endpoint listen{LOOPBACK, 20010}; // an empty IP means loopback
    bool isSilent = false;            // true answers no request
    std::string framesFile;
    AnswerOptions answers;
};

class Stack {
public:
    explicit Stack(const StackOptions& options)
        : m_options(options),
          m_session("stack", options.run, !options.isSilent && options.answers.damage.share > 0 ? "bad replies" : ""),
          m_answerer(options.answers, m_session.Seed()),
          m_port("stack", options.listen, [this](std::span<const uint8_t> datagram, const UdpPort::Sender& sender) {
              OnDatagram(datagram, sender);
          }) {}

    void Run() {
        m_session.Announce("listening on " + FormatEndpoint(m_options.listen));
        m_session.WaitUntil(DeadlineAfter(Clock::now(), m_options.run.seconds));
        m_port.Close();
        m_session.Finish(MakeSummary());
    }

private:
    // OnDatagram, OnRequest and OnRecord run on the receive thread.

    void OnDatagram(std::span<const uint8_t> datagram, const UdpPort::Sender& sender) {
        if (m_isDone) {
            return;
        }
        const uint64_t receiveTime = v2xpub_CommGetCurrentTime64();
        const Frame frame = ReadFrame(datagram);
        if (const auto* record = std::get_if<SpatRecord>(&frame)) {
            OnRecord(*record, receiveTime);
        } else if (const auto* rejection = std::get_if<Rejection>(&frame)) {
            m_rejected.Add(rejection->fault);
            m_session.Print(m_options.run.json ? RejectionJson(*rejection) : RejectionLine(*rejection));
        } else {
            OnRequest(sender);
        }
    }

    void OnRequest(const UdpPort::Sender& sender) {
        ++m_requests;
        if (m_options.isSilent) {
            return;
        }
        if (auto reply = m_answerer.MakeReply(v2xpub_CommGetCurrentTime64())) {
            const int error = sender.Reply(*reply);
            m_answerer.CountSent(*reply, error);
        }
    }

    void OnRecord(const SpatRecord& record, uint64_t receiveTime) {
        ++m_records;
        m_answerer.OnRecord(record);
        m_emptyEntries += record.emptyEntries;
        for (const Phase& phase : record.phases) {
            m_states += phase.states.size();
        }
        for (const std::string& line :
             m_options.run.json ? std::vector{RecordJson(record, receiveTime)} : RecordLines(record)) {
            m_session.Print(line);
        }
        if (m_records == m_options.run.count) {
            m_isDone = true;
            m_session.Stop();
        }
    }

    Summary MakeSummary() const {
        const v2xpub_UdpSocketStats_t stats = m_port.Stats();
        Summary summary(FormatText("%" PRIu64 " records (%" PRIu64 " phase states)", m_records, m_states));
        summary.Add("records", m_records);
        summary.Add("phaseStates", m_states);
        summary.Add("requests", m_requests, "SPAT requests");
        summary.Add("refused", m_rejected.Total(), "rejected" + m_rejected.Text());
        m_rejected.AddNumbers(summary);
        summary.AddIfAny("emptyEntries", m_emptyEntries, "empty phase entries");
        summary.AddIfAny("tooLong", stats.tooLong, "too long to receive");
        summary.AddIfAny("kernelDrops", stats.kernelDrops, "dropped by the kernel, receive buffer full");
        if (!m_options.isSilent) {
            m_answerer.AddCounts(summary);
        }
        return summary;
    }

    const StackOptions& m_options;
    Session m_session; // before the port, so that the port's thread blocks the signals
    Answerer m_answerer;
    bool m_isDone = false;
    uint64_t m_records = 0;
    uint64_t m_states = 0;
    uint64_t m_emptyEntries = 0;
    uint64_t m_requests = 0;
    KindCount m_rejected{FAULTS};
    UdpPort m_port;
};

void RunStack(StackOptions& options) {
    constexpr size_t MAX_FILE = size_t{1} << 30;
    if (options.listen.ip.empty()) {
        options.listen.ip = LOOPBACK;
    }
    if (!options.framesFile.empty()) {
        options.answers.frames = ParseFrames(tools::ReadFile(options.framesFile, MAX_FILE), options.framesFile);
        CheckReplySize(options.answers);
    }
    Stack(options).Run();
}

} // namespace

void AddStack(CLI::App& app, Run& run) {
    const auto options = std::make_shared<StackOptions>();
    CLI::App& stack = *app.add_subcommand(
        "stack", "Play the stack application: check the daemon's frames, show them, answer its requests");
    AddEndpointOption(stack, "--listen", options->listen, "[IP:]PORT",
                      "Local address that receives frames: ipc.app_rs_rcvport of\nv2x_ipc.cfg");
    stack
        .add_option("--frames", options->framesFile,
                    "Answer with the encoded messages in FILE, one after another. Each\nline has one frame in hex; '#' "
                    "begins a comment")
        ->type_name("FILE");
    AddNumberOption(stack, "--items", options->answers.items, 1, MAX_ITEMS, "N", "Frames of the file in each reply")
        ->needs("--frames");
    AddDamageOptions(stack, options->answers.damage, options->run, REPLY_KINDS, STACK_DAMAGE_TEXTS);
    stack.get_option("--seed")->needs("--bad-replies");
    stack.add_flag("--no-replies", options->isSilent, "Answer no request")
        ->excludes("--frames")
        ->excludes("--bad-replies");
    AddRunOptions(
        stack, options->run, "records",
        "Print each record, each rejected frame and the summary as one JSON\nobject per line; times of states in "
        "0.1 s");
    stack.footer(STACK_FOOTER);
    stack.callback([&run, options] { run = [options] { RunStack(*options); }; });
}

} // namespace sim

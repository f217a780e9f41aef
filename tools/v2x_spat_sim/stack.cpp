#include "stack.h"

#include <array>
#include <cctype>
#include <cinttypes>
#include <random>

#include "ipc_print.h"
#include "ipc_record.h"
#include "output.h"
#include "run_loop.h"
#include "summary.h"
#include "text.h"
#include "udp_port.h"

namespace sim {
namespace {

class Stack {
public:
    explicit Stack(const StackOptions& options)
        : m_options(options), m_seed(options.seed ? *options.seed : std::random_device{}()),
          m_answerer(options.answers, m_seed),
          m_port("stack", options.listen, [this](std::span<const uint8_t> datagram, const UdpPort::Sender& sender) {
              OnDatagram(datagram, sender);
          }) {}

    void Run() {
        Announce();
        m_loop.WaitUntil(EndOfRun(Clock::now(), m_options.run.limits.seconds));
        m_port.Close();
        ReportSummary(MakeSummary(), m_options.run.json, m_options.run.summaryFile, m_output);
        m_output.CheckFailure();
    }

private:
    bool IsDamaging() const { return m_options.isAnswering && m_options.answers.bad > 0; }

    void Announce() const {
        Output notes(m_options.run.json ? stderr : stdout);
        if (!m_options.run.quiet) {
            notes.Line("stack: listening on " + EndpointText(m_options.listen));
        }
        if (IsDamaging()) {
            notes.Line(FormatText("stack: bad replies with --seed %" PRIu32, m_seed));
        }
    }

    // What follows runs on the receive thread until the port is closed.

    void OnDatagram(std::span<const uint8_t> datagram, const UdpPort::Sender& sender) {
        if (m_isDone) {
            return;
        }
        const uint64_t receiveTime = v2xpub_CommGetCurrentTime64();
        const Frame frame = ReadFrame(datagram);
        if (const auto* record = std::get_if<SpatRecord>(&frame)) {
            OnRecord(*record, receiveTime);
        } else if (const auto* refusal = std::get_if<Refusal>(&frame)) {
            ++m_refused[static_cast<size_t>(refusal->rung)];
            if (!m_options.run.quiet) {
                Show({m_options.run.json ? RefusalJson(*refusal) : RefusalLine(*refusal)});
            }
        } else {
            OnRequest(sender);
        }
    }

    void OnRequest(const UdpPort::Sender& sender) {
        ++m_requests;
        if (!m_options.isAnswering) {
            return;
        }
        if (auto reply = m_answerer.Answer(v2xpub_CommGetCurrentTime64())) {
            const int error = sender.Reply(*reply);
            m_answerer.Sent(*reply, error);
        }
    }

    void OnRecord(const SpatRecord& record, uint64_t receiveTime) {
        ++m_records;
        m_answerer.OnRecord(record);
        m_emptyEntries += record.emptyEntries;
        for (const Phase& phase : record.phases) {
            m_states += phase.states.size();
        }
        if (!m_options.run.quiet) {
            Show(m_options.run.json ? std::vector{RecordJson(record, receiveTime)} : RecordLines(record));
        }
        if (m_records == m_options.run.limits.count) {
            End();
        }
    }

    void Show(const std::vector<std::string>& lines) {
        for (const std::string& line : lines) {
            if (!m_output.Line(line)) {
                End();
            }
        }
    }

    void End() {
        m_isDone = true;
        m_loop.Stop();
    }

    // From here on: after the port is closed.

    uint64_t AllRefused() const {
        uint64_t all = 0;
        for (const uint64_t count : m_refused) {
            all += count;
        }
        return all;
    }

    std::string RefusedText() const {
        std::string rungs;
        for (size_t rung = 0; rung < RUNGS; ++rung) {
            if (m_refused[rung] != 0) {
                rungs += FormatText("%s%s %" PRIu64, rungs.empty() ? "" : ", ", RungName(static_cast<Rung>(rung)),
                                    m_refused[rung]);
            }
        }
        return FormatText("%" PRIu64 " refused", AllRefused()) + (rungs.empty() ? "" : " (" + rungs + ")");
    }

    Summary MakeSummary() const {
        const v2xpub_UdpSocketStats_t stats = m_port.Stats();
        Summary summary;
        summary.text =
            FormatText("stack: %" PRIu64 " records (%" PRIu64 " phase states), %" PRIu64 " SPAT requests, %s",
                       m_records, m_states, m_requests, RefusedText().c_str());
        summary.numbers = {
            {"records", m_records}, {"phaseStates", m_states}, {"requests", m_requests}, {"refused", AllRefused()}};
        for (size_t rung = 0; rung < RUNGS; ++rung) {
            std::string key = RungName(static_cast<Rung>(rung));
            key.front() = static_cast<char>(std::toupper(static_cast<unsigned char>(key.front())));
            summary.numbers.emplace_back("refused" + key, m_refused[rung]);
        }
        const struct {
            const char* key;
            const char* text;
            uint64_t count;
        } extras[] = {
            {"emptyEntries", "empty phase entries", m_emptyEntries},
            {"tooLong", "too long to be received", stats.tooLong},
            {"kernelDrops", "lost in a full receive buffer", stats.kernelDrops},
        };
        for (const auto& extra : extras) {
            summary.numbers.emplace_back(extra.key, extra.count);
            if (extra.count != 0) {
                summary.text += FormatText(", %" PRIu64 " %s", extra.count, extra.text);
            }
        }
        if (m_options.isAnswering) {
            m_answerer.AddTo(summary);
        }
        if (IsDamaging()) {
            summary.numbers.emplace_back("seed", m_seed);
        }
        return summary;
    }

    const StackOptions& m_options;
    const uint32_t m_seed;
    Answerer m_answerer;
    Output m_output{stdout};
    bool m_isDone = false;
    uint64_t m_records = 0;
    uint64_t m_states = 0;
    uint64_t m_emptyEntries = 0;
    uint64_t m_requests = 0;
    std::array<uint64_t, RUNGS> m_refused{};
    RunLoop m_loop; // before the port, whose thread is to leave the signals alone
    UdpPort m_port;
};

} // namespace

void RunStack(const StackOptions& options) {
    Stack(options).Run();
}

} // namespace sim

#include "learner.h"

#include <algorithm>
#include <atomic>
#include <cinttypes>
#include <cstring>
#include <memory>
#include <random>

#include "damage.h"
#include "output.h"
#include "play.h"
#include "replay.h"
#include "run_loop.h"
#include "source.h"
#include "summary.h"
#include "text.h"
#include "udp_port.h"

namespace sim {
namespace {

// Counted on the receive thread, read by the main one.
struct Received {
    std::atomic<uint64_t> heartbeats{0};
    std::atomic<uint64_t> unknown{0};

    void Count(std::span<const uint8_t> datagram) {
        const bool isHeartbeat = std::ranges::equal(datagram, HEARTBEAT);
        (isHeartbeat ? heartbeats : unknown).fetch_add(1, std::memory_order_relaxed);
    }
};

struct Sent {
    std::array<uint64_t, REPORT_KINDS> byKind{};
    uint64_t all = 0;
    uint64_t errors = 0;
    int lastError = 0;
};

class Learner {
public:
    explicit Learner(const LearnerOptions& options)
        : m_options(options), m_seed(options.seed ? *options.seed : std::random_device{}()),
          m_damage(options.damage, std::max<size_t>(options.damageKinds.size(), 1), m_seed),
          m_notes(options.run.json ? stderr : stdout), m_source(MakeSource(options)),
          m_port("learner", options.listen, [this](std::span<const uint8_t> datagram) { m_received.Count(datagram); }) {
        m_port.SetTarget(options.target);
    }

    void Run() {
        Announce();
        Play(m_loop, *m_source, m_options.run.limits,
             {[this](std::vector<uint8_t> datagram) { Send(datagram); },
              [this](std::chrono::nanoseconds now) { ShowState(now); }});
        m_port.Close();
        Output output(stdout);
        ReportSummary(MakeSummary(), m_options.run.json, m_options.run.summaryFile, output);
        output.CheckFailure();
    }

private:
    static std::unique_ptr<DatagramSource> MakeSource(const LearnerOptions& options) {
        if (options.replayFile.empty()) {
            const auto start = std::chrono::nanoseconds(static_cast<int64_t>(options.start * 1e9));
            return std::make_unique<PlanSource>(options.rate, options.phases, start, EncodeReport);
        }
        return std::make_unique<ReplaySource>(ReadReplayFile(options.replayFile), options.replayLoop);
    }

    void Announce() {
        if (!m_options.run.quiet) {
            Note(FormatText("learner: reports from %s to %s", EndpointText(m_options.listen).c_str(),
                            EndpointText(m_options.target).c_str()));
        }
        if (m_options.damage > 0) {
            Note(FormatText("learner: damage with --seed %" PRIu32, m_seed));
        }
    }

    void Note(const std::string& line) {
        if (!m_notes.Line(line)) {
            m_loop.Stop();
        }
    }

    void Send(std::vector<uint8_t>& datagram) {
        if (const auto hit = m_damage.Next()) {
            DamageReport(datagram, m_options.damageKinds[hit->kind], hit->random);
        }
        if (const int error = m_port.Send(datagram); error != 0) {
            ++m_sent.errors;
            m_sent.lastError = error;
            return;
        }
        ++m_sent.all;
        ++m_sent.byKind[static_cast<size_t>(ClassifyReport(datagram))];
    }

    std::string SendErrors() const {
        return m_sent.errors == 0
                   ? ""
                   : FormatText(", %" PRIu64 " send errors (%s)", m_sent.errors, std::strerror(m_sent.lastError));
    }

    void ShowState(std::chrono::nanoseconds now) {
        if (!m_options.run.quiet) {
            Note(FormatText("%4.0f s  sent %" PRIu64 ", heartbeats %" PRIu64 "%s | %s",
                            std::chrono::duration<double>(now).count(), m_sent.all,
                            m_received.heartbeats.load(std::memory_order_relaxed), SendErrors().c_str(),
                            m_source->State(now).c_str()));
        }
    }

    Summary MakeSummary() const {
        const auto kind = [this](ReportKind which) { return m_sent.byKind[static_cast<size_t>(which)]; };
        const uint64_t heartbeats = m_received.heartbeats.load(std::memory_order_relaxed);
        const uint64_t unknown = m_received.unknown.load(std::memory_order_relaxed);
        Summary summary;
        summary.text = FormatText("learner: sent %" PRIu64 " reports (%" PRIu64 " good, %" PRIu64
                                  " wrong start, %" PRIu64 " wrong length, %" PRIu64 " count too high), %" PRIu64
                                  " heartbeats received, %" PRIu64 " unknown datagrams",
                                  m_sent.all, kind(ReportKind::good), kind(ReportKind::wrongStart),
                                  kind(ReportKind::wrongLength), kind(ReportKind::highCount), heartbeats, unknown) +
                       SendErrors();
        summary.numbers = {{"sent", m_sent.all},
                           {"good", kind(ReportKind::good)},
                           {"wrongStart", kind(ReportKind::wrongStart)},
                           {"wrongLength", kind(ReportKind::wrongLength)},
                           {"countTooHigh", kind(ReportKind::highCount)},
                           {"heartbeats", heartbeats},
                           {"unknown", unknown},
                           {"sendErrors", m_sent.errors}};
        if (m_options.damage > 0) {
            summary.numbers.emplace_back("seed", m_seed);
        }
        return summary;
    }

    const LearnerOptions& m_options;
    uint32_t m_seed;
    DamageShare m_damage;
    Sent m_sent;
    Received m_received;
    Output m_notes;
    std::unique_ptr<DatagramSource> m_source;
    RunLoop m_loop; // before the port, whose thread is to leave the signals alone
    UdpPort m_port;
};

} // namespace

void RunLearner(const LearnerOptions& options) {
    Learner(options).Run();
}

} // namespace sim

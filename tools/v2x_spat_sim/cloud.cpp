#include "cloud.h"

#include <algorithm>
#include <cinttypes>
#include <ctime>
#include <mutex>
#include <random>

#include "cloud_intake.h"
#include "dds_port.h"
#include "output.h"
#include "run_loop.h"
#include "service_status.h"
#include "text.h"
#include "v2x/v2xpub.h"

namespace sim {
namespace {

using namespace std::chrono_literals;

constexpr Clock::duration LOOK_AGAIN = 100ms; // for a reader
constexpr Clock::duration SETTLE = 300ms;     // until a new reader knows of us as well
constexpr Clock::duration LINGER = 500ms;     // until the last sample has arrived

constexpr const char* STATUS_UP = "/pelko/v2x/cloud/service_status";
constexpr const char* STATUS_DOWN = "/pelko/cloud/v2x/service_status";

// Local time of the day.
std::string ClockText(uint64_t microseconds) {
    const auto seconds = static_cast<time_t>(microseconds / 1000000);
    tm local{};
    localtime_r(&seconds, &local);
    return FormatText("%02d:%02d:%02d.%03u", local.tm_hour, local.tm_min, local.tm_sec,
                      static_cast<unsigned>(microseconds / 1000 % 1000));
}

// A topic to publish on, once someone reads it.
class Outlet {
public:
    explicit Outlet(std::string topic) : m_topic(std::move(topic)) {}

    const std::string& Topic() const { return m_topic; }

    // Says so in `notes` when this has changed.
    bool IsReady(const DdsPort& port, Clock::time_point now, Output* notes) {
        const bool isRead = port.HasReader(m_topic);
        if (isRead != m_readSince.has_value() || !m_isKnown) {
            m_isKnown = true;
            m_readSince = isRead ? std::optional(now) : std::nullopt;
            if (notes != nullptr) {
                notes->Line(
                    FormatText("cloud: %s %s", isRead ? "a reader of" : "waiting for a reader of", m_topic.c_str()));
            }
        }
        return isRead && now - *m_readSince >= SETTLE;
    }

private:
    std::string m_topic;
    bool m_isKnown = false;
    std::optional<Clock::time_point> m_readSince;
};

class Cloud {
public:
    explicit Cloud(const CloudOptions& options)
        : m_options(options), m_seed(options.seed ? *options.seed : std::random_device{}()),
          m_upTopic("rsu/" + options.device + "/spat/up"), m_intake(m_upTopic, STATUS_UP, options.run.json),
          m_downs(options.downs, m_seed), m_documents("rsu/" + options.device + "/spat/down"), m_status(STATUS_DOWN),
          m_port(
              options.domain,
              {{m_upTopic,
                [this](std::span<const uint8_t> sample) { OnSample(&CloudIntake::OnDocumentSample, sample); }},
               {STATUS_UP, [this](std::span<const uint8_t> sample) { OnSample(&CloudIntake::OnStatusSample, sample); }},
               {m_documents.Topic(), {}},
               {m_status.Topic(), {}}}) {}

    void Run() {
        Announce();
        const Clock::time_point end = EndOfRun(Clock::now(), m_options.run.limits.seconds);
        bool isGoingOn = true;
        while (isGoingOn && !IsDone() && Clock::now() < end) {
            const Clock::time_point next = std::min(PublishStatus(Clock::now()), PublishDocument(Clock::now()));
            isGoingOn = IsDone() || m_loop.WaitUntil(std::min(next, end));
        }
        if (isGoingOn && m_downs.All() != 0) {
            m_loop.WaitUntil(Clock::now() + LINGER);
        }
        m_port.Close();
        ReportSummary(MakeSummary(), m_options.run.json, m_options.run.summaryFile, m_output);
        m_output.CheckFailure();
    }

private:
    Output* Notes() {
        if (m_options.run.quiet) {
            return nullptr;
        }
        return m_options.run.json ? &m_errors : &m_output;
    }

    void Announce() {
        if (Notes() != nullptr) {
            Notes()->Line(FormatText("cloud: DDS domain %" PRId32 ", reading %s and %s", m_options.domain,
                                     m_upTopic.c_str(), STATUS_UP));
        }
        if (m_options.downs.bad > 0) {
            (m_options.run.json ? m_errors : m_output)
                .Line(FormatText("cloud: bad documents with --seed %" PRIu32, m_seed));
        }
    }

    bool IsDone() const {
        return m_options.isSending && m_options.run.limits.count != 0 && m_downs.All() >= m_options.run.limits.count;
    }

    // The two topics have threads of their own.
    void OnSample(std::string (CloudIntake::*take)(std::span<const uint8_t>, uint64_t),
                  std::span<const uint8_t> sample) {
        const uint64_t now = v2xpub_CommGetCurrentTime64();
        const std::lock_guard lock(m_mutex);
        if (m_isFull) {
            return;
        }
        const std::string line = (m_intake.*take)(sample, now);
        m_lastReceived = now;
        const bool isShown = !line.empty() && !m_options.run.quiet;
        const bool isTaken = !isShown || m_output.Line(m_options.run.json ? line : ClockText(now) + "  " + line);
        m_isFull = !m_options.isSending && m_options.run.limits.count != 0 &&
                   m_intake.Documents() >= m_options.run.limits.count;
        if (m_isFull || !isTaken) {
            m_loop.Stop();
        }
    }

    // Publishes what is due, and returns when to come again; the same below.
    Clock::time_point PublishStatus(Clock::time_point now) {
        if (m_options.runStates.empty()) {
            return Clock::time_point::max();
        }
        if (now < m_statusDue) {
            return m_statusDue;
        }
        if (!m_status.IsReady(m_port, now, Notes())) {
            return now + LOOK_AGAIN;
        }
        ServiceStatus status{SERVICE_CLOUD,
                             m_options.runStates[m_statuses % m_options.runStates.size()],
                             static_cast<uint32_t>(m_downs.All()),
                             m_lastSent,
                             0,
                             0};
        {
            const std::lock_guard lock(m_mutex);
            status.received = static_cast<uint32_t>(m_intake.Documents());
            status.lastReceived = m_lastReceived;
        }
        ++(m_port.Send(m_status.Topic(), EncodeStatus(status)) ? m_statuses : m_statusErrors);
        m_statusDue =
            now + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(m_options.statusInterval));
        return m_statusDue;
    }

    // The first document is due when there is a reader.
    Clock::time_point PublishDocument(Clock::time_point now) {
        if (!m_options.isSending) {
            return Clock::time_point::max();
        }
        if (!m_documents.IsReady(m_port, now, Notes())) {
            return now + LOOK_AGAIN;
        }
        const Clock::time_point start = m_sendingSince.value_or(now);
        m_sendingSince = start;
        if (start + m_downs.Due(now - start) <= now) {
            const CloudDowns::Load load = m_downs.Take();
            const bool isTaken = std::ranges::all_of(
                load.samples, [this](const std::string& sample) { return m_port.Send(m_documents.Topic(), sample); });
            m_downs.Sent(load, isTaken);
            m_lastSent = v2xpub_CommGetCurrentTime64();
        }
        return start + m_downs.Due(now - start);
    }

    Summary MakeSummary() const {
        Summary summary;
        summary.text = "cloud: ";
        m_intake.AddTo(summary);
        m_downs.AddTo(summary);
        summary.text += FormatText(", %" PRIu64 " times the cloud's status", m_statuses);
        summary.numbers.emplace_back("statusSent", m_statuses);
        summary.numbers.emplace_back("statusErrors", m_statusErrors);
        if (m_options.downs.bad > 0) {
            summary.numbers.emplace_back("seed", m_seed);
        }
        return summary;
    }

    const CloudOptions& m_options;
    const uint32_t m_seed;
    Output m_output{stdout};
    Output m_errors{stderr};
    std::string m_upTopic;
    std::mutex m_mutex; // of the next three
    CloudIntake m_intake;
    uint64_t m_lastReceived = 0;
    bool m_isFull = false;
    CloudDowns m_downs;
    Outlet m_documents;
    Outlet m_status;
    std::optional<Clock::time_point> m_sendingSince;
    Clock::time_point m_statusDue{};
    uint64_t m_lastSent = 0;
    uint64_t m_statuses = 0;
    uint64_t m_statusErrors = 0;
    RunLoop m_loop; // before the port, whose threads are to leave the signals alone
    DdsPort m_port;
};

} // namespace

void RunCloud(const CloudOptions& options) {
    Cloud(options).Run();
}

} // namespace sim

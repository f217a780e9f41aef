#include <algorithm>
#include <cinttypes>
#include <ctime>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>

#include "cloud_traffic.h"
#include "command_line.h"
#include "common/files.h"
#include "port.h"
#include "replay.h"
#include "roles.h"
#include "session.h"
#include "text.h"
#include "v2x/v2xpub.h"

namespace sim {
namespace {

using namespace std::chrono_literals;

constexpr int MAX_DOMAIN = 232;
constexpr size_t MAX_FRAGMENT = 65536;

constexpr Clock::duration READER_POLL = 100ms; // the interval between two searches for a reader
constexpr Clock::duration MATCH_DELAY = 300ms; // within this time, a new reader also matches the simulator's writer
constexpr Clock::duration FINAL_DELAY = 500ms; // within this time, the last sample arrives

constexpr const char* STATUS_UP = "/pelko/v2x/cloud/service_status";
constexpr const char* STATUS_DOWN = "/pelko/cloud/v2x/service_status";

constexpr DamageTexts CLOUD_DAMAGE_TEXTS = {
    "--bad-documents", "Share of the documents that are bad, 0 to 1", "--bad-document-kinds",
    "Kinds of bad documents to choose from: syntax (not JSON), empty,\ntruncated, overflow (more than 20479 bytes), "
    "missing-key (no\nintersections, or an intersection without status, phases or id),\nwrong-type (intersections of "
    "another type)"};

constexpr const char* CLOUD_FOOTER =
    "The simulator publishes nothing without --rate, --document, --status or --replay. It\npublishes on a topic when "
    "the topic has a reader. It splits a document above 1024 bytes\ninto samples of 1024 bytes and a shorter last "
    "sample. If the size is a multiple of 1024, a\nsample of one byte, 0, ends the document. For the daemon, any "
    "sample below 1024 bytes ends a\ndocument: if --fragment is not a multiple of 1024, the daemon reads each fragment "
    "as a\nwhole document.";

// The statuses to publish, one after another, for each value of --status.
const std::map<std::string, std::vector<uint8_t>> RUN_STATES = {
    {"1", {RUN_AVAILABLE}},
    {"2", {RUN_UNAVAILABLE}},
    {"alternate", {RUN_AVAILABLE, RUN_UNAVAILABLE}},
    {"none", {}},
};

struct CloudOptions {
    RunOptions run; // the count limits the documents sent; without --rate and --document, the documents received
    int32_t domain = 200;
    std::string device = "RSU0001"; // device id of the road-side unit; the topic names contain it
    std::string status = "none";
    double statusInterval = 5; // seconds
    std::vector<std::string> documentFiles;
    std::optional<double> rate; // documents per second
    DownOptions downs;
    ReplayOptions replay; // replaces documents and statuses
};

// Formats the local time of day of a time in microseconds since 1970.
std::string FormatClock(uint64_t microseconds) {
    const auto seconds = static_cast<time_t>(microseconds / 1000000);
    tm local{};
    localtime_r(&seconds, &local);
    return FormatText("%02d:%02d:%02d.%03u", local.tm_hour, local.tm_min, local.tm_sec,
                      static_cast<unsigned>(microseconds / 1000 % 1000));
}

// A topic on which the simulator publishes while the topic has a reader.
class OutputTopic {
public:
    explicit OutputTopic(std::string topic) : m_topic(std::move(topic)) {}

    const std::string& Topic() const { return m_topic; }

    // Returns true if the topic has had a reader for MATCH_DELAY. Prints a line when a reader appears or disappears.
    bool IsReady(const DdsPort& port, Clock::time_point now, Session& session) {
        const bool isRead = port.HasReader(m_topic);
        if (isRead != m_readSince.has_value() || !m_isKnown) {
            m_isKnown = true;
            m_readSince = isRead ? std::optional(now) : std::nullopt;
            session.Note(
                FormatText("cloud: %s %s", isRead ? "a reader of" : "waiting for a reader of", m_topic.c_str()));
        }
        return isRead && now - *m_readSince >= MATCH_DELAY;
    }

private:
    std::string m_topic;
    bool m_isKnown = false;
    std::optional<Clock::time_point> m_readSince;
};

class Cloud {
public:
    explicit Cloud(const CloudOptions& options)
        : m_options(options), m_runStates(RUN_STATES.at(options.status)),
          m_isSending(options.downs.rate > 0 || !options.replay.file.empty()),
          m_session("cloud", options.run, options.downs.damage.share > 0 ? "bad documents" : ""),
          m_upTopic("rsu/" + options.device + "/spat/up"), m_reader(m_upTopic, STATUS_UP, options.run.json),
          m_downs(options.downs, m_session.Seed()), m_documents("rsu/" + options.device + "/spat/down"),
          m_port(
              options.domain,
              {{m_upTopic, [this](std::span<const uint8_t> sample) { OnSample(&UpReader::OnDocumentSample, sample); }},
               {STATUS_UP, [this](std::span<const uint8_t> sample) { OnSample(&UpReader::OnStatusSample, sample); }},
               {m_documents.Topic(), {}},
               {m_status.Topic(), {}}}) {
        const ReplayOptions& replay = options.replay;
        if (!replay.file.empty()) {
            m_replay.emplace(LoadSamples(replay.file, m_documents.Topic(), m_status.Topic()), replay.speed,
                             replay.isLooped);
        }
    }

    void Run() {
        m_session.Announce(
            FormatText("DDS domain %" PRId32 ", reading %s and %s", m_options.domain, m_upTopic.c_str(), STATUS_UP));
        const Clock::time_point end = DeadlineAfter(Clock::now(), m_options.run.seconds);
        bool isRunning = true;
        while (isRunning && !HasSentAll() && Clock::now() < end) {
            const Clock::time_point next =
                std::min({PublishStatus(Clock::now()), PublishDocument(Clock::now()), PublishReplay(Clock::now())});
            isRunning = HasSentAll() || m_session.WaitUntil(std::min(next, end));
        }
        if (isRunning && CountSent() != 0) {
            m_session.WaitUntil(Clock::now() + FINAL_DELAY);
        }
        m_port.Close();
        m_session.Finish(MakeSummary());
    }

private:
    uint64_t CountSent() const { return m_downs.Total() + m_replayed; }

    bool HasSentAll() const {
        const uint64_t most = m_options.run.count;
        return m_isReplayed || (m_isSending && most != 0 && CountSent() >= most);
    }

    // Runs on the DDS library's threads: one thread for each of the two topics.
    void OnSample(std::string (UpReader::*onSample)(std::span<const uint8_t>, uint64_t),
                  std::span<const uint8_t> sample) {
        const uint64_t now = v2xpub_CommGetCurrentTime64();
        const std::lock_guard lock(m_mutex);
        if (m_isFull) {
            return;
        }
        const std::string line = (m_reader.*onSample)(sample, now);
        m_lastReceived = now;
        if (!line.empty()) {
            m_session.Print(m_options.run.json ? line : FormatClock(now) + "  " + line);
        }
        if (!m_isSending && m_options.run.count != 0 && m_reader.Documents() >= m_options.run.count) {
            m_isFull = true;
            m_session.Stop();
        }
    }

    // Publishes a status if it is due. Returns the time of the next call.
    Clock::time_point PublishStatus(Clock::time_point now) {
        if (m_runStates.empty()) {
            return Clock::time_point::max();
        }
        if (now < m_statusDue) {
            return m_statusDue;
        }
        if (!m_status.IsReady(m_port, now, m_session)) {
            return now + READER_POLL;
        }
        const uint8_t run = m_runStates[m_statuses % m_runStates.size()];
        ServiceStatus status{SERVICE_CLOUD, run, static_cast<uint32_t>(m_downs.Total()), m_lastSent, 0, 0};
        {
            const std::lock_guard lock(m_mutex);
            status.received = static_cast<uint32_t>(m_reader.Documents());
            status.lastReceived = m_lastReceived;
        }
        ++(m_port.Send(m_status.Topic(), EncodeStatus(status)) ? m_statuses : m_statusErrors);
        m_statusDue = DeadlineAfter(now, m_options.statusInterval);
        return m_statusDue;
    }

    void Publish(const DownSource::Publication& publication) {
        const bool isPublished = std::ranges::all_of(publication.samples, [this](const std::string& sample) {
            return m_port.Send(m_documents.Topic(), sample);
        });
        m_downs.CountSent(publication, isPublished);
        m_lastSent = v2xpub_CommGetCurrentTime64();
    }

    // Publishes a document if it is due. Returns the time of the next call. The first document is due when the topic
    // has a reader.
    Clock::time_point PublishDocument(Clock::time_point now) {
        if (m_options.downs.rate <= 0) {
            return Clock::time_point::max();
        }
        if (!m_documents.IsReady(m_port, now, m_session)) {
            return now + READER_POLL;
        }
        const Clock::time_point start = m_sendingSince.value_or(now);
        m_sendingSince = start;
        if (start + m_downs.DueTime(now - start) <= now) {
            const DownSource::Publication publication = m_downs.TakeNext();
            if (!publication.samples.empty()) {
                Publish(publication);
            }
        }
        return start + m_downs.DueTime(now - start);
    }

    // Publishes a captured sample if it is due. Returns the time of the next call. The first sample is due when both
    // topics have a reader.
    Clock::time_point PublishReplay(Clock::time_point now) {
        if (!m_replay) {
            return Clock::time_point::max();
        }
        const bool isDocumentsReady = m_documents.IsReady(m_port, now, m_session);
        const bool isStatusReady = m_status.IsReady(m_port, now, m_session);
        if (!m_sendingSince && !(isDocumentsReady && isStatusReady)) {
            return now + READER_POLL;
        }
        m_sendingSince = m_sendingSince.value_or(now);
        if (*m_sendingSince + m_replay->DueTime({}).value() <= now) {
            const std::string topic = m_replay->NextTopic();
            const std::vector<uint8_t> sample = m_replay->TakeNext();
            ++(m_port.Send(topic, {sample.begin(), sample.end()}) ? m_replayed : m_replayErrors);
        }
        const auto due = m_replay->DueTime({});
        m_isReplayed = !due.has_value();
        return *m_sendingSince + due.value_or(std::chrono::nanoseconds(0));
    }

    Summary MakeSummary() const {
        Summary summary = m_reader.MakeSummary();
        m_downs.AddCounts(summary);
        summary.Add("statusSent", m_statuses, "cloud statuses sent");
        summary.AddIfAny("replayed", m_replayed, "captured samples sent");
        summary.AddIfAny("replayErrors", m_replayErrors, "captured samples rejected by the DDS library");
        summary.AddIfAny("statusErrors", m_statusErrors, "cloud statuses rejected by the DDS library");
        return summary;
    }

    const CloudOptions& m_options;
    const std::vector<uint8_t>& m_runStates;
    const bool m_isSending; // the simulator publishes documents or captured samples
    Session m_session;      // before m_port, so that the port's threads block the signals
    std::string m_upTopic;
    std::mutex m_mutex; // protects the next three members
    UpReader m_reader;
    uint64_t m_lastReceived = 0;
    bool m_isFull = false;
    DownSource m_downs;
    OutputTopic m_documents;
    OutputTopic m_status{STATUS_DOWN};
    std::optional<ReplaySource> m_replay;
    bool m_isReplayed = false; // all captured samples are sent
    uint64_t m_replayed = 0;
    uint64_t m_replayErrors = 0;
    std::optional<Clock::time_point> m_sendingSince;
    Clock::time_point m_statusDue{};
    uint64_t m_lastSent = 0;
    uint64_t m_statuses = 0;
    uint64_t m_statusErrors = 0;
    DdsPort m_port;
};

void RunCloud(CloudOptions& options) {
    for (const std::string& path : options.documentFiles) {
        options.downs.documents.push_back(tools::ReadFile(path, SampleJoiner::MAX_DOCUMENT));
    }
    Cloud(options).Run();
}

void AddDocumentOptions(CLI::App& cloud, CloudOptions& options) {
    DownOptions& downs = options.downs;
    cloud.add_option("--rate", options.rate, "Documents per second (default: 1 with --document, else 0: none)")
        ->check(tools::NumberInRange(0, 1e4))
        ->type_name("HZ");
    cloud.add_option("--document", options.documentFiles, "Send these files in a loop, unchanged, instead of the plan")
        ->type_name("FILE");
    const std::vector<CLI::Option*> plan = {
        AddNumberOption(cloud, "--phases", downs.phases.count, 1, MAX_PLAN_PHASES, "N",
                        "Phases of the plan, 1 to 36: 4 straight on, 4 left turns, and\nso on"),
        AddNumberOption(cloud, "--start", downs.start, 0, 1e6, "S", "Begin S seconds into the plan"),
        AddNumberOption(cloud, "--region", downs.intersection.region, 0, 65535, "N",
                        "Region of the plan's intersection"),
        AddNumberOption(cloud, "--node", downs.intersection.node, 0, 65535, "N", "Node id of the plan's intersection"),
        AddFaultOptions(cloud, downs.faults, FaultUser::cloud),
    };
    for (CLI::Option* const option : plan) {
        option->excludes("--document")->needs("--rate");
    }
    cloud
        .add_option("--fragment", downs.fragmentSize,
                    "Split each document into fragments of SIZE bytes (default: the DDS\nlibrary splits the document)")
        ->check(tools::NumberInRange(1, MAX_FRAGMENT))
        ->type_name("SIZE");
}

} // namespace

void AddCloud(CLI::App& app, Run& run) {
    const auto options = std::make_shared<CloudOptions>();
    CLI::App& cloud = *app.add_subcommand(
        "cloud", "Play the cloud: show the daemon's documents and status; with options, send documents\nand the "
                 "cloud's status");
    AddNumberOption(cloud, "--domain", options->domain, 0, MAX_DOMAIN, "N", "DDS domain, on 127.0.0.1");
    cloud.add_option("--device", options->device, "Device id of the road-side unit: device_id of sysinfo.xml")
        ->type_name("ID")
        ->capture_default_str();
    cloud
        .add_option("--status", options->status,
                    "The cloud's run status: 1 (available), 2 (unavailable),\nalternate, none (sends no status)")
        ->check(CLI::IsMember(RUN_STATES).description(""))
        ->type_name("STATUS")
        ->capture_default_str();
    AddNumberOption(cloud, "--status-interval", options->statusInterval, 0.01, 1e6, "S", "Seconds between two statuses")
        ->needs("--status");
    AddDocumentOptions(cloud, *options);
    AddReplayOptions(cloud, options->replay,
                     "Send the documents and statuses for the daemon in the capture FILE\nof v2x_spat_ctl to --device, "
                     "instead of others");
    for (const char* const other : {"--rate", "--document", "--status"}) {
        cloud.get_option("--replay")->excludes(other);
    }
    AddDamageOptions(cloud, options->downs.damage, options->run, DOCUMENT_KINDS, CLOUD_DAMAGE_TEXTS);
    cloud.get_option("--seed")->needs("--bad-documents");
    AddRunOptions(cloud, options->run, "documents: sent with --rate or --document, otherwise\nreceived",
                  "Print each received document and status and the summary as one\nJSON object per line; print lines "
                  "for people on standard error");
    cloud.footer(CLOUD_FOOTER);
    cloud.callback([&run, options] {
        DownOptions& downs = options->downs;
        downs.rate = options->rate.value_or(options->documentFiles.empty() ? 0 : 1);
        if (downs.rate == 0 && (downs.fragmentSize != 0 || downs.damage.share > 0)) {
            throw CLI::ValidationError("--fragment and --bad-documents require --rate or --document");
        }
        run = [options] { RunCloud(*options); };
    });
}

} // namespace sim

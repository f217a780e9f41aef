// The documents and status records that the cloud and the road-side unit exchange.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "cloud_document.h"
#include "damage.h"
#include "source.h"
#include "summary.h"

namespace sim {

// Status of a service: 26 bytes, little-endian, in the order of the members.
struct ServiceStatus {
    uint8_t service = 0;
    uint8_t run = 0;
    uint32_t sent = 0;
    uint64_t lastSent = 0; // microseconds since 1970; 0 means never
    uint32_t received = 0;
    uint64_t lastReceived = 0; // microseconds since 1970; 0 means never
};
inline constexpr uint8_t SERVICE_CLOUD = 5;
inline constexpr uint8_t RUN_AVAILABLE = 1;
inline constexpr uint8_t RUN_UNAVAILABLE = 2;

// Returns the 26 bytes of the status.
std::string EncodeStatus(const ServiceStatus& status);

// Returns an empty optional if `bytes` is not 26 bytes long.
std::optional<ServiceStatus> ReadStatus(std::span<const uint8_t> bytes);

// Formats a status: "SPAT available, 3 sent, 4 received". Shows unknown numbers as "service 9" and "run status 0".
std::string FormatStatus(const ServiceStatus& status);

// Checks, counts and describes the documents and status records that the daemon publishes. One thread at a time.
class UpReader {
public:
    // Each line names its topic. The lines are JSON objects if `json` is true, otherwise text for people.
    UpReader(std::string documentTopic, std::string statusTopic, bool json);

    // Both functions process one sample of their topic, received at `time` (microseconds since 1970). They return a
    // line that describes the document or status. The line is empty while the document is incomplete.
    std::string OnDocumentSample(std::span<const uint8_t> sample, uint64_t time);
    std::string OnStatusSample(std::span<const uint8_t> sample, uint64_t time);

    uint64_t Documents() const { return m_good + m_bad; }
    Summary MakeSummary() const;

private:
    std::string DocumentLine(const SampleJoiner::Document& document, uint64_t time);

    std::string m_documentTopic;
    std::string m_statusTopic;
    bool m_json;
    SampleJoiner m_joiner;
    uint64_t m_good = 0;
    uint64_t m_bad = 0;
    uint64_t m_statuses = 0;
    uint64_t m_badStatuses = 0;
};

struct DownOptions {
    std::vector<std::string> documents; // sent one after another in a loop; if empty, the plan is sent
    double rate = 0;                    // documents per second; 0 sends no document
    PhaseRange phases;                  // of the plan
    double start = 0;                   // the time in the plan, in seconds, at which the run begins
    Intersection intersection;          // of the plan
    FaultOptions faults;                // of the plan
    size_t fragmentSize = 0;            // bytes; 0 publishes each document as a whole
    DamageOptions damage;               // kinds are values of DocumentKind
};

// Makes the documents for the daemon one after another, and counts them. The rate must be above 0. Times are relative
// to the start of sending. One thread at a time.
class DownSource {
public:
    DownSource(const DownOptions& options, uint32_t seed);

    struct Publication {
        std::vector<std::string> samples; // in the order of publication; none: nothing must be published
        DocumentKind kind;
    };

    // Returns when the next document is due. Skips documents that are more than a second late.
    std::chrono::nanoseconds DueTime(std::chrono::nanoseconds now);
    // Returns the next document and advances to the one after it.
    Publication TakeNext();
    // Counts a publication as published or as rejected by the DDS library.
    void CountSent(const Publication& publication, bool isPublished);

    uint64_t Total() const { return m_kinds.Total(); }
    void AddCounts(Summary& summary) const;

private:
    // Returns the text of the next document, or an empty optional if nothing must be published.
    std::optional<std::string> NextText();

    DownOptions m_options;
    PlanSource m_plan; // also times the documents from files
    DamageShare m_damage;
    size_t m_next = 0;
    uint64_t m_errors = 0;
    KindCount m_kinds{DOCUMENT_KINDS};
};

} // namespace sim

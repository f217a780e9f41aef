// The documents and status records between the cloud and the unit, both ways.
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

// Status of a service, as the unit's processes and the cloud publish it: 26 bytes, low byte first. Service (1), run
// status (1), packets sent (4), time of the last one (8), packets received (4), time of the last one (8).
struct ServiceStatus {
    uint8_t service = 0;
    uint8_t run = 0;
    uint32_t sent = 0;
    uint64_t lastSent = 0; // microseconds since 1970; 0 = never
    uint32_t received = 0;
    uint64_t lastReceived = 0; // the same
};
inline constexpr uint8_t SERVICE_CLOUD = 5;
inline constexpr uint8_t RUN_AVAILABLE = 1;
inline constexpr uint8_t RUN_UNAVAILABLE = 2;

// The bytes to publish.
std::string EncodeStatus(const ServiceStatus& status);

// Empty unless there are exactly 26 bytes.
std::optional<ServiceStatus> ReadStatus(std::span<const uint8_t> bytes);

// "SPAT available, 3 sent, 4 received"; "service 9", "run status 0" for unknown numbers.
std::string StatusText(const ServiceStatus& status);

// Checks, counts and describes what the daemon publishes. One thread at a time.
class UpReader {
public:
    // Lines name the topics. They are JSON objects with `json`, else for people.
    UpReader(std::string documentTopic, std::string statusTopic, bool json);

    // Takes one sample of the topic. Returns the line about it; empty while a document is incomplete. `time` in
    // microseconds since 1970.
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
    std::vector<std::string> documents; // sent in turn and from the first again; the plan when there are none
    double rate = 0;                    // documents per second; 0: none is sent
    PhaseRange phases;                  // of the plan
    Intersection intersection;          // of the plan
    size_t piece = 0;                   // bytes published at a time; 0: whole
    DamageOptions damage;               // by DocumentKind
};

// Makes the documents for the daemon one after another, and counts them. Only with a rate above 0. One thread at a
// time. Times count from the start of sending.
class DownSource {
public:
    DownSource(const DownOptions& options, uint32_t seed);

    struct Load {
        std::vector<std::string> samples; // to be published one by one
        DocumentKind kind;
    };

    // When the next document is due; documents that are more than a second late are skipped.
    std::chrono::nanoseconds Due(std::chrono::nanoseconds now);
    // Returns the document that is due and moves on to the next.
    Load Take();
    // Counts a load as published, or as rejected by the library.
    void Sent(const Load& load, bool isPublished);

    uint64_t All() const { return m_kinds.All(); }
    void AddTo(Summary& summary) const;

private:
    std::string NextText();

    DownOptions m_options;
    PlanSource m_plan; // also the clock of documents from files
    DamageShare m_damage;
    size_t m_next = 0;
    uint64_t m_errors = 0;
    KindCount m_kinds{DOCUMENT_KINDS};
};

} // namespace sim

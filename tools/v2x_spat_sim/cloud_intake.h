// What the daemon publishes, as the cloud takes it: documents and status records, checked, counted and put into words.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "cloud_pieces.h"
#include "summary.h"

namespace sim {

// One thread at a time.
class CloudIntake {
public:
    // The topics' names are for the lines. Lines are for people, or JSON objects for programs.
    CloudIntake(std::string documentTopic, std::string statusTopic, bool json);

    // One more sample of the topic; the line about what it completes, without its time for people. Empty when more is
    // to come. `time` in microseconds since 1970.
    std::string OnDocumentSample(std::span<const uint8_t> sample, uint64_t time);
    std::string OnStatusSample(std::span<const uint8_t> sample, uint64_t time);

    uint64_t Documents() const { return m_good + m_bad; }
    void AddTo(Summary& summary) const;

private:
    std::string DocumentLine(const PieceAssembler::Document& document, uint64_t time);

    std::string m_documentTopic;
    std::string m_statusTopic;
    bool m_json;
    PieceAssembler m_assembler;
    uint64_t m_good = 0;
    uint64_t m_bad = 0;
    uint64_t m_statuses = 0;
    uint64_t m_badStatuses = 0;
};

} // namespace sim

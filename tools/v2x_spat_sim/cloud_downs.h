// The documents that the simulated cloud publishes, one after another, and the count of them.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cloud_document.h"
#include "damage.h"
#include "source.h"
#include "summary.h"

namespace sim {

struct DownOptions {
    std::vector<std::string> documents; // to be sent in turn, from the first one again after the last; none: the plan
    double rate = 1;                    // documents per second, above 0
    PhaseRange phases;                  // of the plan
    Intersection intersection;          // the same
    size_t fragment = 0;                // bytes published at a time; 0: whole
    double bad = 0;                     // share of the documents, 0 to 1
    std::vector<DocumentKind> badKinds;
};

// One thread at a time. Times count from the start of sending.
class CloudDowns {
public:
    CloudDowns(const DownOptions& options, uint32_t seed);

    struct Load {
        std::vector<std::string> samples; // to be published one by one
        DocumentKind kind;
    };

    // When the next document is due; what is more than a second late is left out.
    std::chrono::nanoseconds Due(std::chrono::nanoseconds now);
    // The document that is due, and on to the next.
    Load Take();
    // The load was published, or refused.
    void Sent(const Load& load, bool isTaken);

    uint64_t All() const { return m_all; }
    void AddTo(Summary& summary) const;

private:
    std::string NextText();

    DownOptions m_options;
    PlanSource m_plan; // the clock of the files, too
    DamageShare m_damage;
    size_t m_next = 0;
    uint64_t m_all = 0;
    uint64_t m_errors = 0;
    std::array<uint64_t, DOCUMENT_KINDS> m_byKind{};
};

} // namespace sim

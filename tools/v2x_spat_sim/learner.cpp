#include "learner.h"

#include <algorithm>
#include <atomic>
#include <cinttypes>

#include "damage.h"
#include "text.h"

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
};

class Learner : public Device {
public:
    explicit Learner(const LearnerOptions& options)
        : Device({"learner", "reports"}, options.device, options.device.damage > 0 ? "damage" : "", options.phases,
                 EncodeReport),
          m_damageKinds(options.damageKinds),
          m_damage(options.device.damage, std::max<size_t>(options.damageKinds.size(), 1), Seed()) {}

private:
    void OnReading(std::vector<uint8_t>& datagram) override {
        if (const auto hit = m_damage.Next()) {
            DamageReport(datagram, m_damageKinds[hit->kind], hit->random);
        }
        if (Send(datagram)) {
            ++m_sent.all;
            ++m_sent.byKind[static_cast<size_t>(ClassifyReport(datagram))];
        }
    }

    void OnReceived(std::span<const uint8_t> datagram) override { m_received.Count(datagram); }

    std::string Counts() const override {
        return FormatText("sent %" PRIu64 ", heartbeats %" PRIu64, m_sent.all,
                          m_received.heartbeats.load(std::memory_order_relaxed));
    }

    Summary MakeSummary() const override {
        const auto kind = [this](ReportKind which) { return m_sent.byKind[static_cast<size_t>(which)]; };
        const uint64_t heartbeats = m_received.heartbeats.load(std::memory_order_relaxed);
        const uint64_t unknown = m_received.unknown.load(std::memory_order_relaxed);
        Summary summary;
        summary.text = FormatText("learner: sent %" PRIu64 " reports (%" PRIu64 " good, %" PRIu64
                                  " wrong start, %" PRIu64 " wrong length, %" PRIu64 " count too high), %" PRIu64
                                  " heartbeats received, %" PRIu64 " unknown datagrams",
                                  m_sent.all, kind(ReportKind::good), kind(ReportKind::wrongStart),
                                  kind(ReportKind::wrongLength), kind(ReportKind::highCount), heartbeats, unknown);
        summary.numbers = {{"sent", m_sent.all},
                           {"good", kind(ReportKind::good)},
                           {"wrongStart", kind(ReportKind::wrongStart)},
                           {"wrongLength", kind(ReportKind::wrongLength)},
                           {"countTooHigh", kind(ReportKind::highCount)},
                           {"heartbeats", heartbeats},
                           {"unknown", unknown}};
        return summary;
    }

    const std::vector<ReportKind>& m_damageKinds;
    DamageShare m_damage;
    Sent m_sent;
    Received m_received;
};

} // namespace

void RunLearner(const LearnerOptions& options) {
    Learner(options).Run();
}

} // namespace sim

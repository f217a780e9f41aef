#include <algorithm>
#include <cinttypes>
#include <memory>

#include "command_line.h"
#include "device.h"
#include "learner_report.h"
#include "roles.h"
#include "text.h"

namespace sim {
namespace {

constexpr DeviceRole LEARNER_ROLE = {"learner", "Play the signal learner: send phase reports to the daemon", "reports",
                                     "Destination of the reports: the daemon's LearnMachine.LocalPort",
                                     "Local address that sends reports and receives heartbeats: the\ndaemon's "
                                     "LearnMachine.Port."};

constexpr DamageTexts LEARNER_DAMAGE_TEXTS = {
    "--damage", "Share of the reports that are damaged, 0 to 1", "--damage-kinds",
    "Kinds of damage to choose from: start (wrong start bytes),\nlength (wrong length field), count (a phase "
    "count that is too high)"};

struct LearnerOptions {
    DeviceOptions device;
    PhaseRange phases;
    DamageOptions damage;
};

class Learner : public Device {
public:
    explicit Learner(const LearnerOptions& options)
        : Device(LEARNER_ROLE, options.device, options.damage.share > 0 ? "damage" : "", options.phases, EncodeReport),
          m_damage(options.damage, Seed()) {}

private:
    void OnMessage(std::vector<uint8_t>& datagram) override {
        if (const auto hit = m_damage.Next()) {
            DamageReport(datagram, static_cast<ReportKind>(hit->kind), hit->random);
        }
        if (Send(datagram)) {
            m_sent.Add(ClassifyReport(datagram));
        }
    }

    bool IsHeartbeat(std::span<const uint8_t> datagram) const override {
        return std::ranges::equal(datagram, HEARTBEAT);
    }

    std::string FormatCounts() const override {
        return FormatText("sent %" PRIu64 ", heartbeats %" PRIu64, m_sent.Total(), Heartbeats());
    }

    Summary MakeSummary() const override {
        Summary summary(FormatText("sent %" PRIu64 " reports%s", m_sent.Total(), m_sent.Text().c_str()));
        summary.Add("sent", m_sent.Total());
        m_sent.AddNumbers(summary);
        summary.Add("heartbeats", Heartbeats(), "heartbeats received");
        return summary;
    }

    DamageShare m_damage;
    KindCount m_sent{REPORT_KINDS};
};

} // namespace

void AddLearner(CLI::App& app, Run& run) {
    const auto options = std::make_shared<LearnerOptions>();
    options->device.target = {LOOPBACK, 8002};
    options->device.listen = {"", 8001};
    options->device.rate = 2;
    CLI::App& learner = AddDevice(app, LEARNER_ROLE, options->device);
    AddNumberOption(learner, "--phases", options->phases.count, 1, MAX_PLAN_PHASES, "N",
                    "Phases in a report, 1 to 36: 4 straight on, 4 left turns,\nand so on")
        ->excludes("--replay");
    AddNumberOption(learner, "--first-phase", options->phases.first, 1, 256 - MAX_PLAN_PHASES, "N",
                    "Device number of the first phase")
        ->excludes("--replay");
    AddDamageOptions(learner, options->damage, options->device.run, REPORT_KINDS, LEARNER_DAMAGE_TEXTS);
    learner.get_option("--seed")->needs("--damage");
    learner.callback([&run, options] { run = [options] { Learner(*options).Run(); }; });
}

} // namespace sim

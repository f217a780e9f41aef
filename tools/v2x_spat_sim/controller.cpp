#include "controller.h"

#include <algorithm>
#include <atomic>
#include <cinttypes>
#include <utility>

#include "damage.h"
#include "light_damage.h"
#include "text.h"
#include "v2x/v2xpub.h"

namespace sim {
namespace {

// What the seed decides.
std::string ChanceOf(const ControllerOptions& options) {
    const std::pair<bool, const char*> chances[] = {{options.device.damage > 0, "damage"},
                                                    {options.stream.garbage > 0, "garbage"},
                                                    {options.stream.split > 1, "split"}};
    std::string text;
    for (const auto& [isOn, name] : chances) {
        if (isOn) {
            text += (text.empty() ? "" : ", ") + std::string(name);
        }
    }
    return text;
}

class Controller : public Device {
public:
    explicit Controller(const ControllerOptions& options)
        : Device({"controller", "frames"}, options.device, ChanceOf(options), PhaseRange{},
                 [shape = options.shape](std::span<const PhaseLight> movements) {
                     return Enclose(WithCrc(EncodePayload(movements, shape, v2xpub_CommGetCurrentTime64())));
                 }),
          m_damageKinds(options.damageKinds),
          m_damage(options.device.damage, std::max<size_t>(options.damageKinds.size(), 1), Seed()),
          m_stream(options.stream, Seed()) {}

private:
    void OnReading(std::vector<uint8_t>& frame) override {
        const auto hit = m_damage.Next();
        const FrameKind wanted = hit ? m_damageKinds[hit->kind] : FrameKind::good;
        const bool isDamaged = hit && DamageFrame(frame, wanted, hit->random);
        SendLoad(m_stream.Add(frame, isDamaged ? wanted : ClassifyFrame(frame)));
    }

    void OnEnd() override { SendLoad(m_stream.Rest()); }

    void OnReceived(std::span<const uint8_t> /*datagram*/) override {
        m_unknown.fetch_add(1, std::memory_order_relaxed);
    }

    // A load of which one datagram is refused is not sent on.
    void SendLoad(std::optional<Load> load) {
        if (!load) {
            return;
        }
        const FrameCount::Time now = Clock::now().time_since_epoch();
        for (std::vector<uint8_t>& datagram : load->datagrams) {
            if (!Send(datagram)) {
                if (&datagram != &load->datagrams.front()) {
                    m_count.Torn(now);
                }
                return;
            }
            ++m_datagrams;
            m_bytes += datagram.size();
        }
        m_count.Sent(*load, now);
    }

    std::string Counts() const override {
        return FormatText("sent %" PRIu64 " in %" PRIu64 " datagrams", m_count.All(), m_datagrams);
    }

    Summary MakeSummary() const override {
        const struct {
            const char* key;
            const char* text;
            FrameKind kind;
        } kinds[] = {
            {"good", "good", FrameKind::good},
            {"wrongCrc", "wrong CRC", FrameKind::wrongCrc},
            {"wrongLength", "wrong length", FrameKind::wrongLength},
            {"wrongDelimiter", "wrong delimiter", FrameKind::wrongDelimiter},
            {"wrongEscape", "wrong escape", FrameKind::wrongEscape},
            {"wrongType", "wrong type", FrameKind::wrongType},
            {"wrongCount", "count too high", FrameKind::wrongCount},
        };
        const uint64_t unknown = m_unknown.load(std::memory_order_relaxed);
        Summary summary;
        summary.numbers = {{"sent", m_count.All()}};
        std::string kindsText;
        for (const auto& [key, text, kind] : kinds) {
            summary.numbers.emplace_back(key, m_count.Of(kind));
            kindsText += FormatText("%s%" PRIu64 " %s", kindsText.empty() ? "" : ", ", m_count.Of(kind), text);
        }
        summary.text = FormatText(
            "controller: sent %" PRIu64 " frames (%s) in %" PRIu64 " datagrams, %" PRIu64 " bytes, %" PRIu64
            " after garbage, %" PRIu64 " good ones that damage may cut, %" PRIu64 " unknown datagrams",
            m_count.All(), kindsText.c_str(), m_datagrams, m_bytes, m_count.WithGarbage(), m_count.CutGood(), unknown);
        const std::pair<const char*, uint64_t> others[] = {{"cutGood", m_count.CutGood()},
                                                           {"datagrams", m_datagrams},
                                                           {"bytes", m_bytes},
                                                           {"garbage", m_count.WithGarbage()},
                                                           {"unknown", unknown}};
        summary.numbers.insert(summary.numbers.end(), std::begin(others), std::end(others));
        return summary;
    }

    const std::vector<FrameKind>& m_damageKinds;
    DamageShare m_damage;
    FrameStream m_stream;
    FrameCount m_count;
    uint64_t m_datagrams = 0;
    uint64_t m_bytes = 0;
    std::atomic<uint64_t> m_unknown{0}; // counted on the receive thread
};

} // namespace

void RunController(const ControllerOptions& options) {
    Controller(options).Run();
}

} // namespace sim

#include <cinttypes>
#include <memory>
#include <utility>

#include "command_line.h"
#include "device.h"
#include "frame_stream.h"
#include "roles.h"
#include "text.h"
#include "v2x/v2xpub.h"

namespace sim {
namespace {

constexpr DeviceRole ROLE = {
    "controller", "Play the GA/T 1743 traffic-signal controller: light-status frames to the daemon", "frames",
    "Where frames go: the daemon's SignalMachine1743.LocalPort", "Where frames leave."};

constexpr DamageTexts DAMAGE_TEXTS = {
    "--damage", "Share of the frames that are damaged, 0 to 1", "--damage-kinds",
    "Kinds of damage to choose from: crc (wrong CRC), length (bytes\nmissing or added, the CRC unchanged), delimiter "
    "(opening or\nclosing one missing, or one too many within), escape (DB before a\nwrong byte, or a C0 not escaped), "
    "type (other control type or\nobject id, the CRC right), count (more links or groups than the\nframe holds, the "
    "CRC "
    "right)"};

constexpr const char* FOOTER =
    "With at most 11 links and groups, and at most 20480 bytes in half a second, this holds:\n"
    "  good - cutGood <= records at the stack application <= good + wrongDelimiter\n"
    "The daemon rejects every damaged frame. A frame that lacks a delimiter is still whole when\na neighbour's "
    "delimiter replaces it. After a wrong delimiter, or a C0 not escaped, the daemon\ncan lose good frames until it "
    "discards what it has, every half second: cutGood counts the\ngood frames sent within 0.9 s of one. With --split "
    "the daemon may also discard the first part\nof a frame; it then loses this frame and those after it, and nothing "
    "counts them.\n"
    "Each line of a replay should hold one frame; any other line counts as a wrong delimiter.";

struct ControllerOptions {
    DeviceOptions device;
    FrameShape shape;
    StreamOptions stream;
};

// What the seed decides.
std::string RandomParts(const StreamOptions& stream) {
    const std::pair<bool, const char*> parts[] = {
        {stream.damage.share > 0, "damage"}, {stream.garbage > 0, "garbage"}, {stream.split > 1, "split"}};
    std::string text;
    for (const auto& [isRandom, name] : parts) {
        if (isRandom) {
            text += (text.empty() ? "" : ", ") + std::string(name);
        }
    }
    return text;
}

class Controller : public Device {
public:
    explicit Controller(const ControllerOptions& options)
        : Device(ROLE, options.device, RandomParts(options.stream), PhaseRange{},
                 [shape = options.shape](std::span<const PhaseLight> movements) {
                     return Enclose(WithCrc(EncodePayload(movements, shape, v2xpub_CommGetCurrentTime64())));
                 }),
          m_stream(options.stream, Seed()) {}

private:
    void OnReading(std::vector<uint8_t>& frame) override { SendLoad(m_stream.Add(std::move(frame))); }

    void OnEnd() override { SendLoad(m_stream.Rest()); }

    // Stops at the first datagram that cannot be sent.
    void SendLoad(std::optional<Load> load) {
        if (!load) {
            return;
        }
        const FrameCount::Time now = Clock::now().time_since_epoch();
        for (std::vector<uint8_t>& datagram : load->datagrams) {
            if (!Send(datagram)) {
                if (&datagram != &load->datagrams.front()) {
                    m_sent.Torn(now);
                }
                return;
            }
            ++m_datagrams;
            m_bytes += datagram.size();
        }
        m_sent.Sent(*load, now);
    }

    std::string Counts() const override {
        return FormatText("sent %" PRIu64 " in %" PRIu64 " datagrams", m_sent.Kinds().All(), m_datagrams);
    }

    Summary MakeSummary() const override {
        const KindCount& kinds = m_sent.Kinds();
        Summary summary(FormatText("sent %" PRIu64 " frames%s", kinds.All(), kinds.Text().c_str()));
        summary.Add("sent", kinds.All());
        kinds.AddNumbers(summary);
        summary.AddIfAny("cutGood", m_sent.CutGood(), "good ones that the daemon may lose");
        summary.Add("datagrams", m_datagrams, "datagrams");
        summary.Add("bytes", m_bytes, "bytes");
        summary.AddIfAny("garbage", m_sent.WithGarbage(), "frames after garbage");
        return summary;
    }

    FrameStream m_stream;
    FrameCount m_sent;
    uint64_t m_datagrams = 0;
    uint64_t m_bytes = 0;
};

void AddStreamOptions(CLI::App& app, StreamOptions& stream) {
    AddNumberOption(app, "--split", stream.split, 1, MAX_SPLIT, "N",
                    "Send each frame in N datagrams, 1 to 8, cut anywhere");
    AddNumberOption(app, "--batch", stream.batch, 1, MAX_BATCH, "N",
                    "Send N frames in one datagram, 1 to 8, when the last is due")
        ->excludes("--split");
    AddNumberOption(app, "--garbage", stream.garbage, 0, 1, "SHARE",
                    "Share of the frames that follow garbage, 0 to 1: 1 to 64 bytes\nother than C0");
}

} // namespace

void AddController(CLI::App& app, Run& run) {
    const auto options = std::make_shared<ControllerOptions>();
    options->device.target = {LOOPBACK, 9002};
    options->device.listen = {"", 9001};
    CLI::App& controller = AddDevice(app, ROLE, options->device);
    AddNumberOption(controller, "--links", options->shape.links, 0, MAX_LINKS, "N",
                    "Entry links of the crossing, 0 to 12: from north, east, south,\nwest, and so on")
        ->excludes("--replay");
    AddNumberOption(controller, "--groups", options->shape.groups, 0, MAX_GROUPS, "N",
                    "Lamp groups of each link, 0 to 12: straight on, left, right, two\ncrossings, and so on")
        ->excludes("--replay");
    AddDamageOptions(controller, options->stream.damage, options->device.run, FRAME_KINDS, DAMAGE_TEXTS);
    AddStreamOptions(controller, options->stream);
    controller.footer(FOOTER);
    controller.callback([&run, options] { run = [options] { Controller(*options).Run(); }; });
}

} // namespace sim

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

constexpr DeviceRole CONTROLLER_ROLE = {
    "controller", "Play the GA/T 1743 traffic-signal controller: send light-status frames to the daemon", "frames",
    "Destination of the frames: the daemon's SignalMachine1743.LocalPort", "Local address from which frames are sent."};

constexpr DamageTexts CONTROLLER_DAMAGE_TEXTS = {
    "--damage", "Share of the frames that are damaged, 0 to 1", "--damage-kinds",
    "Kinds of damage to choose from: crc (wrong CRC), length (missing or\nadded bytes with an unchanged CRC), "
    "delimiter (a missing or an\nadditional delimiter), escape (DB before a wrong byte, or a C0\nwithout an escape), "
    "type (another control type or object id with a\nright CRC), count (a count of links or groups that is too high, "
    "with\na right CRC)"};

constexpr const char* CONTROLLER_FOOTER =
    "The daemon rejects each damaged frame. With at most 11 links and groups, and at most\n20480 bytes in half a "
    "second, the stack application receives this number of records:\n"
    "  good - cutGood <= records <= good + wrongDelimiter\n"
    "A frame without a delimiter is still valid if a neighbour's delimiter replaces the\nmissing delimiter. After a "
    "missing or an "
    "additional delimiter, the daemon can lose good\nframes until it discards its buffer, within half a second. "
    "cutGood counts the good frames\nthat were sent less than 0.9 s after such a frame. With --split, the daemon may "
    "also discard\nthe first part of a frame; cutGood does not count the frames that are lost then.\n"
    "A replay counts each datagram as one frame. A datagram with another number of frames counts\nas wrongDelimiter.";

struct ControllerOptions {
    DeviceOptions device;
    FrameShape shape;
    StreamOptions stream;
};

// Returns the names of the random parts of the run, separated by commas.
std::string ListRandomParts(const StreamOptions& stream) {
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
        : Device(CONTROLLER_ROLE, options.device, ListRandomParts(options.stream), PhaseRange{},
                 [shape = options.shape](std::span<const PhaseLight> movements) {
                     return WrapFrame(AppendCrc(EncodePayload(movements, shape, v2xpub_CommGetCurrentTime64())));
                 }),
          m_stream(options.stream, Seed()) {}

private:
    void OnMessage(std::vector<uint8_t>& frame) override { SendAll(m_stream.Add(std::move(frame))); }

    void OnEnd() override { SendAll(m_stream.TakeRest()); }

    // Sends the datagrams in order until a send fails.
    void SendAll(std::optional<Transmission> transmission) {
        if (!transmission) {
            return;
        }
        const FrameCount::Time now = Clock::now().time_since_epoch();
        for (std::vector<uint8_t>& datagram : transmission->datagrams) {
            if (!Send(datagram)) {
                if (&datagram != &transmission->datagrams.front()) {
                    m_sent.CountPartial(now);
                }
                return;
            }
            ++m_datagrams;
            m_bytes += datagram.size();
        }
        m_sent.CountSent(*transmission, now);
    }

    std::string FormatCounts() const override {
        return FormatText("sent %" PRIu64 " in %" PRIu64 " datagrams", m_sent.Kinds().Total(), m_datagrams);
    }

    Summary MakeSummary() const override {
        const KindCount& kinds = m_sent.Kinds();
        Summary summary(FormatText("sent %" PRIu64 " frames%s", kinds.Total(), kinds.Text().c_str()));
        summary.Add("sent", kinds.Total());
        kinds.AddNumbers(summary);
        summary.AddIfAny("cutGood", m_sent.CutGood(), "good frames that the daemon may lose");
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
                    "Split each frame at random bytes into N datagrams, 1 to 8");
    AddNumberOption(app, "--batch", stream.batch, 1, MAX_BATCH, "N",
                    "Send N frames in one datagram, 1 to 8, when the last frame is due")
        ->excludes("--split");
    AddNumberOption(app, "--garbage", stream.garbage, 0, 1, "SHARE",
                    "Share of the frames to send after garbage, 0 to 1. Garbage is 1 to\n64 bytes other than C0");
}

} // namespace

void AddController(CLI::App& app, Run& run) {
    const auto options = std::make_shared<ControllerOptions>();
    options->device.target = {LOOPBACK, 9002};
    options->device.listen = {"", 9001};
    CLI::App& controller = AddDevice(app, CONTROLLER_ROLE, options->device);
    AddNumberOption(controller, "--links", options->shape.links, 0, MAX_LINKS, "N",
                    "Entry links of the intersection, 0 to 12: from north, east, south,\nwest, and so on")
        ->excludes("--replay");
    AddNumberOption(controller, "--groups", options->shape.groups, 0, MAX_GROUPS, "N",
                    "Lamp groups of each link, 0 to 12: straight on, left, right, two\npedestrian crossings, and so on")
        ->excludes("--replay");
    AddDamageOptions(controller, options->stream.damage, options->device.run, FRAME_KINDS, CONTROLLER_DAMAGE_TEXTS);
    AddStreamOptions(controller, options->stream);
    controller.footer(CONTROLLER_FOOTER);
    controller.callback([&run, options] { run = [options] { Controller(*options).Run(); }; });
}

} // namespace sim

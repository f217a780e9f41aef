#include "capture_source.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <vector>

#include "common/capture_file.h"
#include "v2x/v2xipc_data.h"

namespace msg {
namespace {

using Bytes = std::span<const uint8_t>;
using Ports = std::map<uint16_t, uint64_t>; // number of datagrams from or to each port

// Removes a record from the start of the bytes. Returns an empty optional if the bytes are too few.
template <typename Record>
std::optional<Record> Take(Bytes& bytes) {
    Record record{};
    if (bytes.size() < sizeof record) {
        return std::nullopt;
    }
    std::memcpy(&record, bytes.data(), sizeof record);
    bytes = bytes.subspan(sizeof record);
    return record;
}

// Returns true for a datagram of the stack application. Removes the frame header from the start of the payload.
bool TakeReplyHead(Bytes& payload, size_t& size) {
    const auto head = Take<v2xipc_dataHead_t>(payload);
    if (!head || !std::ranges::equal(head->m_headFlag, V2XIPC_HEAD_FLAG) || head->m_cmdType != V2XIPC_CMD_FROM_STACK) {
        return false;
    }
    size = head->m_packLen;
    return true;
}

// Passes the frames of a packet to the visitor.
class PacketVisitor {
public:
    PacketVisitor(const std::string& name, const FrameVisitor& visit) : m_name(name), m_visit(visit) {}

    void Begin(uint64_t packet, uint64_t time) {
        m_packet = packet;
        m_time = time;
    }
    bool HasFrames() const { return m_hasFrames; }
    bool HasReplies() const { return m_hasReplies; }

    void VisitFrame(Bytes bytes) { Visit(DecodeFrame(bytes), bytes.size()); }

    void VisitReply(Bytes payload) {
        size_t size = 0;
        if (!TakeReplyHead(payload, size)) {
            return;
        }
        m_hasReplies = true;
        const size_t received = payload.size();
        const auto block = Take<v2xipc_rsuData_t>(payload);
        if (size != received || !block) {
            VisitInvalid("a reply with " + std::to_string(received) + " bytes after its header, which announces " +
                         std::to_string(size));
        } else if (block->m_dataType == V2XIPC_DATA_SPAT_UPER) {
            VisitItems(payload, block->m_dataNo);
        }
    }

    void VisitInvalid(const std::string& problem) { Visit(MakeInvalid(problem), 0); }

private:
    void VisitItems(Bytes items, int32_t count) {
        for (int32_t i = 1; i <= count; ++i) {
            const auto item = Take<v2xipc_pc5Data_t>(items);
            if (!item || item->m_uper_dataLen > items.size()) {
                VisitInvalid("item " + std::to_string(i) + " of " + std::to_string(count) + " exceeds the reply");
                return;
            }
            VisitFrame(items.first(item->m_uper_dataLen));
            items = items.subspan(item->m_uper_dataLen);
        }
        if (!items.empty()) {
            VisitInvalid(std::to_string(items.size()) + " bytes after the last item of the reply");
        }
    }

    void Visit(Decoded decoded, size_t size) {
        m_hasFrames = true;
        m_visit({m_name + ": packet " + std::to_string(m_packet), m_packet, m_time, 0, size, std::move(decoded)});
    }

    const std::string& m_name;
    const FrameVisitor& m_visit;
    uint64_t m_packet = 0;
    uint64_t m_time = 0;
    bool m_hasFrames = false;
    bool m_hasReplies = false;
};

void VisitChosen(const tools::Datagram& datagram, const DatagramChoice& choice, PacketVisitor& visitor) {
    if (choice.port == 0) {
        visitor.VisitReply(datagram.payload);
    } else if (datagram.source.port == choice.port || datagram.destination.port == choice.port) {
        if (datagram.payload.size() > choice.offset) {
            visitor.VisitFrame(datagram.payload.subspan(choice.offset));
        } else {
            visitor.VisitInvalid("the datagram has only " + std::to_string(datagram.payload.size()) + " bytes");
        }
    }
}

// Names the ports with the most datagrams.
std::string DescribePorts(const Ports& ports) {
    constexpr size_t MAX_PORTS = 5;
    using Row = std::pair<uint16_t, uint64_t>;
    std::vector<Row> sorted(ports.begin(), ports.end());
    std::ranges::stable_sort(sorted, std::greater(), &Row::second);
    std::string text;
    for (size_t i = 0; i < std::min(sorted.size(), MAX_PORTS); ++i) {
        text += (i == 0 ? "" : ", ") + std::to_string(sorted[i].first) + " (" + std::to_string(sorted[i].second) + ")";
    }
    return text + (sorted.size() > MAX_PORTS ? " and others" : "");
}

std::string DescribeNoFrames(const tools::CaptureReader& reader, const Ports& ports, const std::string& missing) {
    const std::string ignored = tools::DescribeIgnored(reader.Counts());
    const uint64_t packets = reader.CountPackets();
    return std::to_string(packets) + (packets == 1 ? " packet" : " packets") + ", no " + missing +
           (ignored.empty() ? "" : ", " + ignored) +
           (ports.empty() ? "" : "; --udp-port N --offset K reads other datagrams, ports: " + DescribePorts(ports));
}

} // namespace

CaptureResult ReadCapture(tools::InputFile& input, const DatagramChoice& choice, const FrameVisitor& visit) {
    tools::CaptureReader reader(input);
    PacketVisitor visitor(input.Name(), visit);
    Ports ports;
    for (tools::Datagram datagram; reader.Next(datagram);) {
        ++ports[datagram.source.port];
        if (datagram.destination.port != datagram.source.port) {
            ++ports[datagram.destination.port];
        }
        visitor.Begin(reader.CountPackets(), datagram.time);
        VisitChosen(datagram, choice, visitor);
    }
    CaptureResult result;
    if (!reader.Problem().empty()) {
        result.error = reader.Problem() + "; the packets before are used";
    } else if (!visitor.HasFrames()) {
        const std::string missing = choice.port != 0       ? "datagram of port " + std::to_string(choice.port)
                                    : visitor.HasReplies() ? "frame in the replies of the stack application"
                                                           : "reply of the stack application";
        result.error = input.Name() + ": " + DescribeNoFrames(reader, ports, missing);
    }
    tools::CaptureCounts counts = reader.Counts();
    counts[static_cast<size_t>(tools::PacketKind::other)] = 0;
    result.ignored = tools::DescribeIgnored(counts);
    return result;
}

} // namespace msg

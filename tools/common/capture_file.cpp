#include "common/capture_file.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <iterator>
#include <stdexcept>
#include <tuple>

#include "common/files.h"
#include "common/text.h"

namespace tools {
namespace {

constexpr int SNAPSHOT_LENGTH = 65535;
constexpr uint64_t MICROSECONDS = 1'000'000;

// Clamps a time that a damaged file contains to the years 1970 to 9999.
uint64_t ToMicroseconds(const timeval& time) {
    constexpr time_t LAST_SECOND = 253402300799;
    const auto seconds = static_cast<uint64_t>(std::clamp<time_t>(time.tv_sec, 0, LAST_SECOND));
    const auto rest = static_cast<uint64_t>(std::clamp<suseconds_t>(time.tv_usec, 0, MICROSECONDS - 1));
    return seconds * MICROSECONDS + rest;
}

} // namespace

CaptureWriter::CaptureWriter(const std::string& path)
    : m_name(path == "-" ? "standard output" : path), m_capture(pcap_open_dead(DLT_RAW, SNAPSHOT_LENGTH)),
      m_dumper(pcap_dump_open(m_capture.get(), path.c_str())) {
    if (m_dumper == nullptr) {
        const std::string reason = pcap_geterr(m_capture.get()); // begins with the path if a file cannot be opened
        throw std::runtime_error(reason.starts_with(path) ? reason : m_name + ": " + reason);
    }
    Flush();
}

void CaptureWriter::Write(const Datagram& datagram) {
    const std::vector<uint8_t> packet = BuildPacket(datagram);
    pcap_pkthdr head{};
    head.ts.tv_sec = static_cast<time_t>(datagram.time / MICROSECONDS);
    head.ts.tv_usec = static_cast<suseconds_t>(datagram.time % MICROSECONDS);
    head.caplen = head.len = static_cast<bpf_u_int32>(packet.size());
    pcap_dump(reinterpret_cast<u_char*>(m_dumper.get()), &head, packet.data());
    Flush();
}

void CaptureWriter::Flush() {
    if (pcap_dump_flush(m_dumper.get()) != 0) {
        ThrowFileError(m_name, "written");
    }
}

CaptureCounts ReadCapture(const std::string& path, const std::function<void(const Datagram& datagram)>& visit) {
    const std::string name = path == "-" ? "standard input" : path;
    char error[PCAP_ERRBUF_SIZE] = "";
    const std::unique_ptr<pcap_t, decltype(&pcap_close)> capture(pcap_open_offline(path.c_str(), error), pcap_close);
    if (capture == nullptr) {
        const std::string reason = error;
        throw std::runtime_error(reason.starts_with(path) ? reason : name + ": " + reason);
    }
    const int linkType = pcap_datalink(capture.get());
    if (!IsLinkTypeKnown(linkType)) {
        throw std::runtime_error(FormatText("%s: link type %d is not supported", name.c_str(), linkType));
    }
    CaptureCounts counts{};
    pcap_pkthdr* head = nullptr;
    const u_char* bytes = nullptr;
    int result = 0;
    while ((result = pcap_next_ex(capture.get(), &head, &bytes)) == 1) {
        Datagram datagram;
        const PacketKind kind = ParsePacket(linkType, {bytes, head->caplen}, datagram);
        ++counts[static_cast<size_t>(kind)];
        if (kind == PacketKind::datagram) {
            datagram.time = ToMicroseconds(head->ts);
            visit(datagram);
        }
    }
    if (result == PCAP_ERROR) {
        const std::string reason = name + ": " + pcap_geterr(capture.get());
        if (counts == CaptureCounts{}) {
            throw std::runtime_error(reason);
        }
        std::fprintf(stderr, "%s; the packets before are used\n", reason.c_str());
    }
    return counts;
}

std::string DescribeIgnored(const CaptureCounts& counts) {
    constexpr const char* NAMES[] = {nullptr, "other packet", "fragment", "truncated packet"};
    static_assert(std::size(NAMES) == std::tuple_size_v<CaptureCounts>);
    std::string text;
    for (size_t kind = 1; kind < counts.size(); ++kind) {
        if (counts[kind] > 0) {
            text += FormatText("%s%" PRIu64 " %s%s", text.empty() ? "" : ", ", counts[kind], NAMES[kind],
                               counts[kind] == 1 ? "" : "s");
        }
    }
    return text.empty() ? "" : text + " ignored";
}

} // namespace tools

#include "common/capture_file.h"

#include <algorithm>
#include <cerrno>
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

// Read function of fopencookie. The stream must not throw into libpcap.
ssize_t ReadInput(void* input, char* bytes, size_t size) {
    try {
        return static_cast<ssize_t>(static_cast<InputFile*>(input)->Read(bytes, size));
    } catch (const std::runtime_error&) {
        errno = EIO;
        return -1;
    }
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
        ThrowOutputError(m_name);
    }
}

CaptureReader::CaptureReader(InputFile& input) : m_name(input.Name()) {
    FILE* const file = fopencookie(&input, "r", {ReadInput, nullptr, nullptr, nullptr});
    char error[PCAP_ERRBUF_SIZE] = "";
    m_capture.reset(file != nullptr ? pcap_fopen_offline(file, error) : nullptr);
    if (m_capture == nullptr) {
        if (file != nullptr) {
            std::fclose(file);
        }
        throw std::runtime_error(m_name + ": " + error);
    }
    m_linkType = pcap_datalink(m_capture.get());
    if (!IsLinkTypeKnown(m_linkType)) {
        throw std::runtime_error(FormatText("%s: link type %d is not supported", m_name.c_str(), m_linkType));
    }
}

bool CaptureReader::Next(Datagram& datagram) {
    pcap_pkthdr* head = nullptr;
    const u_char* bytes = nullptr;
    int result = 0;
    while ((result = pcap_next_ex(m_capture.get(), &head, &bytes)) == 1) {
        const PacketKind kind = ParsePacket(m_linkType, {bytes, head->caplen}, datagram);
        ++m_counts[static_cast<size_t>(kind)];
        if (kind == PacketKind::datagram) {
            datagram.time = ToMicroseconds(head->ts);
            return true;
        }
    }
    m_problem = result == PCAP_ERROR ? m_name + ": " + pcap_geterr(m_capture.get()) : "";
    return false;
}

CaptureCounts ReadCapture(const std::string& path, const std::function<void(const Datagram& datagram)>& visit) {
    InputFile input(path);
    CaptureReader reader(input);
    for (Datagram datagram; reader.Next(datagram);) {
        visit(datagram);
    }
    if (!reader.Problem().empty()) {
        if (reader.Counts() == CaptureCounts{}) {
            throw std::runtime_error(reader.Problem());
        }
        std::fprintf(stderr, "%s; the packets before are used\n", reader.Problem().c_str());
    }
    return reader.Counts();
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

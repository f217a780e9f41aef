// Writes and reads captures with libpcap.
#pragma once

#include <array>
#include <functional>
#include <memory>
#include <numeric>
#include <pcap/pcap.h>
#include <string>

#include "common/capture_packet.h"
#include "common/files.h"

namespace tools {

struct CaptureDeleter {
    void operator()(pcap_t* capture) const { pcap_close(capture); }
    void operator()(pcap_dumper_t* dumper) const { pcap_dump_close(dumper); }
};

// Writes a pcap file of the link type "raw IP" with times in microseconds. The path "-" means standard output. Each
// packet is flushed, so that the file of a killed program is complete.
class CaptureWriter {
public:
    // Throws std::runtime_error "path: reason".
    explicit CaptureWriter(const std::string& path);

    // Throws std::runtime_error "path: reason" if the packet cannot be written.
    void Write(const Datagram& datagram);

private:
    void Flush();

    std::string m_name;
    std::unique_ptr<pcap_t, CaptureDeleter> m_capture;
    std::unique_ptr<pcap_dumper_t, CaptureDeleter> m_dumper;
};

// Numbers of the packets of a capture. Index: PacketKind.
using CaptureCounts = std::array<uint64_t, 4>;

// Reads the UDP datagrams of a pcap or pcapng file, in the order of the file.
class CaptureReader {
public:
    // The input must outlive the reader. Throws std::runtime_error "path: reason" if the input is not a capture, and
    // for a link type that ParsePacket does not know.
    explicit CaptureReader(InputFile& input);

    // Reads up to the next datagram. The payload is valid until the next call. Returns false at the end of the capture,
    // and if a packet cannot be read.
    bool Next(Datagram& datagram);

    // Returns the numbers of the packets up to now.
    const CaptureCounts& Counts() const { return m_counts; }

    // Returns the number of the last packet, from 1.
    uint64_t CountPackets() const { return std::accumulate(m_counts.begin(), m_counts.end(), uint64_t{0}); }

    // Returns "path: reason" after a packet could not be read, otherwise an empty text.
    const std::string& Problem() const { return m_problem; }

private:
    std::string m_name;
    std::unique_ptr<pcap_t, CaptureDeleter> m_capture;
    int m_linkType = 0;
    CaptureCounts m_counts{};
    std::string m_problem;
};

// Calls `visit` with each UDP datagram of a pcap or pcapng file, in the order of the file. The path "-" means standard
// input. The payload is valid during the call. Throws std::runtime_error "path: reason" if no packet can be read, and
// for a link type that ParsePacket does not know. If a later packet cannot be read, as in the file of a killed tcpdump,
// writes the reason to standard error and returns.
CaptureCounts ReadCapture(const std::string& path, const std::function<void(const Datagram& datagram)>& visit);

// Describes the packets that ReadCapture has ignored, for one line: "3 other packets, 2 fragments ignored". Returns an
// empty text if the capture has only datagrams.
std::string DescribeIgnored(const CaptureCounts& counts);

} // namespace tools

// Reads frames from the packets of a capture. Stores only one packet at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "common/files.h"
#include "frame_source.h"

namespace msg {

// Which datagrams contain frames.
struct DatagramChoice {
    uint16_t port = 0; // source or destination of the datagrams; 0 selects the replies of the stack application
    size_t offset = 0; // with a port: a datagram's frame is its payload from this byte on
};

struct CaptureResult {
    std::string error;   // why the capture has no frames or could not be read to its end; empty if there is no error
    std::string ignored; // number of fragments and truncated packets; empty for 0 packets
};

// Reads the frames of a pcap or pcapng file. An invalid reply, or item of a reply, is an invalid frame. Throws
// std::runtime_error if no packet can be read.
CaptureResult ReadCapture(tools::InputFile& input, const DatagramChoice& choice, const FrameVisitor& visit);

} // namespace msg

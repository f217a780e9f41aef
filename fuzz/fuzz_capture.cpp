// Parses the input as one packet of a capture. The first byte selects the link type.
#include <cstdlib>
#include <iterator>
#include <pcap/dlt.h>

#include "common/capture_packet.h"
#include "exact_copy.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr int LINK_TYPES[] = {DLT_EN10MB, DLT_LINUX_SLL, DLT_LINUX_SLL2, DLT_RAW, DLT_NULL};
    if (size == 0) {
        return 0;
    }
    const int linkType = LINK_TYPES[data[0] % std::size(LINK_TYPES)];
    const auto packet = exactCopy(data + 1, size - 1);
    tools::Datagram datagram;
    if (tools::ParsePacket(linkType, {packet.get(), size - 1}, datagram) != tools::PacketKind::datagram) {
        return 0;
    }
    // A packet that is built from the datagram has the same payload, and a sample's parts lie within the payload.
    const std::vector<uint8_t> built = tools::BuildPacket(datagram);
    tools::Datagram again;
    if (tools::ParsePacket(DLT_RAW, built, again) != tools::PacketKind::datagram ||
        again.payload.size() != datagram.payload.size()) {
        abort();
    }
    const auto sample = tools::ReadSample(datagram);
    if (sample && sample->topic.size() + sample->octets.size() + 9 != datagram.payload.size()) {
        abort();
    }
    return 0;
}

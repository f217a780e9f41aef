// Decodes the input as one DDS sample from a peer.
#include <algorithm>
#include <cstdlib>

#include "exact_copy.h"
#include "v2xdds_cdr.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto sample = exactCopy(data, size);
    const auto octets = v2xdds_Decode({sample.get(), size});
    if (!octets) {
        return 0;
    }
    // The decoded octets lie within the sample. Encoding and decoding them again changes nothing.
    if (octets->data() != sample.get() + V2XDDS_CDR_HEAD || octets->size() > size - V2XDDS_CDR_HEAD) {
        abort();
    }
    const auto encoded = std::make_unique<uint8_t[]>(V2XDDS_CDR_HEAD + octets->size());
    v2xdds_Encode(*octets, encoded.get());
    const auto decoded = v2xdds_Decode({encoded.get(), V2XDDS_CDR_HEAD + octets->size()});
    if (!decoded || !std::equal(decoded->begin(), decoded->end(), octets->begin(), octets->end())) {
        abort();
    }
    return 0;
}

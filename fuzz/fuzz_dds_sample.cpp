// Decodes one sample of a topic, as a peer sends it.
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
    // The octets lie within the sample, and survive encoding and decoding.
    if (octets->data() != sample.get() + V2XDDS_CDR_HEAD || octets->size() > size - V2XDDS_CDR_HEAD) {
        abort();
    }
    const auto again = std::make_unique<uint8_t[]>(V2XDDS_CDR_HEAD + octets->size());
    v2xdds_Encode(*octets, again.get());
    const auto back = v2xdds_Decode({again.get(), V2XDDS_CDR_HEAD + octets->size()});
    if (!back || !std::equal(back->begin(), back->end(), octets->begin(), octets->end())) {
        abort();
    }
    return 0;
}

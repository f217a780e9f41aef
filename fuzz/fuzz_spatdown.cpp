// A document from the cloud, in fragments, through reading and conversion to the hand-over, legacy and corrected. The
// first byte selects the fragments.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "fakes.h"
#include "hand_over.h"
#include "spat_conv_config.h"
#include "spat_conv_spatdown.h"

namespace {

// Greatest fragments; "0" to "7" as the first character of an input. Those below 1024 end a document each.
constexpr size_t FRAGMENTS[] = {SIZE_MAX, 1024, 1023, 2048, 20479, 20480, 64, 1};

const char GOOD[] = R"({"intersections":[{"intersectionId":{"region":1,"id":2},"status":258,"phases":[]}]})";

void receive(const uint8_t* data, size_t size) {
    const std::unique_ptr<uint8_t[]> bytes = exactCopy(data, size);
    v2xspatconv_ddsRecvSpatDown(bytes.get(), static_cast<unsigned int>(size));
}

// After any input, a good document gives its record.
void checkGood(bool corrected) {
    receive(nullptr, 0);
    checkHandOver();
    receive(reinterpret_cast<const uint8_t*>(GOOD), strlen(GOOD));
    const Bytes record = hex(corrected ? "02000100 0201 FFFFFFFF FFFF 00" : "02000100 0000 FFFFFFFF FFFF 00");
    if (fakes::sent.size() != 1 || Bytes(fakes::sent[0].bytes.begin() + 28, fakes::sent[0].bytes.end()) != record) {
        abort();
    }
    checkHandOver();
}

// A corrected record ends with its last state: every byte of it belongs to a count, and no count is above 16.
void checkCorrected() {
    for (const fakes::Datagram& sent : fakes::sent) {
        size_t at = 28 + 13;
        if (sent.bytes.at(28 + 12) > 16) {
            abort();
        }
        for (int i = 0; i < sent.bytes[28 + 12]; i++) {
            if (sent.bytes.at(at + 1) > 16) {
                abort();
            }
            at += 2 + 15U * sent.bytes[at + 1];
        }
        if (at != sent.bytes.size()) {
            abort();
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    startHandOver();
    if (size == 0) {
        return -1;
    }
    const spat_conv_config_t* config = nullptr;
    v2xspatconv_GetCfgData(&config);
    const size_t fragment = FRAGMENTS[data[0] % std::size(FRAGMENTS)];
    for (const bool corrected : {false, true}) {
        const_cast<spat_conv_config_t*>(config)->m_corrections.m_spat_down = corrected;
        for (size_t at = 1; at < size; at += std::min(fragment, size - at)) {
            receive(data + at, std::min(fragment, size - at));
        }
        if (corrected) {
            checkCorrected();
        }
        checkHandOver();
        checkGood(corrected);
    }
    return 0;
}

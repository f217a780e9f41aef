// Passes the input to the cloud callback as fragments of documents, once for the legacy and once for the corrected
// conversion, and checks the resulting frames. The first byte selects the size of the fragments.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "fakes.h"
#include "hand_over.h"
#include "spat_conv_config.h"
#include "spat_conv_spatdown.h"

namespace {

// The size of each fragment except the last, in bytes. The characters "0" to "7" select the sizes in this order. A
// fragment below 1024 bytes ends a document.
constexpr size_t FRAGMENT_SIZES[] = {SIZE_MAX, 1024, 1023, 2048, 20479, 20480, 64, 1};

const char GOOD_DOCUMENT[] = R"({"intersections":[{"intersectionId":{"region":1,"id":2},"status":258,"phases":[]}]})";

void receive(const uint8_t* data, size_t size) {
    const std::unique_ptr<uint8_t[]> bytes = exactCopy(data, size);
    v2xspatconv_ddsRecvSpatDown(bytes.get(), static_cast<unsigned int>(size));
}

// Ends an incomplete document, then checks that a good document produces its record.
void checkGoodDocument(bool isCorrected) {
    receive(nullptr, 0);
    checkHandOver();
    receive(reinterpret_cast<const uint8_t*>(GOOD_DOCUMENT), strlen(GOOD_DOCUMENT));
    const Bytes record = hex(isCorrected ? "02000100 0201 FFFFFFFF FFFF 00" : "02000100 0000 FFFFFFFF FFFF 00");
    if (fakes::sent.size() != 1 || Bytes(fakes::sent[0].bytes.begin() + 28, fakes::sent[0].bytes.end()) != record) {
        abort();
    }
    checkHandOver();
}

// Checks that each corrected record ends with its last state and that no count in the record is above 16.
void checkCorrectedRecords() {
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
    const size_t fragment = FRAGMENT_SIZES[data[0] % std::size(FRAGMENT_SIZES)];
    for (const bool isCorrected : {false, true}) {
        const_cast<spat_conv_config_t*>(config)->m_corrections.m_spat_down = isCorrected;
        for (size_t at = 1; at < size; at += std::min(fragment, size - at)) {
            receive(data + at, std::min(fragment, size - at));
        }
        if (isCorrected) {
            checkCorrectedRecords();
        }
        checkHandOver();
        checkGoodDocument(isCorrected);
    }
    return 0;
}

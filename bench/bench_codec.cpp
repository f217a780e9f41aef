// Decodes and encodes SPAT frames with the codec library, and with direct calls of the asn1c runtime as the baseline.
#include <cstdio>
#include <string>
#include <vector>

#include "compare.h"
#include "spat_conv_deamon_codec_log.h"
#include "spat_frame.h"
#include "v2x/v2xlog.h"
#include "v2xapp_upercodec.h"

#include "per_decoder.h"
#include "per_encoder.h"

int main() {
    const struct {
        const char* what;
        int phases;
        int states;
    } frames[] = {{"1 phase", 1, 1}, {"8 phases", 8, 1}, {"16 phases of 16 states", 16, 16}};
    bool isOk = true;
    V2X_LOGHANDLE handle = nullptr;
    v2xlog_AddTag("UPER", &handle); // the tag has its default level, as in the daemon
    v2xspatconv_SetCodecLog();
    compareHeading("runtime", "codec");
    for (const auto& row : frames) {
        std::vector<uint8_t> bytes = encodeSpatFrame(row.phases, row.states);
        const auto size = static_cast<int16_t>(bytes.size());
        ASNSTRUCT_HANDLE frame = nullptr;
        if (size == 0 || v2xcodec_uperDec(&frame, bytes.data(), size) != 0) {
            fprintf(stderr, "bench_codec: cannot make the frame of %s\n", row.what);
            return 1;
        }
        std::vector<uint8_t> out(bytes.size());
        const std::string what = std::string(row.what) + ", " + std::to_string(size) + " bytes";
        compare(
            (what + ": decode").c_str(),
            [&] {
                void* decoded = nullptr;
                asn_codec_ctx_t context{};
                isOk &=
                    uper_decode_complete(&context, &asn_DEF_MessageFrame, &decoded, bytes.data(), bytes.size()).code ==
                    RC_OK;
                ASN_STRUCT_FREE(asn_DEF_MessageFrame, decoded);
            },
            [&] {
                ASNSTRUCT_HANDLE decoded = nullptr;
                isOk &= v2xcodec_uperDec(&decoded, bytes.data(), size) == 0;
                v2xcodec_freeStrcut(&decoded);
            });
        compare(
            (what + ": encode").c_str(),
            [&] { isOk &= uper_encode_to_buffer(&asn_DEF_MessageFrame, frame, out.data(), out.size()).encoded > 0; },
            [&] {
                int16_t length = 0;
                isOk &= v2xcodec_uperEnc(frame, out.data(), static_cast<int32_t>(out.size()), &length) == 0;
            });
        v2xcodec_freeStrcut(&frame);
    }
    return isOk ? 0 : 1;
}

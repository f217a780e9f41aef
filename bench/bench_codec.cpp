// SPAT frames decoded and encoded through the codec library, beside the same call of the bare runtime. The two take turns
// round by round, so that what else the machine does meets both; the ratio is the median of the rounds' ratios.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <vector>

#include "heap_calls.h"
#include "v2x/v2xlog.h"
#include "v2xapp_gbspat.h"
#include "v2xapp_upercodec.h"

#include "per_decoder.h"
#include "per_encoder.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Clock = std::chrono::steady_clock;

// One intersection.
Bytes spat(int phases, int states) {
    GBMSG_HANDLE frame = nullptr;
    GBSPAT_HANDLE message = nullptr;
    GBSPATIS_HANDLE crossing = nullptr;
    int32_t minute = 513261;
    v2xapp_GBMsgSPATInit(&frame, &message);
    getSPATMsgCnt(message);
    v2xapp_GBMsgSPATMoy(message, &minute);
    v2xapp_GBMsgSPATSecmark2(message, 50998);
    v2xapp_GBMsgSPATSectionInit(&crossing);
    v2xapp_GBMsgSPATSectionId(crossing, 0x00010002);
    v2xapp_GBMsgSPATSectionStatus(crossing, 0x0500);
    for (int32_t id = 1; id <= phases; id++) {
        GBSPATISPHASE_HANDLE phase = nullptr;
        v2xapp_GBMsgSPATSectionPhaseInit(&phase);
        v2xapp_GBMsgSPATSectionPhaseId(phase, id);
        for (int32_t light = 0; light < states; light++) {
            GBSPATISPHASESTATE_HANDLE state = nullptr;
            c_phaseState_t timing = {};
            timing.stateMode = 1;
            timing.endTime = 12.3;
            timing.opt_nextStartTime = 40;
            timing.opt_nextDuration = 20;
            v2xapp_GBMsgSPATSectionPhaseStateInit(&state);
            v2xapp_GBMsgSPATSectionPhaseStateLightState(state, light % 9);
            v2xapp_GBMsgSPATSectionPhaseStatePhaseState(state, timing);
            v2xapp_GBMsgSPATSectionPhaseStateAdd(phase, state);
        }
        v2xapp_GBMsgSPATSectionPhaseAdd(crossing, phase);
    }
    v2xapp_GBMsgSPATSectionAdd(message, crossing);
    Bytes bytes(16384);
    int16_t length = 0;
    if (v2xcodec_uperEnc(frame, bytes.data(), static_cast<int32_t>(bytes.size()), &length) != 0) {
        length = 0;
    }
    bytes.resize(static_cast<size_t>(length));
    v2xcodec_freeStrcut(&frame);
    return bytes;
}

double median(std::vector<double> values) {
    std::ranges::sort(values);
    return values[values.size() / 2];
}

double nanoseconds(const std::function<void()>& call, int times) {
    const auto start = Clock::now();
    for (int i = 0; i < times; i++) {
        call();
    }
    return std::chrono::duration<double, std::nano>(Clock::now() - start).count() / times;
}

size_t allocations(const std::function<void()>& call) {
    const size_t before = heapCalls();
    call();
    return heapCalls() - before;
}

void compare(const char* what, const std::function<void()>& raw, const std::function<void()>& codec) {
    constexpr int ROUNDS = 301;
    const int times = std::max(1, static_cast<int>(300'000 / nanoseconds(raw, 10))); // 0.3 ms a round
    std::vector<double> rawTimes;
    std::vector<double> codecTimes;
    std::vector<double> ratios;
    for (int round = 0; round < ROUNDS; round++) {
        const bool rawFirst = round % 2 == 0;
        const double first = nanoseconds(rawFirst ? raw : codec, times);
        const double second = nanoseconds(rawFirst ? codec : raw, times);
        rawTimes.push_back(rawFirst ? first : second);
        codecTimes.push_back(rawFirst ? second : first);
        ratios.push_back(codecTimes.back() / rawTimes.back());
    }
    printf("%-30s %10.0f %10.0f %8.3f %8zu %8zu\n", what, median(rawTimes), median(codecTimes), median(ratios),
           allocations(raw), allocations(codec));
}

} // namespace

int main() {
    const struct {
        const char* what;
        int phases;
        int states;
    } frames[] = {{"1 phase", 1, 1}, {"8 phases", 8, 1}, {"16 phases of 16 states", 16, 16}};
    bool sound = true;
    V2X_LOGHANDLE handle = nullptr;
    v2xlog_AddTag("UPER", &handle); // at its usual level, as in the daemon
    printf("%-30s %10s %10s %8s %8s %8s\n", "ns, ratio, allocations a call", "raw", "codec", "ratio", "raw", "codec");
    for (const auto& row : frames) {
        Bytes bytes = spat(row.phases, row.states);
        const auto size = static_cast<int16_t>(bytes.size());
        ASNSTRUCT_HANDLE frame = nullptr;
        if (size == 0 || v2xcodec_uperDec(&frame, bytes.data(), size) != 0) {
            fprintf(stderr, "bench_codec: %s: no frame\n", row.what);
            return 1;
        }
        Bytes out(bytes.size());
        const std::string what = std::string(row.what) + ", " + std::to_string(size) + " bytes";
        compare((what + ": decode").c_str(),
                [&] {
                    void* decoded = nullptr;
                    asn_codec_ctx_t context{};
                    sound &= uper_decode_complete(&context, &asn_DEF_MessageFrame, &decoded, bytes.data(),
                                                  bytes.size()).code == RC_OK;
                    ASN_STRUCT_FREE(asn_DEF_MessageFrame, decoded);
                },
                [&] {
                    ASNSTRUCT_HANDLE decoded = nullptr;
                    sound &= v2xcodec_uperDec(&decoded, bytes.data(), size) == 0;
                    v2xcodec_freeStrcut(&decoded);
                });
        compare((what + ": encode").c_str(),
                [&] {
                    sound &= uper_encode_to_buffer(&asn_DEF_MessageFrame, frame, out.data(), out.size()).encoded > 0;
                },
                [&] {
                    int16_t length = 0;
                    sound &= v2xcodec_uperEnc(frame, out.data(), static_cast<int32_t>(out.size()), &length) == 0;
                });
        v2xcodec_freeStrcut(&frame);
    }
    return sound ? 0 : 1;
}

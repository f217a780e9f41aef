// Builds a SPAT of an intersection with two phases, encodes the frame and prints it in hex. A second line is the
// position of a stop line, encoded as an offset from the intersection: other messages contain such offsets. Compiles as
// C11 and as C++11.
//
// usage: build_spat [TIME]    TIME in seconds since 1970, default: now
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "v2xapp_commoncodec.h"
#include "v2xapp_gbspat.h"
#include "v2xapp_log.h"
#include "v2xapp_upercodec.h"

#define REGION 1
#define NODE 12
#define FROM_NOW 1 // stateMode of c_phaseState_t

static bool IsWanted(const char* tag, int32_t level) {
    (void)tag;
    return level <= V2XCODEC_LOG_WARN;
}

static void WriteLog(const char* tag, int32_t level, const char* file, int32_t line, const char* function,
                     const char* text) {
    (void)level, (void)file, (void)line;
    fprintf(stderr, "build_spat: %s %s: %s\n", tag, function, text);
}

static const v2xcodec_log_t LOG = {IsWanted, WriteLog};

static void PrintHex(const uint8_t* bytes, size_t size) {
    for (size_t i = 0; i < size; i++) {
        printf("%02X", (unsigned)bytes[i]);
    }
    printf("\n");
}

// The next functions add a new child to its parent first and fill it afterwards: then the frame owns all children, and
// freeing the frame frees them. They return true on success.
static bool AddPhase(GBSPATIS_HANDLE intersection, int32_t id, int32_t light, const c_phaseState_t* times) {
    GBSPATISPHASE_HANDLE phase = NULL;
    GBSPATISPHASESTATE_HANDLE state = NULL;
    return v2xapp_GBMsgSPATSectionPhaseInit(&phase) == 0 && v2xapp_GBMsgSPATSectionPhaseAdd(intersection, phase) == 0 &&
           v2xapp_GBMsgSPATSectionPhaseId(phase, id) == 0 && v2xapp_GBMsgSPATSectionPhaseStateInit(&state) == 0 &&
           v2xapp_GBMsgSPATSectionPhaseStateAdd(phase, state) == 0 &&
           v2xapp_GBMsgSPATSectionPhaseStateLightState(state, light) == 0 &&
           v2xapp_GBMsgSPATSectionPhaseStatePhaseState(state, *times) == 0;
}

static bool AddPhases(GBSPATIS_HANDLE intersection) {
    c_phaseState_t green; // in seconds
    memset(&green, 0, sizeof green);
    green.stateMode = FROM_NOW;
    green.startTime = 0;
    green.endTime = 12.5;
    green.opt_minendTime = 10;
    green.opt_maxendTime = 15;
    green.opt_nextStartTime = 60;
    green.opt_nextDuration = 20;
    green.opt_timeConfidence = 0.9;

    c_phaseState_t red = green;
    red.endTime = 15.5;
    red.opt_minendTime = -1; // absent
    red.opt_maxendTime = -1;
    red.opt_nextStartTime = -1; // unknown
    red.opt_timeConfidence = -1;
    return AddPhase(intersection, 3, LightState_protected_green, &green) &&
           AddPhase(intersection, 4, LightState_red, &red);
}

static bool AddIntersection(GBSPAT_HANDLE spat) {
    const int32_t status = 0x8000 >> IntersectionStatusObject_fixedTimeOperation; // bit 0 is the highest
    GBSPATIS_HANDLE intersection = NULL;
    return v2xapp_GBMsgSPATSectionInit(&intersection) == 0 && v2xapp_GBMsgSPATSectionAdd(spat, intersection) == 0 &&
           v2xapp_GBMsgSPATSectionId(intersection, (uint32_t)REGION << 16 | NODE) == 0 &&
           v2xapp_GBMsgSPATSectionStatus(intersection, status) == 0 && AddPhases(intersection);
}

static bool FillSpat(GBSPAT_HANDLE spat, time_t now) {
    const struct tm* utc = gmtime(&now);
    if (utc == NULL) {
        return false;
    }
    int32_t minuteOfYear = (utc->tm_yday * 24 + utc->tm_hour) * 60 + utc->tm_min;
    uint64_t microseconds = (uint64_t)now * 1000000;
    char name[] = "Crossing 12";
    return getSPATMsgCnt(spat) == 0 && v2xapp_GBMsgSPATMoy(spat, &minuteOfYear) == 0 &&
           v2xapp_GBMsgSPATSecmark(spat, &microseconds) == 0 && v2xapp_GBMsgSPATName(spat, name, -1) == 0 &&
           AddIntersection(spat);
}

static bool PrintSpat(time_t now) {
    GBMSG_HANDLE frame = NULL;
    GBSPAT_HANDLE spat = NULL;
    if (v2xapp_GBMsgSPATInit(&frame, &spat) != 0) {
        return false;
    }
    uint8_t bytes[1024];
    int16_t size = 0;
    // The result is 0 even if the frame does not fit into the buffer: compare the sizes.
    const bool isOk = FillSpat(spat, now) && v2xcodec_uperEnc(frame, bytes, sizeof bytes, &size) == 0 && size > 0 &&
                      (size_t)size <= sizeof bytes;
    v2xcodec_freeStrcut(&frame);
    if (isOk) {
        PrintHex(bytes, (size_t)size);
    }
    return isOk;
}

static bool PrintStopLine(void) {
    Elevation_t crossingElevation = 435; // 0.1 m
    Elevation_t lineElevation = 420;
    Position3D_t crossing; // 1e-7 degree
    Position3D_t line;
    PositionOffsetLLV_t offset;
    memset(&crossing, 0, sizeof crossing);
    memset(&line, 0, sizeof line);
    memset(&offset, 0, sizeof offset);
    crossing.lat = 399042000;
    crossing.Long = 1164074000;
    crossing.elevation = &crossingElevation;
    line.lat = 399043500;
    line.Long = 1164071900;
    line.elevation = &lineElevation;

    uint8_t bytes[32];
    bool isOk = setPosOffsetLLVOriginal(&line, &crossing, &offset) == 0;
    if (isOk) {
        const asn_enc_rval_t result = asn_encode_to_buffer(NULL, ATS_UNALIGNED_CANONICAL_PER,
                                                           &asn_DEF_PositionOffsetLLV, &offset, bytes, sizeof bytes);
        isOk = result.encoded > 0 && (size_t)result.encoded <= sizeof bytes;
        if (isOk) {
            PrintHex(bytes, (size_t)result.encoded);
        }
    }
    ASN_STRUCT_FREE_CONTENTS_ONLY(asn_DEF_PositionOffsetLLV, &offset);
    return isOk;
}

int main(int argc, char** argv) {
    char* end = NULL;
    const time_t now = argc == 2 ? (time_t)strtoll(argv[1], &end, 10) : time(NULL);
    if (argc > 2 || (argc == 2 && (end == argv[1] || *end != '\0' || now < 0))) {
        fprintf(stderr, "usage: build_spat [TIME]\n");
        return 2;
    }
    v2xcodec_setLog(&LOG);
    if (!PrintSpat(now) || !PrintStopLine()) {
        fprintf(stderr, "build_spat: cannot build the messages\n");
        return 1;
    }
    return 0;
}
